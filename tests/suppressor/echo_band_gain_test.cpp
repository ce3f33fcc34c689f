// Echo-band gain: the adaptive smoothing factor, the gain of the coupling model and its update,
// the far-end silence latch with its peak hold, and the lane equivalence of its loops.
#include "suppressor/echo_band_gain.h"
#include "spectral/processor.h"

#include <random>

#include "lane_equivalence.h"
#include "sonvel_aec_spectral.h"
#include "suppressor/support.h"

namespace {

using namespace sup::echo_band;
using lanetest::Buffers;
using lanetest::Operands;
constexpr int32_t kOne = 1 << 30;  // 1.0 at Q value 30

TEST(EchoBandGain, SmoothingFactorGainOfTheCouplingModelAndItsUpdate) {
    EXPECT_EQ(smoothing_factor(kOne, 30, kOne, 30, kOne, 30), 24575);  // R = 1
    EXPECT_EQ(smoothing_factor(kOne, 31, kOne, 30, kOne, 30), 16384);  // R = 1/2
    EXPECT_EQ(smoothing_factor(kOne, 29, kOne, 30, kOne, 30), 8192);   // R = 2
    EXPECT_EQ(smoothing_factor(kOne, 10, kOne, 30, kOne, 30), 8192);
    EXPECT_EQ(smoothing_factor(kOne, 30, 0, 0, 0, 0), 24575);  // empty averages count as 1
    EXPECT_EQ(smoothing_factor(kOne, 10, 0, 0, 0, 0), 8192);
    for (const int q : {-20, 5, 40}) EXPECT_EQ(smoothing_factor(0, 75, kOne, q, kOne, q + 3), 8192);

    const int32_t w1 = 32768;                                          // coupling 1.0
    EXPECT_EQ(instant_gain(kOne, 30, w1, kOne, 30, kOne, 30), 32767);  // W * Asx <= Asy
    EXPECT_EQ(instant_gain(kOne, 31, w1, kOne, 30, 1, 60), 32767);
    EXPECT_EQ(instant_gain(kOne, 30, w1, kOne, 31, kOne, 30), 16383);  // residual = Ase / 2
    EXPECT_EQ(instant_gain(kOne, 10, w1, kOne, 30, kOne, 30), 0);      // residual >> Ase
    EXPECT_EQ(instant_gain(kOne, 30, w1, 0, 30, 0, 0), 0);
    EXPECT_NEAR(instant_gain(kOne, 30, w1 / 4, kOne, 33, kOne, 30), 32768 - 4096, 2);

    EXPECT_EQ(update_gain(0, 32767), 32733);
    EXPECT_EQ(update_gain(32767, 100), 100);
    EXPECT_EQ(update_gain(20000, 20000), 20000);
}

// The family's lane loops, with mantissas and Q values that reach every saturation and shift
// limit of the per-bin steps: zero and negative powers, full-scale and most negative mantissas,
// Q values far apart.
Buffers adversarial_bins(Operands &ops, int n) {
    Buffers b;
    const int m = n + lanetest::kSlack;
    for (int j = 0; j < 4; ++j) {  // Px (or W), Asx, Asy, Ase
        b.w.push_back(ops.many(m, &Operands::mantissa));
        b.s.push_back(ops.many(m, &Operands::q));
    }
    b.s.push_back(ops.many(m, &Operands::half));  // the result
    return b;
}
Bins bins(const Buffers &b, int j) { return {b.w[j].data(), b.s[j].data()}; }

const lanetest::Kernel kKernels[] = {
    {"SmoothingFactors", adversarial_bins,
     [](sp::Isa isa, Buffers &b, int n) {
         smoothing_factors(isa, bins(b, 0), bins(b, 1), bins(b, 2), b.s[4].data(), n);
     },
     lanetest::counts_upto(140), false, 12},
    {"GainUpdate", adversarial_bins,
     [](sp::Isa isa, Buffers &b, int n) {
         update_gains(isa, bins(b, 1), b.w[0].data(), bins(b, 2), bins(b, 3), b.s[4].data(), n);
     },
     lanetest::counts_upto(140), false, 12},
};

class EchoBandGainLanes : public lanetest::LaneFamily {};

TEST_P(EchoBandGainLanes, LanePathGivesThePortableBits) { expect_same_bits(); }

INSTANTIATE_TEST_SUITE_P(Family, EchoBandGainLanes, ::testing::ValuesIn(kKernels),
                         lanetest::kernel_name);

// One block of random spectra (the far end's guard words random too) over a tiny Asx history
// with the given far-end counts; returns the final silence length and the bins whose Asx became Px.
std::pair<int, std::vector<int>> one_block(bool wide, int16_t quiet, int16_t farActive,
                                           int16_t quietLen = 0, int16_t nearActive = 0) {
    auto st = suptest::make_state(wide);
    std::mt19937 rng(5);
    std::uniform_int_distribution<int32_t> d(-(1 << 24), 1 << 24);
    std::vector<int32_t> sp[3];
    for (int i = 0; i < 3; ++i) {
        sp[i].assign(st->s16FftLen + 8, 0);
        for (int w = 0; w < st->s16FftLen + (i == 1 ? 8 : 2); ++w) sp[i][w] = d(rng);
    }
    std::fill(std::begin(st->ai32AsxMan), std::end(st->ai32AsxMan), kOne);
    std::fill(std::begin(st->as16AsxExp), std::end(st->as16AsxExp), 60);
    st->as16FarVadSt[0] = quiet, st->as16FarVadSt[3] = farActive;
    st->s16FarQuietLen = quietLen, st->s16NearActive = nearActive;
    Sonvel_AEC_HnlmGain(st.get(), nullptr, sp[0].data(), sp[1].data(), sp[2].data());
    std::vector<int32_t> pm(132);
    std::vector<int16_t> pq(132);
    Sonvel_AEC_Complex_Energy_F(sp[1].data(), pm.data(), st->s16RateShift, pq.data(),
                                st->s16HalfFftLen + 4);
    std::vector<int> held;
    for (int k = 0; k < st->s16HalfFftLen + 4; ++k)
        if (st->ai32AsxMan[k] == pm[k] && st->as16AsxExp[k] == pq[k]) held.push_back(k);
    return {st->s16FarQuietLen, held};
}

TEST(EchoBandGain, SilenceLatchAndPeakHoldOverBinsUpToL) {
    // (quiet count, activity count, silence length before, after)
    for (const auto &[quiet, active, before, len] :
         {std::tuple{150, 0, 0, 0}, {151, 0, 0, 151}, {0, 6, 151, 151}, {0, 7, 151, 0}}) {
        EXPECT_EQ(one_block(true, quiet, active, before).first, len) << quiet << " " << active;
    }
    for (const bool wide : {false, true}) {
        const auto held = one_block(wide, 0, 5, 201, 1).second;
        ASSERT_EQ(held.size(), wide ? 129u : 65u);
        EXPECT_EQ(held.back(), wide ? 128 : 64);
        EXPECT_TRUE(one_block(wide, 0, 5, 200, 1).second.empty());
        EXPECT_TRUE(one_block(wide, 0, 5, 201, 0).second.empty());
        EXPECT_TRUE(one_block(wide, 0, 6, 201, 1).second.empty());
    }
}

}  // namespace
