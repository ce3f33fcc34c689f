// Adaptive filter stages at both rates: the dominant partition search, the echo estimate and error,
// the filter update (its step size is exercised end to end), and the per-block step with its
// far-end level history.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "linear_test_state.h"
#include "sonvel_aec_stages.h"

namespace {

using lintest::kRates;

void set_bins(AecState &st,
              std::initializer_list<std::array<int32_t, 4>> bins) {  // {slot, bin, re, im}
    for (const auto &[slot, bin, re, im] : bins) {
        st.aiFiltPart[slot][2 * bin] = re;
        st.aiFiltPart[slot][2 * bin + 1] = im;
    }
}

int32_t search(AecState &st, int blocks) {
    for (int i = 0; i < blocks; ++i) Sonvel_AEC_FilterDelayEstimate(&st);
    return st.s32MaxPartIdx;
}

TEST(DelaySearch, PeriodStrictComparisonAndSearchedRange) {
    for (const auto &r : kRates) {
        const int period = 10 * r.factor, last = r.l == 64 ? 61 : 113;
        auto st = lintest::make_state(r, 6);
        st->s32MaxPartIdx = 5;
        EXPECT_EQ(search(*st, period), 5);  // all zero: index kept
        // Before the start slot, DC, above the last searched bin, then the last bin's imaginary
        // part and an equal energy in a later slot.
        set_bins(*st, {{0, 10, 1 << 20, 0},
                       {7, 0, 1 << 20, 0},
                       {8, last + 1, 1 << 20, 0},
                       {9, last, 0, 3},
                       {11, last, 3, 0}});
        EXPECT_EQ(search(*st, period - 1), 5);
        EXPECT_EQ(search(*st, 1), 9);
    }
}

TEST(DelaySearch, InterleavedSingleSumsDecideBetweenNearlyEqualPartitions) {
    // Both slots hold 2^24 + 2. In slot 0 the two small terms share the running sum of the large
    // one and are lost to rounding; slot 1 keeps them in the other pair. Summed in bin order or in
    // double precision the two would tie and slot 0 would win.
    auto st = lintest::make_state(lintest::k8k);
    set_bins(
        *st,
        {{0, 1, 4096, 0}, {0, 5, 1, 0}, {0, 9, 1, 0}, {1, 1, 4096, 0}, {1, 2, 1, 0}, {1, 4, 1, 0}});
    EXPECT_EQ(search(*st, 10), 1);
}

std::vector<int32_t> estimate(AecState &st, const std::vector<int16_t> &near) {
    std::vector<int32_t> y(st.s16FftLen + 6, 12345);
    Sonvel_AEC_MdfFilter(&st, y.data(), near.data());
    return y;
}

TEST(EchoEstimate, DelayedImpulseReproducesTheFarEndAndTheErrorIsTheScaledNearEndMinusIt) {
    // Partition 0 is a unit impulse delayed by 5 samples (2^31 / 2^4: the estimate carries a gain
    // of 2^4), so the estimate is the far-end block pair delayed by 5 samples.
    for (const auto &r : kRates) {
        auto st = lintest::make_state(r);
        std::mt19937 rng(3);
        std::vector<int16_t> far(r.n), near(r.l);
        lintest::random_block(far.data(), r.n, 8000, rng);
        lintest::random_block(near.data(), r.l, 32767, rng);
        near[0] = -32768;
        for (int i = 0; i < r.n; ++i) st->aiFarSpecHist[0][i] = far[i] * (1 << r.s);
        Sonvel_AEC_Realfft(st->aiFarSpecHist[0], r.n, st->au8FftPlan);
        st->aiFiltPart[0][5] = 1 << 27;
        Sonvel_AEC_Realfft(st->aiFiltPart[0], r.n, st->au8FftPlan);
        const auto y = estimate(*st, near);
        for (int i = 0; i < r.l; ++i) {
            const double expected = far[r.l + i - 5] * double(1 << r.s);
            EXPECT_NEAR(st->ai32EchoEst[i], expected, 64.0 + 1e-4 * std::fabs(expected))
                << r.n << " " << i;
            ASSERT_EQ(st->ai32ErrBlk[i], near[i] * (1 << r.s) - st->ai32EchoEst[i])
                << r.n << " " << i;
            ASSERT_EQ(y[i], 0);  // handed to the update as [0, error]
            ASSERT_EQ(y[r.l + i], st->ai32ErrBlk[i]);
        }
    }
}

TEST(EchoEstimate, HugeEstimateSaturatesEstimateAndError) {
    // Spectra (-1)^k * 2^30 times partitions 2^31 - 1 saturate the sum in every bin; the inverse is
    // a spike on the first estimate sample, 2^35 before saturation.
    for (const auto &r : kRates) {
        for (const int sign : {1, -1}) {
            auto st = lintest::make_state(r);
            for (int p = 0; p < 6; ++p) {
                for (int k = 0; k <= r.l; ++k) {
                    st->aiFarSpecHist[p][2 * k] = (k % 2 == 0 ? sign : -sign) * (1 << 30);
                    st->aiFiltPart[p][2 * k] = INT32_MAX;
                }
            }
            estimate(*st,
                     std::vector<int16_t>(r.l, static_cast<int16_t>(sign > 0 ? -32768 : 32767)));
            EXPECT_EQ(st->ai32EchoEst[0], sign > 0 ? INT32_MAX : INT32_MIN) << r.n;
            EXPECT_EQ(st->ai32ErrBlk[0], sign > 0 ? INT32_MIN : INT32_MAX) << r.n;
        }
    }
}

TEST(EchoEstimate, StartPartitionOneIgnoresTheNewestSpectrum) {
    for (const auto &r : kRates) {
        auto estimate_energy = [&](int start, int slot) {
            auto st = lintest::make_state(r, start);
            std::mt19937 g(7);
            for (int p = 0; p < 12; ++p) lintest::random_spectrum(st->aiFiltPart[p], r, 26, g);
            lintest::random_spectrum(st->aiFarSpecHist[slot], r, 26, g);
            estimate(*st, std::vector<int16_t>(r.l, 0));
            double e = 0;
            for (int i = 0; i < r.l; ++i) e += std::fabs(double(st->ai32EchoEst[i]));
            return e;
        };
        EXPECT_GT(estimate_energy(0, 0), 0.0) << r.n;
        EXPECT_EQ(estimate_energy(1, 0), 0.0) << r.n;
        EXPECT_GT(estimate_energy(1, 6), 0.0) << r.n;
    }
}

constexpr int kWords = 12 * 260;

// Filter words after one update from a state with random far-end spectra in `slots`, far-end
// powers up to `powerPeak`, and an error block as the estimate leaves it ([0, error], guard words
// 1) scaled by `scale`; the filter starts as `fill` everywhere.
std::vector<int32_t> update(const lintest::Rate &r, int start, int slots, int32_t powerPeak,
                            int errorBits, int scale = 1, int32_t fill = 0) {
    auto st = lintest::make_state(r, start);
    std::fill_n(&st->aiFiltPart[0][0], kWords, fill);
    std::mt19937 rng(13);
    for (int p = 0; p < slots; ++p) lintest::random_spectrum(st->aiFarSpecHist[p], r, 28, rng);
    std::uniform_int_distribution<int32_t> pow(0, powerPeak);
    for (int k = 0; k <= r.l; ++k) st->aiFarPow[k] = pow(rng);
    const int amplitude = errorBits < 0 ? 0 : (1 << errorBits) - 1;
    std::uniform_int_distribution<int> err(-amplitude, amplitude);
    std::vector<int32_t> e(r.n + 6, 0);
    for (int i = r.l; i < r.n; ++i) e[i] = scale * err(rng);
    e[r.n + 2] = e[r.n + 3] = 1;
    Sonvel_AEC_UpdateFilterParameter(st.get(), e.data());
    return {&st->aiFiltPart[0][0], &st->aiFiltPart[0][0] + kWords};
}

TEST(FilterUpdate, ChangesOnlyTheSixPartitionsFromTheStartAndNothingWithoutHistoryOrError) {
    for (const auto &r : kRates) {
        const std::vector<int32_t> untouched(kWords, 777);
        EXPECT_EQ(update(r, 0, 0, 1 << 24, 20, 1, 777), untouched) << "no far-end history, " << r.n;
        EXPECT_EQ(update(r, 0, 7, 1 << 24, -1, 1, 777), untouched) << "zero error, " << r.n;
        const auto w = update(r, 3, 12, 1 << 24, 20, 1, 0x1234567);
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
}

TEST(BlockStep, SilentFarEndLeavesTheFilterAndPassesTheNearEnd) {
    for (const auto &r : kRates) {
        auto st = lintest::make_state(r);
        std::mt19937 rng(22);
        for (int p = 0; p < 12; ++p) lintest::random_spectrum(st->aiFiltPart[p], r, 24, rng);
        const std::vector<int32_t> filter(&st->aiFiltPart[0][0], &st->aiFiltPart[0][0] + kWords);
        for (int k = 0; k < r.l + 4; ++k) st->aiFarPow[k] = 1000000 + 1000 * k;
        for (int i = 0; i < 24; ++i) st->as16FarLevelHist[i] = static_cast<int16_t>(1000 + i);
        st->as16FarLevelHist[2] = 10000;  // entry 3 once the new level is pushed
        st->s32MaxPartIdx = 3;
        std::vector<int16_t> near(r.l), silent(r.l, 0);
        for (int block = 0; block < 3; ++block) {
            lintest::random_block(near.data(), r.l, block == 0 ? 0 : 20000, rng);
            const std::vector<int32_t> pow(st->aiFarPow, st->aiFarPow + r.l + 4);
            Sonvel_AEC_Mdf(st.get(), near.data(), silent.data());
            for (int i = 0; i < r.l; ++i) ASSERT_EQ(st->ai32ErrBlk[i], near[i] * (1 << r.s));
            for (int k = 0; k < r.l + 4; ++k) {  // decays by 0.9 per block, in single precision
                ASSERT_EQ(st->aiFarPow[k],
                          static_cast<int32_t>(static_cast<float>(pow[k]) * 29490.0f / 32768.0f))
                    << k;
            }
            if (block > 0) continue;
            // The far-end detector reads the level history at the dominant partition's delay.
            EXPECT_EQ(st->as16FarLevelHist[0], 418);
            EXPECT_EQ(st->as16FarLevelHist[23], 1022);
            EXPECT_EQ(st->as16FarVadSt[2], (10000 * 22938) >> 15);
            EXPECT_EQ(st->as16NearVadSt[2], (418 * 22938) >> 15);
            EXPECT_EQ(st->s32PartSearchCnt, 1);
        }
        EXPECT_TRUE(std::equal(filter.begin(), filter.end(), &st->aiFiltPart[0][0])) << r.n;
    }
}

}  // namespace
