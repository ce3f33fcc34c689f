// Records at the edge of what validation accepts (bin fields and band edges up to the FFT length,
// any band shift, an unbounded clamp bin) must run without touching anything outside the instance
// block; under the sanitizer build this also catches out-of-range reads inside it.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "interface/instance_block.h"
#include "sonvel_aec.h"

namespace {

using sonvel::test::GuardedBlock;

struct Extreme {
    const char *what;
    void (*make)(AecCfg &c, int16_t bound);
};

const Extreme kExtremes[] = {
    {"every bin field at the bound",
     [](AecCfg &c, int16_t b) {
         c.s16HfBinLo = b, c.s16HfBinHi = b, c.s16CohBinLo = b, c.s16CohBinHi = b;
         for (int16_t &e : c.as16BandEdge) e = b;
         c.s16ClampBinLo = b, c.s16ClampBinHi = 32767;
     }},
    {"wide bands reaching the bound",
     [](AecCfg &c, int16_t b) {
         c.s16HfBinLo = 0, c.s16HfBinHi = b, c.s16CohBinLo = 0, c.s16CohBinHi = b;
         const int16_t e[6] = {0, 1, 2, 3, static_cast<int16_t>(b - 1), b};
         std::memcpy(c.as16BandEdge, e, sizeof e);
         c.s16ClampBinLo = 0, c.s16ClampBinHi = 32767;
     }},
    {"empty bands at zero",
     [](AecCfg &c, int16_t) {
         c.s16HfBinLo = 0, c.s16HfBinHi = 0, c.s16CohBinLo = 0, c.s16CohBinHi = 0;
         for (int16_t &e : c.as16BandEdge) e = 0;
         c.s16ClampBinLo = 0, c.s16ClampBinHi = 0;
     }},
    {"upper half beyond the last bin",
     [](AecCfg &c, int16_t b) {
         c.s16HfBinLo = static_cast<int16_t>(b / 2 + 1), c.s16HfBinHi = b;
         c.s16CohBinLo = static_cast<int16_t>(b / 2 + 1), c.s16CohBinHi = b;
         for (int k = 0; k < 5; ++k) c.as16BandEdge[k] = static_cast<int16_t>(b / 2 + 1 + 5 * k);
         c.as16BandEdge[5] = b;
         c.s16ClampBinLo = static_cast<int16_t>(b / 2 + 1), c.s16ClampBinHi = b;
     }},
};

// Runs a few cycles with every shift from 0 to 33 and a few out-of-range ones.
void run_extreme(const Extreme &x, uint8_t rate, uint8_t level, uint8_t hfMode) {
    const int16_t bound = rate == 0 ? 128 : 256;
    AecCfg cfg = sonvel::test::default_cfg(rate);
    cfg.u8NlpLevel = level;
    cfg.u8HighFreqMode = hfMode;
    cfg.u8StartPart = 6;
    x.make(cfg, bound);
    ASSERT_EQ(Sonvel_AEC_Check(&cfg), 0) << x.what;

    GuardedBlock block;
    void *h = nullptr;
    ASSERT_EQ(Sonvel_AEC_Init(&h, block.data(), 62064, &cfg), 0) << x.what;
    const int f = sonvel::test::frame_len(cfg);
    const auto far = sonvel::test::test_signal(static_cast<size_t>(f) * 8, 31, 20000);
    auto near = sonvel::test::echo_of(far, 17, 2);
    const int16_t shiftSets[][7] = {
        {0, 1, 2, 3, 4, 5, 6},          {13, 14, 15, 16, 17, 18, 19}, {26, 27, 28, 29, 30, 31, 32},
        {33, -1, -32768, 32767, 64, 0, 31}, {-13, 45, 1000, 2, 12, 29, 30},
    };
    for (const auto &shifts : shiftSets) {
        std::memcpy(cfg.as16BandShift, shifts, sizeof shifts);
        ASSERT_EQ(Sonvel_AEC_SetParams(h, &cfg), 0);
        sonvel::test::apply_frames(h, near, far, f);
        ASSERT_TRUE(block.canaries_intact()) << x.what;
    }
}

TEST(ParameterExtremes, AcceptedRecordsStayInsideTheBlock) {
    for (const Extreme &x : kExtremes) {
        for (uint8_t rate : {uint8_t{0}, uint8_t{1}}) {
            for (uint8_t level = 0; level <= 2; ++level) {
                run_extreme(x, rate, level, static_cast<uint8_t>(level & 1));
                if (HasFatalFailure()) return;
            }
        }
    }
}

}  // namespace
