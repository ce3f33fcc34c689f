// Lane equivalence of the transforms and the block normaliser (the kernel is the test parameter).
// The complex FFT service and the real FFT pair run behind a prepared plan whose vectorised flag
// is cleared for the portable path (its stages, and on x86-64 the loops around the real pair; on
// aarch64 those loops are the lanes on both paths). Their blocks: headroom-limit words, constant
// blocks, one word without the headroom, blocks whose sums clamp, real and conjugate-symmetric
// ones (the real-data paths) and ones a word off those shapes, over scale factors both ways (up to
// 33, past the shift from which the vector split hands over to the portable one). The
// normaliser, its headroom and its shift run over the fixture's counts and operands. Skipped
// where the processor has no vector unit.
#include <algorithm>
#include <cmath>
#include <cstdint>

#include "lane_equivalence.h"
#include "sonvel_aec_fft.h"
#include "sonvel_aec_spectral.h"
#include "spectral/fft/fft_plan.h"
#include "spectral/kernels.h"

namespace {

using lanetest::Buffers;
using lanetest::Operands;
using lanetest::Words;
using sp::Isa;

constexpr int kS = lanetest::kSlack;

// The prepared plan for length n on a path.
const void *plan(Isa isa, int n) {
    struct alignas(8) Area {
        uint8_t bytes[SONVEL_FFT_PLAN_BYTES];
    };
    static Area areas[2][2];
    uint8_t *a = areas[n == 256][isa == Isa::kVector].bytes;
    if (sonvel::fft::prepared(a) == nullptr) {
        EXPECT_EQ(Sonvel_FFTInit_C_SC32(a, n == 256 ? 8 : 7), 0);
        if (isa == Isa::kPortable) reinterpret_cast<sonvel::fft::Plan *>(a)->vectorised = 0;
    }
    return a;
}

int order_of(int n) { return n == 256 ? 8 : 7; }

// A block of n complex words (2n words) in the shape of the round, inside the headroom of log2 n
// bits but for the words that are meant to leave it.
Words block(Operands &ops, int n) {
    const int32_t lim = int32_t{1} << (31 - order_of(n));
    const auto within = [&] {
        return ops.next() % 4 ? ops.value(-lim, lim - 1) : ops.pick({-lim, lim - 1});
    };
    Words x(2 * n);
    const int shape = ops.round() % 8;
    for (auto &v : x) v = within();
    if (shape == 1) std::fill(x.begin(), x.end(), ops.pick({-lim, lim - 1}));
    if (shape == 2) x[ops.next() % (2 * n)] = ops.pick({lim, -lim - 1, INT32_MIN});
    if (shape == 3) {  // the signs of e^(j 2 pi k t / N): the sums in bin k clamp
        const int k = ops.pick({1, 3, n / 2 - 1}), sign = ops.pick({1, -1});
        for (int t = 0; t < n; ++t) {
            const double angle = 6.283185307179586 * k * t / n;
            x[2 * t] = std::cos(angle) * sign >= 0 ? lim - 1 : -lim;
            x[2 * t + 1] = std::sin(angle) * sign >= 0 ? lim - 1 : -lim;
        }
    }
    for (int t = 0; (shape == 4 || shape == 6) && t < n; ++t) {  // real: any, or 16-bit samples
        if (ops.next() % 2) x[2 * t] = ops.value(-32768, 32767) * (lim >> 16);  // as scaled
        x[2 * t + 1] = 0;
    }
    if (shape == 5 || (shape == 6 && ops.next() % 2)) {  // conjugate-symmetric
        x[1] = x[n + 1] = 0;
        for (int k = 1; k < n / 2; ++k) {
            x[2 * k + 1] = std::max(x[2 * k + 1], 1 - lim);
            x[2 * (n - k)] = x[2 * k], x[2 * (n - k) + 1] = -x[2 * k + 1];
        }
    }
    if (shape == 6) x[ops.next() % (2 * n)] += ops.pick({1, -1});  // a word off the shape
    // Small words: the stages then carry many guard bits (up to 29 in the real-data paths).
    if (shape == 7) {
        const int down = ops.pick({16, 24, 28, 29, 30, 31});
        for (auto &v : x) v >>= down;
    }
    return x;
}

Buffers transform_buffers(Operands &ops, int n) {
    return Buffers{{block(ops, n),
                    Words(2 * n + kS, 7),
                    {ops.pick({-20, -2, -1, 0, 1, 3, 20, 26, 27, 28, 31, 32, 33})}},
                   {}};
}

// Real pair: any words a third of the time (no headroom, and imaginary parts -2^31 whose
// conjugation saturates), otherwise the real or the half spectrum of a block of the round; only
// the latter in the rounds of small words.
Buffers real_buffers(Operands &ops, int n, bool inverse) {
    Words x = block(ops, n), buf(n + 6);
    const bool small = ops.round() % 8 == 7;  // kept small throughout
    for (int i = 0; i < n + 6; ++i)
        buf[i] = !small && ops.next() % 3 == 0 ? ops.word() : inverse ? x[i] : x[2 * (i % n)];
    return Buffers{{buf, {0}}, {}};
}

const std::vector<int> kLengths = {128, 256};

const lanetest::Kernel kKernels[] = {
    {"ComplexForward", transform_buffers,
     [](Isa isa, Buffers &b, int n) {
         b.w[2][0] =
             Sonvel_FFTFwd_CToC_SC32_Sfs(b.w[0].data(), b.w[1].data(), plan(isa, n), b.w[2][0]);
     },
     kLengths, false, 140},
    {"ComplexInverse", transform_buffers,
     [](Isa isa, Buffers &b, int n) {
         b.w[2][0] =
             Sonvel_FFTInv_CToC_SC32_Sfs(b.w[0].data(), b.w[1].data(), plan(isa, n), b.w[2][0]);
     },
     kLengths, false, 140},
    {"RealForward", [](Operands &ops, int n) { return real_buffers(ops, n, false); },
     [](Isa isa, Buffers &b, int n) {
         b.w[1][0] = Sonvel_AEC_Realfft(b.w[0].data(), n, plan(isa, n));
     },
     kLengths, false, 140},
    {"RealInverse", [](Operands &ops, int n) { return real_buffers(ops, n, true); },
     [](Isa isa, Buffers &b, int n) {
         b.w[1][0] = Sonvel_AEC_Realifft(b.w[0].data(), n, plan(isa, n));
     },
     kLengths, false, 140},
    // Zero blocks (headroom from the guard words), full scale and every headroom, against targets
    // that shift left, right, not at all, clear (far below) and keep only the sign (far above).
    {"Normaliser",
     [](Operands &ops, int n) {
         Words v = ops.words(n + 12);
         const int shift = static_cast<int>(ops.next() % 32);
         for (auto &x : v) x = ops.next() % 8 == 0 ? 0 : x >> shift;
         return Buffers{{v, {ops.pick({-40, -3, 0, 5, 8, 17, 30, 31, 45})}}, {}};
     },
     [](Isa isa, Buffers &b, int n) {
         b.w[1][0] = sp::vector_norm(isa, b.w[0].data(), b.w[1][0], n);
     }},
    // Small magnitudes in odd rounds: the headroom then comes from the tail words too.
    {"BlockHeadroom",
     [](Operands &ops, int n) {
         Words v = ops.words(n + kS);
         for (auto &x : v) x >>= ops.round() % 2 ? 24 : 0;
         return Buffers{{v, {0}}, {}};
     },
     [](Isa isa, Buffers &b, int n) { b.w[1][0] = sp::block_headroom(isa, b.w[0].data(), n); }},
    {"ShiftBlock",
     [](Operands &ops, int n) {
         return Buffers{{ops.words(n + kS),
                         {ops.pick({-40, -32, -31, -30, -17, -1, 0, 1, 2, 15, 30, 31, 32, 33})}},
                        {}};
     },
     [](Isa isa, Buffers &b, int n) { sp::shift_block(isa, b.w[0].data(), n, b.w[1][0]); }},
};

class TransformLanes : public lanetest::LaneFamily {};

TEST_P(TransformLanes, LanePathGivesThePortableBits) { expect_same_bits(24, 32); }

INSTANTIATE_TEST_SUITE_P(Family, TransformLanes, ::testing::ValuesIn(kKernels),
                         lanetest::kernel_name);

}  // namespace
