// Echo estimate and error: pass-through with a zero filter, the scale of the estimate (a delayed
// impulse reproduces the far end), saturation, and the slots selected by the start partition.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "linear_test_state.h"
#include "sonvel_aec_stages.h"

namespace {

using lintest::Rate;

class EchoEstimate : public ::testing::TestWithParam<Rate> {};

TEST_P(EchoEstimate, ZeroFilterPassesTheScaledNearEndThrough) {
    const Rate r = GetParam();
    auto st = lintest::make_state(r);
    std::mt19937 rng(1);
    for (int p = 0; p < 12; ++p) lintest::random_spectrum(st->aiFarSpecHist[p], r, 28, rng);
    std::vector<int16_t> near(r.l);
    lintest::random_block(near.data(), r.l, 32767, rng);
    near[0] = -32768;
    std::vector<int32_t> y(r.n + 6, 12345);
    Sonvel_AEC_MdfFilter(st.get(), y.data(), near.data());
    for (int i = 0; i < r.l; ++i) {
        EXPECT_EQ(st->ai32EchoEst[i], 0);
        EXPECT_EQ(st->ai32ErrBlk[i], near[i] * (1 << r.s));
        EXPECT_EQ(y[i], 0);
        EXPECT_EQ(y[r.l + i], st->ai32ErrBlk[i]);
    }
}

TEST_P(EchoEstimate, DelayedImpulseFilterReproducesTheFarEnd) {
    // Partition 0 is a unit impulse delayed by 5 samples (2^31 / 2^4: the estimate carries a gain
    // of 2^4), so the estimate is the far-end block pair delayed by 5 samples.
    const Rate r = GetParam();
    auto st = lintest::make_state(r);
    std::mt19937 rng(3);
    std::vector<int16_t> far(r.n), near(r.l, 0);
    lintest::random_block(far.data(), r.n, 8000, rng);
    for (int i = 0; i < r.n; ++i) st->aiFarSpecHist[0][i] = far[i] * (1 << r.s);
    Sonvel_AEC_Realfft(st->aiFarSpecHist[0], r.n, st->au8FftPlan);
    st->aiFiltPart[0][5] = 1 << 27;
    Sonvel_AEC_Realfft(st->aiFiltPart[0], r.n, st->au8FftPlan);
    std::vector<int32_t> y(r.n + 6, 0);
    Sonvel_AEC_MdfFilter(st.get(), y.data(), near.data());
    for (int i = 0; i < r.l; ++i) {
        const double expected = far[r.l + i - 5] * double(1 << r.s);
        EXPECT_NEAR(st->ai32EchoEst[i], expected, 64.0 + 1e-4 * std::fabs(expected)) << i;
    }
}

TEST_P(EchoEstimate, HugeEstimateSaturatesEstimateAndError) {
    // Spectra (-1)^k * 2^30 times partitions 2^31 - 1 saturate the sum in every bin; the inverse is
    // a spike on the first estimate sample, 2^35 before saturation.
    const Rate r = GetParam();
    for (const int sign : {1, -1}) {
        auto st = lintest::make_state(r);
        for (int p = 0; p < 6; ++p) {
            for (int k = 0; k <= r.l; ++k) {
                st->aiFarSpecHist[p][2 * k] = (k % 2 == 0 ? sign : -sign) * (1 << 30);
                st->aiFiltPart[p][2 * k] = INT32_MAX;
            }
        }
        std::vector<int16_t> near(r.l, static_cast<int16_t>(sign > 0 ? -32768 : 32767));
        std::vector<int32_t> y(r.n + 6, 0);
        Sonvel_AEC_MdfFilter(st.get(), y.data(), near.data());
        EXPECT_EQ(st->ai32EchoEst[0], sign > 0 ? INT32_MAX : INT32_MIN);
        EXPECT_EQ(st->ai32ErrBlk[0], sign > 0 ? INT32_MIN : INT32_MAX);
    }
}

TEST_P(EchoEstimate, StartPartitionOneIgnoresTheNewestSpectrum) {
    const Rate r = GetParam();
    auto estimate_energy = [&](int start, int slot) {
        auto st = lintest::make_state(r, start);
        std::mt19937 g(7);
        for (int p = 0; p < 12; ++p) lintest::random_spectrum(st->aiFiltPart[p], r, 26, g);
        lintest::random_spectrum(st->aiFarSpecHist[slot], r, 26, g);
        std::vector<int16_t> near(r.l, 0);
        std::vector<int32_t> y(r.n + 6, 0);
        Sonvel_AEC_MdfFilter(st.get(), y.data(), near.data());
        double e = 0;
        for (int i = 0; i < r.l; ++i) e += std::fabs(double(st->ai32EchoEst[i]));
        return e;
    };
    EXPECT_GT(estimate_energy(0, 0), 0.0);
    EXPECT_EQ(estimate_energy(1, 0), 0.0);
    EXPECT_GT(estimate_energy(1, 6), 0.0);
}

INSTANTIATE_TEST_SUITE_P(Rates, EchoEstimate, ::testing::Values(lintest::k8k, lintest::k16k),
                         [](const auto &info) { return info.param.n == 128 ? "8k" : "16k"; });

}  // namespace
