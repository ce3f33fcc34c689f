// Accuracy of the complex FFT service against a double-precision DFT: random and extreme inputs
// with log2 N bits of headroom, both lengths, both directions. The worst errors, in units of the
// last place of the 32-bit result, are printed and bounded.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <random>
#include <vector>

#include "sonvel_aec_fft.h"

namespace {

struct alignas(8) PlanArea {
    uint8_t bytes[SONVEL_FFT_PLAN_BYTES];
};

using Block = std::vector<int32_t>;  // 2N words, re / im interleaved

// sum_n x[n] e^{sign j 2 pi k n / N} / divisor, in long double.
std::vector<long double> reference_dft(const Block &x, int sign, long double divisor) {
    const int n = static_cast<int>(x.size() / 2);
    const long double pi = 3.141592653589793238462643383279502884L;
    std::vector<long double> cs(n);
    std::vector<long double> sn(n);
    for (int t = 0; t < n; ++t) {
        cs[t] = std::cos(2 * pi * t / n);
        sn[t] = sign * std::sin(2 * pi * t / n);
    }
    std::vector<long double> y(x.size());
    for (int k = 0; k < n; ++k) {
        long double re = 0;
        long double im = 0;
        for (int t = 0; t < n; ++t) {
            const long double c = cs[(k * t) % n];
            const long double s = sn[(k * t) % n];
            re += x[2 * t] * c - x[2 * t + 1] * s;
            im += x[2 * t] * s + x[2 * t + 1] * c;
        }
        y[2 * k] = re / divisor;
        y[2 * k + 1] = im / divisor;
    }
    return y;
}

// Worst |result - reference| over all words; the reference is clamped to the 32-bit range.
long double worst_error(const Block &got, const std::vector<long double> &want) {
    long double worst = 0;
    for (size_t i = 0; i < got.size(); ++i) {
        const long double w = std::fmin(std::fmax(want[i], -2147483648.0L), 2147483647.0L);
        worst = std::fmax(worst, std::fabs(got[i] - w));
    }
    return worst;
}

// Random real and complex blocks with parts in [-lim, lim - 1], and the extremes: a negative
// full-scale real constant, alternating full-scale signs, a complex corner constant.
std::vector<Block> inputs(int n, int64_t lim, unsigned seed) {
    std::mt19937 rng(seed);
    std::uniform_int_distribution<int64_t> any(-lim, lim - 1);
    std::vector<Block> blocks;
    for (int r = 0; r < 40; ++r) {
        Block x(2 * n, 0);
        for (int i = 0; i < 2 * n; ++i)
            x[i] = (r % 2 == 0 && i % 2 == 1) ? 0 : static_cast<int32_t>(any(rng));
        blocks.push_back(x);
    }
    Block low(2 * n, 0);
    Block alt(2 * n, 0);
    for (int i = 0; i < n; ++i) {
        low[2 * i] = static_cast<int32_t>(-lim);
        alt[2 * i] = static_cast<int32_t>(i % 2 == 0 ? -lim : lim - 1);
    }
    blocks.push_back(low);
    blocks.push_back(alt);
    blocks.push_back(Block(2 * n, static_cast<int32_t>(-lim)));
    return blocks;
}

struct Worst {
    long double forward = 0;
    long double inverse = 0;
};

// Worst errors of the forward transform (scale factor fwdShift) and the inverse.
Worst measure(int order, int64_t lim, int fwdShift) {
    PlanArea plan{};
    EXPECT_EQ(Sonvel_FFTInit_C_SC32(plan.bytes, order), 0);
    const int n = 1 << order;
    Worst worst;
    for (const Block &x : inputs(n, lim, static_cast<unsigned>(order))) {
        Block y(2 * n);
        EXPECT_EQ(Sonvel_FFTFwd_CToC_SC32_Sfs(x.data(), y.data(), plan.bytes, fwdShift), 0);
        const long double ef = worst_error(y, reference_dft(x, -1, std::ldexp(1.0L, fwdShift)));
        EXPECT_EQ(Sonvel_FFTInv_CToC_SC32_Sfs(x.data(), y.data(), plan.bytes, 0), 0);
        const long double ei = worst_error(y, reference_dft(x, +1, n));
        worst.forward = std::fmax(worst.forward, ef);
        worst.inverse = std::fmax(worst.inverse, ei);
    }
    return worst;
}

// Inputs with log2 N bits of headroom, as every caller gives them.
TEST(FftAccuracy, MatchesDoublePrecisionDft) {
    for (int order : {7, 8}) {
        const Worst w = measure(order, int64_t{1} << (31 - order), 0);
        std::printf("N = %d: worst error forward %.3Lf, inverse %.3Lf (units of the last place)\n",
                    1 << order, w.forward, w.inverse);
        EXPECT_LE(w.forward, 3.0L);
        EXPECT_LE(w.inverse, 0.75L);
    }
}

// Inputs without the headroom: the forward transform scaled down by N and the inverse of a
// full-scale spectrum still come out right, apart from a few units of rounding.
TEST(FftAccuracy, FullScaleInputsAreScaledDown) {
    for (int order : {7, 8}) {
        const Worst w = measure(order, int64_t{1} << 31, order);
        std::printf("N = %d, full-scale input: worst error forward / N %.3Lf, inverse %.3Lf\n",
                    1 << order, w.forward, w.inverse);
        EXPECT_LE(w.forward, 3.0L);
        EXPECT_LE(w.inverse, 3.0L);
    }
}

}  // namespace
