// The two read-only tables of the extended operators: the base-2 logarithm table of Log2 (each
// entry packs log2(1 + j/32) in Q15 above the step to the next entry) and 2^(-i/100) in Q15.
#include <array>
#include <cstdint>

#include "sonvel_aec_ops.h"

namespace {

// log2(1 + j/32) in Q15, j = 0..32, the standard 33-entry interpolation table.
constexpr int16_t kLog2Q15[33] = {
    0,     1455,  2866,  4236,  5568,  6863,  8124,  9352,  10549, 11716, 12855,
    13967, 15054, 16117, 17156, 18172, 19167, 20142, 21097, 22033, 22951, 23852,
    24735, 25603, 26455, 27291, 28113, 28922, 29716, 30497, 31266, 32023, 32767,
};

// Entry j: upper half log2 value j, lower half (as int16) value j minus value j + 1.
constexpr std::array<int32_t, 32> pack_log2_table() {
    std::array<int32_t, 32> t{};
    for (int j = 0; j < 32; ++j) {
        const uint32_t step = static_cast<uint16_t>(kLog2Q15[j] - kLog2Q15[j + 1]);
        t[j] = static_cast<int32_t>((static_cast<uint32_t>(kLog2Q15[j]) << 16) | step);
    }
    return t;
}

constexpr std::array<int32_t, 32> kPackedLog2 = pack_log2_table();
static_assert(kPackedLog2[0] == 0x0000FA51);

}  // namespace

extern "C" SONVEL_API const int32_t Sonvel_AEC_gaiAecLog2Tab[32] = {
    kPackedLog2[0],  kPackedLog2[1],  kPackedLog2[2],  kPackedLog2[3],  kPackedLog2[4],
    kPackedLog2[5],  kPackedLog2[6],  kPackedLog2[7],  kPackedLog2[8],  kPackedLog2[9],
    kPackedLog2[10], kPackedLog2[11], kPackedLog2[12], kPackedLog2[13], kPackedLog2[14],
    kPackedLog2[15], kPackedLog2[16], kPackedLog2[17], kPackedLog2[18], kPackedLog2[19],
    kPackedLog2[20], kPackedLog2[21], kPackedLog2[22], kPackedLog2[23], kPackedLog2[24],
    kPackedLog2[25], kPackedLog2[26], kPackedLog2[27], kPackedLog2[28], kPackedLog2[29],
    kPackedLog2[30], kPackedLog2[31],
};

// Entry i = 32767 * 2^(-i/100) rounded to nearest, i = 0..100.
extern "C" SONVEL_API const int16_t Sonvel_AEC_gasAecpow2tab[101] = {
    32767, 32541, 32316, 32093, 31871, 31651, 31432, 31215, 30999, 30785, 30573, 30362, 30152,
    29944, 29737, 29531, 29327, 29125, 28924, 28724, 28525, 28328, 28133, 27938, 27745, 27554,
    27363, 27174, 26987, 26800, 26615, 26431, 26249, 26067, 25887, 25708, 25531, 25355, 25179,
    25005, 24833, 24661, 24491, 24322, 24154, 23987, 23821, 23657, 23493, 23331, 23170, 23010,
    22851, 22693, 22536, 22381, 22226, 22072, 21920, 21769, 21618, 21469, 21321, 21173, 21027,
    20882, 20738, 20594, 20452, 20311, 20170, 20031, 19893, 19755, 19619, 19483, 19349, 19215,
    19082, 18951, 18820, 18690, 18561, 18432, 18305, 18179, 18053, 17928, 17805, 17682, 17559,
    17438, 17318, 17198, 17079, 16961, 16844, 16728, 16612, 16497, 16384,
};
