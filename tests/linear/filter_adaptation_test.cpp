// Filter update: what it leaves alone (zero far-end history, zero error, slots outside the six
// partitions, guard words) and how its step scales with the error.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "linear_test_state.h"
#include "sonvel_aec_stages.h"

namespace {

using lintest::Rate;
constexpr int kWords = 12 * 260;

// State with random far-end spectra in `slots` and far-end powers up to `powerPeak`, plus an error
// buffer as the echo estimate leaves it ([0, error], guard words 1) scaled by `scale`.
struct UpdateCase {
    std::unique_ptr<AecState> st;
    std::vector<int32_t> e;
    UpdateCase(const Rate &r, int start, int slots, int32_t powerPeak, int errorBits, int scale = 1)
        : st(lintest::make_state(r, start)), e(r.n + 6, 0) {
        std::mt19937 rng(13);
        for (int p = 0; p < slots; ++p) lintest::random_spectrum(st->aiFarSpecHist[p], r, 28, rng);
        std::uniform_int_distribution<int32_t> pow(0, powerPeak);
        for (int k = 0; k <= r.l; ++k) st->aiFarPow[k] = pow(rng);
        const int amplitude = errorBits < 0 ? 0 : (1 << errorBits) - 1;
        std::uniform_int_distribution<int> err(-amplitude, amplitude);
        for (int i = r.l; i < r.n; ++i) e[i] = scale * err(rng);
        e[r.n + 2] = e[r.n + 3] = 1;
    }
    std::vector<int32_t> update() {
        Sonvel_AEC_UpdateFilterParameter(st.get(), e.data());
        return {&st->aiFiltPart[0][0], &st->aiFiltPart[0][0] + kWords};
    }
};

class FilterUpdate : public ::testing::TestWithParam<Rate> {};

TEST_P(FilterUpdate, ZeroHistoryOrZeroErrorLeavesTheFilterUnchanged) {
    const Rate r = GetParam();
    UpdateCase noHistory(r, 0, 0, 1 << 24, 20), noError(r, 0, 7, 1 << 24, -1);
    for (UpdateCase *s : {&noHistory, &noError}) {
        std::fill_n(&s->st->aiFiltPart[0][0], kWords, 777);
        EXPECT_EQ(s->update(), std::vector<int32_t>(kWords, 777));
    }
}

TEST_P(FilterUpdate, ChangesOnlyTheSixPartitionsFromTheStartAndTheirSpectrumWords) {
    const Rate r = GetParam();
    UpdateCase s(r, 3, 12, 1 << 24, 20);
    std::fill_n(&s.st->aiFiltPart[0][0], kWords, 0x1234567);
    const auto w = s.update();
    for (int p = 0; p < 12; ++p) {
        int changed = 0;
        for (int i = 0; i < 260; ++i) {
            if (w[p * 260 + i] == 0x1234567) continue;
            ++changed;
            EXPECT_TRUE(p >= 3 && p <= 8 && i < r.n + 2) << "slot " << p << " word " << i;
        }
        if (p >= 3 && p <= 8) {
            EXPECT_GT(changed, r.n / 2) << "slot " << p;
        }
    }
}

// Largest |b - factor * a| relative to the largest |a|.
double mismatch(const std::vector<int32_t> &a, const std::vector<int32_t> &b, double factor) {
    double peak = 0, diff = 0;
    for (size_t i = 0; i < a.size(); ++i) {
        peak = std::max(peak, std::fabs(double(a[i])));
        diff = std::max(diff, std::fabs(factor * a[i] - b[i]));
    }
    return peak > 0 ? diff / peak : 1.0;
}

TEST_P(FilterUpdate, StepIsNormalisedForLargeErrorsAndProportionalForSmallOnes) {
    // A large error relative to the far-end power: the per-bin gain gives every bin one magnitude,
    // so doubling the error only changes rounding. A small one saturates the gain and the step
    // grows with the error.
    const Rate r = GetParam();
    EXPECT_LT(mismatch(UpdateCase(r, 0, 6, 255, 18).update(), UpdateCase(r, 0, 6, 255, 18, 2).update(), 1.0),
              0.01);
    EXPECT_LT(mismatch(UpdateCase(r, 0, 6, 1 << 24, 10).update(),
                       UpdateCase(r, 0, 6, 1 << 24, 10, 2).update(), 2.0),
              0.01);
}

INSTANTIATE_TEST_SUITE_P(Rates, FilterUpdate, ::testing::Values(lintest::k8k, lintest::k16k),
                         [](const auto &info) { return info.param.n == 128 ? "8k" : "16k"; });

}  // namespace
