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

struct Case {
    const char *name;
    Block input;
};

// Inputs whose parts lie in [-2^(31-order), 2^(31-order) - 1].
std::vector<Case> inputs(int order, std::mt19937 &rng) {
    const int n = 1 << order;
    const int32_t lim = int32_t{1} << (31 - order);
    std::uniform_int_distribution<int32_t> any(-lim, lim - 1);
    std::vector<Case> cases;
    for (int r = 0; r < 20; ++r) {
        Block real(2 * n, 0);
        Block cplx(2 * n);
        for (int i = 0; i < n; ++i) real[2 * i] = any(rng);
        for (auto &v : cplx) v = any(rng);
        cases.push_back({"random real", real});
        cases.push_back({"random complex", cplx});
    }
    Block low(2 * n, 0);
    Block alt(2 * n, 0);
    Block corner(2 * n, -lim);
    for (int i = 0; i < n; ++i) {
        low[2 * i] = -lim;
        alt[2 * i] = i % 2 == 0 ? -lim : lim - 1;
    }
    Block impulse(2 * n, 0);
    impulse[2] = -lim;
    impulse[3] = lim - 1;
    cases.push_back({"all negative full scale", low});
    cases.push_back({"alternating full scale", alt});
    cases.push_back({"complex corner", corner});
    cases.push_back({"shifted impulse", impulse});
    return cases;
}

struct Worst {
    long double forward = 0;
    long double inverse = 0;
};

Worst measure(int order) {
    PlanArea plan{};
    EXPECT_EQ(Sonvel_FFTInit_C_SC32(plan.bytes, order), 0);
    const int n = 1 << order;
    std::mt19937 rng(static_cast<unsigned>(order));
    Worst worst;
    for (const Case &c : inputs(order, rng)) {
        Block out(2 * n);
        EXPECT_EQ(Sonvel_FFTFwd_CToC_SC32_Sfs(c.input.data(), out.data(), plan.bytes, 0), 0);
        const long double ef = worst_error(out, reference_dft(c.input, -1, 1));
        EXPECT_EQ(Sonvel_FFTInv_CToC_SC32_Sfs(c.input.data(), out.data(), plan.bytes, 0), 0);
        const long double ei = worst_error(out, reference_dft(c.input, +1, n));
        EXPECT_LE(ef, 3.0L) << c.name << ", forward, N = " << n;
        EXPECT_LE(ei, 0.75L) << c.name << ", inverse, N = " << n;
        worst.forward = std::fmax(worst.forward, ef);
        worst.inverse = std::fmax(worst.inverse, ei);
    }
    return worst;
}

TEST(FftAccuracy, MatchesDoublePrecisionDft) {
    for (int order : {7, 8}) {
        const Worst w = measure(order);
        std::printf("N = %d: worst error forward %.3Lf, inverse %.3Lf (units of the last place)\n",
                    1 << order, w.forward, w.inverse);
        ::testing::Test::RecordProperty("worst_forward_" + std::to_string(1 << order),
                                        std::to_string(static_cast<double>(w.forward)));
        ::testing::Test::RecordProperty("worst_inverse_" + std::to_string(1 << order),
                                        std::to_string(static_cast<double>(w.inverse)));
    }
}

// Inputs without the headroom: the forward transform scaled down by N and the inverse of a
// full-scale spectrum still come out right, apart from a few units of rounding.
TEST(FftAccuracy, FullScaleInputsAreScaledDown) {
    for (int order : {7, 8}) {
        PlanArea plan{};
        ASSERT_EQ(Sonvel_FFTInit_C_SC32(plan.bytes, order), 0);
        const int n = 1 << order;
        std::mt19937 rng(11);
        std::uniform_int_distribution<int32_t> any(INT32_MIN, INT32_MAX);
        long double wf = 0;
        long double wi = 0;
        for (int r = 0; r < 10; ++r) {
            Block x(2 * n);
            for (auto &v : x) v = any(rng);
            Block y(2 * n);
            ASSERT_EQ(Sonvel_FFTFwd_CToC_SC32_Sfs(x.data(), y.data(), plan.bytes, order), 0);
            wf = std::fmax(wf, worst_error(y, reference_dft(x, -1, n)));
            ASSERT_EQ(Sonvel_FFTInv_CToC_SC32_Sfs(x.data(), y.data(), plan.bytes, 0), 0);
            wi = std::fmax(wi, worst_error(y, reference_dft(x, +1, n)));
        }
        std::printf("N = %d, full-scale input: worst error forward / N %.3Lf, inverse %.3Lf\n", n,
                    wf, wi);
        EXPECT_LE(wf, 3.0L);
        EXPECT_LE(wi, 3.0L);
    }
}

}  // namespace
