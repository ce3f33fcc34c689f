// Filter update: what it leaves alone (zero far-end history, zero error, slots outside the six
// partitions, guard words) and its per-bin normalisation (a scaled error gives the same step).
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "linear_test_state.h"
#include "sonvel_aec_stages.h"

namespace {

using lintest::k16k;
using lintest::k8k;
using lintest::Rate;

constexpr int kSlotWords = 260;

// Error work buffer as the echo estimate leaves it: [0, error], guard words 1.
std::vector<int32_t> error_block(const Rate &r, int amplitude, std::mt19937 &rng) {
    std::vector<int32_t> e(r.n + 6, 0);
    std::uniform_int_distribution<int> d(-amplitude, amplitude);
    for (int i = r.l; i < r.n; ++i) e[i] = d(rng);
    e[r.n + 2] = e[r.n + 3] = 1;
    return e;
}

void fill_far_power(AecState &st, const Rate &r, std::mt19937 &rng, int32_t peak = 1 << 24) {
    std::uniform_int_distribution<int32_t> d(0, peak);
    for (int k = 0; k <= r.l; ++k) st.aiFarPow[k] = d(rng);
}

std::vector<int32_t> filter_copy(const AecState &st) {
    return std::vector<int32_t>(&st.aiFiltPart[0][0], &st.aiFiltPart[0][0] + 12 * kSlotWords);
}

class FilterUpdate : public ::testing::TestWithParam<Rate> {};

TEST_P(FilterUpdate, ZeroHistoryOrZeroErrorLeavesTheFilterUnchanged) {
    const Rate r = GetParam();
    std::mt19937 rng(11);
    for (const bool zeroHistory : {true, false}) {
        auto st = lintest::make_state(r);
        for (int p = 0; p < 12; ++p) lintest::random_spectrum(st->aiFiltPart[p], r, 20, rng);
        fill_far_power(*st, r, rng);
        if (!zeroHistory) {
            for (int p = 0; p < 7; ++p) lintest::random_spectrum(st->aiFarSpecHist[p], r, 28, rng);
        }
        auto e = error_block(r, zeroHistory ? 1 << 20 : 0, rng);
        const auto before = filter_copy(*st);
        Sonvel_AEC_UpdateFilterParameter(st.get(), e.data());
        EXPECT_EQ(filter_copy(*st), before) << (zeroHistory ? "zero history" : "zero error");
    }
}

TEST_P(FilterUpdate, ChangesOnlyTheSixPartitionsFromTheStartAndTheirSpectrumWords) {
    const Rate r = GetParam();
    std::mt19937 rng(12);
    auto st = lintest::make_state(r, 3);
    for (int p = 0; p < 12; ++p) {
        lintest::random_spectrum(st->aiFarSpecHist[p], r, 28, rng);
        std::fill_n(st->aiFiltPart[p], kSlotWords, 0x1234567);
    }
    fill_far_power(*st, r, rng);
    auto e = error_block(r, 1 << 20, rng);
    Sonvel_AEC_UpdateFilterParameter(st.get(), e.data());

    for (int p = 0; p < 12; ++p) {
        const bool updated = p >= 3 && p <= 8;
        int changed = 0;
        for (int w = 0; w < kSlotWords; ++w) {
            if (st->aiFiltPart[p][w] == 0x1234567) continue;
            ++changed;
            EXPECT_TRUE(updated && w < r.n + 2) << "slot " << p << " word " << w;
        }
        if (updated) EXPECT_GT(changed, r.n / 2) << "slot " << p;
    }
}

// Filter after one update from zero, with the error block scaled by `scale`.
std::vector<int32_t> step_from_zero(const Rate &r, int32_t farPowerPeak, int errorBits, int scale) {
    std::mt19937 rng(13);
    auto st = lintest::make_state(r, 0);
    for (int p = 0; p < 6; ++p) lintest::random_spectrum(st->aiFarSpecHist[p], r, 28, rng);
    fill_far_power(*st, r, rng, farPowerPeak);
    auto e = error_block(r, 1 << errorBits, rng);
    for (int i = r.l; i < r.n; ++i) e[i] *= scale;
    Sonvel_AEC_UpdateFilterParameter(st.get(), e.data());
    return filter_copy(*st);
}

// Largest |b - factor * a| relative to the largest |a|.
double relative_mismatch(const std::vector<int32_t> &a, const std::vector<int32_t> &b,
                         double factor) {
    double peak = 0, diff = 0;
    for (size_t i = 0; i < a.size(); ++i) {
        peak = std::max(peak, std::fabs(double(a[i])));
        diff = std::max(diff, std::fabs(factor * a[i] - b[i]));
    }
    return peak > 0 ? diff / peak : 1.0;
}

TEST_P(FilterUpdate, StepIsNormalisedForLargeErrorsAndProportionalForSmallOnes) {
    // While the normalised error exceeds the gain's range, the per-bin gain brings every bin to
    // one magnitude and doubling the error only changes rounding. Below that the gain saturates
    // and the step grows with the error.
    const Rate r = GetParam();
    const auto big1 = step_from_zero(r, 255, 18, 1);
    const auto big2 = step_from_zero(r, 255, 18, 2);
    EXPECT_LT(relative_mismatch(big1, big2, 1.0), 0.01);

    const auto small1 = step_from_zero(r, 1 << 24, 10, 1);
    const auto small2 = step_from_zero(r, 1 << 24, 10, 2);
    EXPECT_LT(relative_mismatch(small1, small2, 2.0), 0.01);
}

INSTANTIATE_TEST_SUITE_P(Rates, FilterUpdate, ::testing::Values(k8k, k16k),
                         [](const auto &info) { return info.param.n == 128 ? "8k" : "16k"; });

}  // namespace
