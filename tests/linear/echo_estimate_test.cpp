// Echo estimate and error: a zero filter passes the near end through, a huge estimate saturates,
// the start partition selects the history slots used, and the work buffer is left as
// [L zeros, L error samples] for the filter update.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "linear_test_state.h"
#include "sonvel_aec_stages.h"

namespace {

using lintest::k16k;
using lintest::k8k;
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

TEST_P(EchoEstimate, HugeEstimateSaturatesEstimateAndError) {
    // Every slot holds the spectrum (-1)^k * 2^30, every partition 2^31 - 1: the summed spectrum
    // saturates in every bin and its inverse is a spike in the middle of the block, the first
    // sample of the estimate, which is 2^4 * 2^31 before saturation.
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
        EXPECT_LT(std::abs(static_cast<double>(st->ai32EchoEst[r.l / 2])), 1 << 16);
    }
}

TEST_P(EchoEstimate, StartPartitionOneIgnoresTheNewestSpectrum) {
    const Rate r = GetParam();
    std::vector<int16_t> near(r.l, 0);
    auto estimate_energy = [&](int start, bool oldSlots) {
        auto st = lintest::make_state(r, start);
        std::mt19937 g(7);
        for (int p = 0; p < 12; ++p) lintest::random_spectrum(st->aiFiltPart[p], r, 26, g);
        lintest::random_spectrum(st->aiFarSpecHist[0], r, 26, g);
        if (oldSlots) lintest::random_spectrum(st->aiFarSpecHist[3], r, 26, g);
        std::vector<int32_t> y(r.n + 6, 0);
        Sonvel_AEC_MdfFilter(st.get(), y.data(), near.data());
        double e = 0;
        for (int i = 0; i < r.l; ++i) e += static_cast<double>(st->ai32EchoEst[i]) * st->ai32EchoEst[i];
        return e;
    };
    EXPECT_GT(estimate_energy(0, false), 0.0);
    EXPECT_EQ(estimate_energy(1, false), 0.0);
    EXPECT_GT(estimate_energy(1, true), 0.0);
}

TEST_P(EchoEstimate, SinglePartitionGivesTheCircularConvolutionOfFarEndAndFilter) {
    // A filter that is a delayed unit impulse (one partition, Q31 full scale / 2^4 after the fixed
    // gain) reproduces the far-end block delayed by that many samples.
    const Rate r = GetParam();
    auto st = lintest::make_state(r);
    std::mt19937 rng(3);
    std::vector<int32_t> x(r.n + 2, 0);
    std::vector<int16_t> far(r.n);
    lintest::random_block(far.data(), r.n, 8000, rng);
    for (int i = 0; i < r.n; ++i) x[i] = far[i] * (1 << r.s);
    Sonvel_AEC_Realfft(x.data(), r.n, st->au8FftPlan);
    std::copy(x.begin(), x.end(), st->aiFarSpecHist[0]);

    const int delay = 5;
    std::vector<int32_t> w(r.n + 2, 0);
    w[delay] = 1 << 27;  // 2^31 / 2^4
    Sonvel_AEC_Realfft(w.data(), r.n, st->au8FftPlan);
    std::copy(w.begin(), w.end(), st->aiFiltPart[0]);

    std::vector<int16_t> near(r.l, 0);
    std::vector<int32_t> y(r.n + 6, 0);
    Sonvel_AEC_MdfFilter(st.get(), y.data(), near.data());
    for (int i = 0; i < r.l; ++i) {
        const double expected = far[r.l + i - delay] * double(1 << r.s);
        EXPECT_NEAR(st->ai32EchoEst[i], expected, 64.0 + 1e-4 * std::abs(expected)) << i;
    }
}

INSTANTIATE_TEST_SUITE_P(Rates, EchoEstimate, ::testing::Values(k8k, k16k),
                         [](const auto &info) { return info.param.n == 128 ? "8k" : "16k"; });

}  // namespace
