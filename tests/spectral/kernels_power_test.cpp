// Per-bin power kernels against references written from their definitions: integer and
// single-precision powers with per-part Q values, the normalised single-precision power, and the
// smoothed far-end power read from the processing state.
#include <gtest/gtest.h>

#include <memory>

#include "sonvel_aec_spectral.h"
#include "spectral/kernels_reference.h"
#include "state/aec_state.h"

namespace {

using kref::i128;

int32_t ref_part_t(int32_t x) { return kref::rnd(static_cast<i128>(x) * x, 32); }

int32_t ref_part_f(int32_t x) {
    const float f = static_cast<float>(x);
    const float sq = f * f;
    return kref::f2i(std::ldexp(sq, -32));
}

// Single-precision power of a bin before normalisation, and the headroom used.
int32_t ref_bin_power(int32_t re, int32_t im, int &h) {
    h = std::min(kref::hr(re), kref::hr(im));
    const float r = static_cast<float>(kref::shift_wrap(re, h));
    const float i = static_cast<float>(kref::shift_wrap(im, h));
    const float rr = r * r, ii = i * i;
    const float sum = rr + ii;
    return kref::f2i(std::ldexp(sum, -32));
}

// Per-part Q values: mostly close together, sometimes far apart or at the int32 limits.
std::vector<int32_t> make_dq(kref::Gen &g, size_t words) {
    std::vector<int32_t> q(words);
    for (auto &v : q) {
        const int pick = g.range(0, 9);
        v = pick == 0 ? kref::kMin : pick == 1 ? kref::kMax : g.range(-40, 60);
    }
    return q;
}

TEST(PowerKernels, PerPartQPowersMatchReference) {
    kref::Gen g(31);
    const int32_t bins = 4000;
    const std::vector<int32_t> x = g.i32s(2 * bins);
    const std::vector<int32_t> qx = make_dq(g, 2 * bins);
    std::vector<int32_t> et(bins), qt(bins), ef(bins), qf(bins);
    Sonvel_AEC_Complex_Energy_DQ_T(x.data(), qx.data(), et.data(), qt.data(), bins);
    Sonvel_AEC_Complex_Energy_DQ_F(x.data(), qx.data(), ef.data(), qf.data(), bins);
    for (int32_t k = 0; k < bins; ++k) {
        const int64_t qre = qx[2 * k], qim = qx[2 * k + 1], qm = std::min(qre, qim);
        const auto align = [&](int32_t e, int64_t q) {
            return static_cast<int32_t>(kref::floor_shift(e, static_cast<int>(std::min<int64_t>(2 * (q - qm), 100))));
        };
        const int32_t want_q = static_cast<int32_t>(static_cast<uint32_t>(2 * qm - 32));
        SCOPED_TRACE(testing::Message() << "bin " << k);
        EXPECT_EQ(et[k], kref::sat32(static_cast<i128>(align(ref_part_t(x[2 * k]), qre)) +
                                     align(ref_part_t(x[2 * k + 1]), qim)));
        EXPECT_EQ(ef[k], kref::sat32(static_cast<i128>(align(ref_part_f(x[2 * k]), qre)) +
                                     align(ref_part_f(x[2 * k + 1]), qim)));
        EXPECT_EQ(qt[k], want_q);
        EXPECT_EQ(qf[k], want_q);
    }
}

TEST(PowerKernels, NormalisedPowerMatchesReference) {
    kref::Gen g(41);
    const int32_t bins = 4000;
    std::vector<int32_t> x = g.i32s(2 * bins);
    x[0] = x[1] = 0;  // a zero bin
    std::vector<int32_t> e(bins);
    std::vector<int16_t> qe(bins);
    for (int16_t q : {int16_t{8}, int16_t{-5}}) {
        Sonvel_AEC_Complex_Energy_F(x.data(), e.data(), q, qe.data(), bins);
        for (int32_t k = 0; k < bins; ++k) {
            int h = 0;
            const int32_t p = ref_bin_power(x[2 * k], x[2 * k + 1], h);
            const int g2 = kref::hr(p);
            SCOPED_TRACE(testing::Message() << "bin " << k << " q " << q);
            EXPECT_EQ(e[k], kref::shift_wrap(p, g2));
            EXPECT_EQ(qe[k], static_cast<int16_t>(2 * h + 2 * q - 32 + g2));
        }
        EXPECT_EQ(e[0], 0);
        EXPECT_EQ(qe[0], 2 * q + 61);
    }
}

TEST(PowerKernels, SinglePrecisionRoundingIsPartOfTheResult) {
    // 46341^2 = 2147488281 is not a float: the single-precision square rounds it to 2147488256,
    // so the power is 2147488256 / 4 (normalised by one bit), not the exact 536872070.
    const int32_t x[8] = {46341 << 15, 0, 0, 0, 0, 0, 0, 0};
    int32_t e[4] = {};
    int16_t qe[4] = {};
    Sonvel_AEC_Complex_Energy_F(x, e, 0, qe, 4);
    EXPECT_EQ(e[0], 536872064 * 2);
    EXPECT_EQ(qe[0], -31);
    // Full-scale parts give 2^31, saturated to 2^31 - 1.
    const int32_t full[8] = {kref::kMin, kref::kMin, 0, 0, 0, 0, 0, 0};
    Sonvel_AEC_Complex_Energy_F(full, e, 0, qe, 4);
    EXPECT_EQ(e[0], kref::kMax);
    EXPECT_EQ(qe[0], -32);
}

TEST(PowerKernels, CountsAreRoundedDown) {
    const std::vector<int32_t> x(140, 12345), qx(140, 3);
    for (int32_t n : {65, 3, 0, -4}) {
        const int32_t by4 = n > 0 ? n & ~3 : 0, by2 = n > 0 ? n & ~1 : 0;
        std::vector<int32_t> et(70, 77), qt(70, 77), ef(70, 77), qf(70, 77), e(70, 77), y(70, 77);
        std::vector<int16_t> qe(70, 77), qy(70, 77);
        Sonvel_AEC_Complex_Energy_DQ_T(x.data(), qx.data(), et.data(), qt.data(), n);
        Sonvel_AEC_Complex_Energy_DQ_F(x.data(), qx.data(), ef.data(), qf.data(), n);
        Sonvel_AEC_Complex_Energy_F(x.data(), e.data(), 0, qe.data(), n);
        Sonvel_AEC_Complex_Energy_Smooth_F(x.data(), y.data(), 0, qy.data(), 100, n);
        for (int32_t k = 0; k < 70; ++k) {
            SCOPED_TRACE(testing::Message() << "n " << n << " bin " << k);
            EXPECT_EQ(qt[k] != 77, k < by2);
            EXPECT_EQ(qf[k] != 77, k < by4);
            EXPECT_EQ(qe[k] != 77, k < by4);
            EXPECT_EQ(qy[k] != 77, k < by4);
        }
    }
}

// The far-end power reads the block length and rate shift from the processing state and updates
// L + 4 bins.
class FarPower : public testing::TestWithParam<int> {};

TEST_P(FarPower, SmoothsBinsOfTheStateBlockLength) {
    const int16_t L = static_cast<int16_t>(GetParam());
    const int16_t s = L == 64 ? 8 : 7;
    auto state = std::make_unique<AecState>();
    state->s16HalfFftLen = L;
    state->s16RateShift = s;
    kref::Gen g(51 + L);
    const int32_t bins = L + 8;
    std::vector<int32_t> x = g.i32s(2 * bins), p(bins);
    for (auto &v : p) v = g.i32() >> g.range(0, 2);
    x[2] = x[3] = 0;
    const std::vector<int32_t> p0 = p;
    Sonvel_AEC_Energy(state.get(), x.data(), p.data());
    for (int32_t k = 0; k < bins; ++k) {
        SCOPED_TRACE(testing::Message() << "bin " << k);
        if (k >= L + 4) {
            EXPECT_EQ(p[k], p0[k]);
            continue;
        }
        int h = 0;
        const int32_t power = ref_bin_power(x[2 * k], x[2 * k + 1], h);
        const int32_t e = kref::shift_sat(power, 2 * (9 - s) - 2 * h);
        const float fresh = static_cast<float>(e) * 3277.0f;
        const float old = static_cast<float>(p0[k]) * 29490.0f;
        const float sum = fresh + old;
        EXPECT_EQ(p[k], kref::f2i(std::ldexp(sum, -15)));
    }
}

TEST_P(FarPower, ConvergesToTheBinPowerOfTheUnshiftedSamples) {
    // A constant spectrum X * 2^s (X of the unshifted samples) drives the smoothed power towards
    // |X|^2 * 2^-14 at both rates.
    const int16_t L = static_cast<int16_t>(GetParam());
    const int16_t s = L == 64 ? 8 : 7;
    auto state = std::make_unique<AecState>();
    state->s16HalfFftLen = L;
    state->s16RateShift = s;
    const int32_t re = 300 * 4096, im = -400 * 4096;  // |X|^2 = 2.5e5 * 2^24 unshifted
    std::vector<int32_t> x(2 * (L + 4)), p(L + 4, 0);
    for (int k = 0; k < L + 4; ++k) x[2 * k] = re << s, x[2 * k + 1] = im << s;
    for (int it = 0; it < 300; ++it) Sonvel_AEC_Energy(state.get(), x.data(), p.data());
    const double want = 250000.0 * 16777216.0 / 16384.0;
    EXPECT_NEAR(p[0], want, want * 1e-3);
    EXPECT_EQ(p[L + 3], p[0]);
}

INSTANTIATE_TEST_SUITE_P(BothRates, FarPower, testing::Values(64, 128));

}  // namespace
