// Echo-band gain: the adaptive smoothing factor, the instantaneous gain of the coupling model, the
// gain update, and the far-end silence latch with its peak hold.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <random>
#include <vector>

#include "sonvel_aec.h"
#include "sonvel_aec_spectral.h"
#include "sonvel_aec_stages.h"
#include "state/aec_state.h"
#include "suppressor/echo_band_gain.h"

namespace {

using namespace sonvel::echo_band;

std::unique_ptr<AecState> make_state(bool wide) {
    auto st = std::make_unique<AecState>();
    AecCfg cfg = Sonvel_AEC_gastMrvAecCfgTab;
    cfg.u8SampleRate = wide ? 1 : 0;
    EXPECT_EQ(Sonvel_AEC_SUB_Init(st.get(), &cfg, 0), 0);
    return st;
}

// Spectrum of N + 8 words with random bins 0..L and zero guard words (as the frame step leaves
// them); guards = true fills the guard words too.
std::vector<int32_t> spectrum(int n, std::mt19937 &rng, bool guards = false) {
    std::uniform_int_distribution<int32_t> d(-(1 << 24), 1 << 24);
    std::vector<int32_t> x(n + 8, 0);
    for (int w = 0; w < (guards ? n + 8 : n + 2); ++w) x[w] = d(rng);
    return x;
}

struct Power {
    std::vector<int32_t> man = std::vector<int32_t>(132);
    std::vector<int16_t> exp = std::vector<int16_t>(132);
};

Power power_of(const std::vector<int32_t> &x, const AecState &st) {
    Power p;
    Sonvel_AEC_Complex_Energy_F(x.data(), p.man.data(), st.s16RateShift, p.exp.data(),
                                st.s16HalfFftLen + 4);
    return p;
}

TEST(EchoBandSmoothing, FactorFollowsTheRatioOfPowerToItsAverage) {
    // Asx = Asy = 1.0; Px = 1.0 gives R = 1 (0.75), 2.0 and beyond the floor 0.25, 0.5 half way.
    const int32_t one = 1 << 30;
    EXPECT_EQ(smoothing_factor(one, 30, one, 30, one, 30), 24575);
    EXPECT_EQ(smoothing_factor(one, 31, one, 30, one, 30), 16384);
    EXPECT_EQ(smoothing_factor(one, 29, one, 30, one, 30), 8192);
    EXPECT_EQ(smoothing_factor(one, 10, one, 30, one, 30), 8192);
    // A zero far-end power gives the floor whatever the history.
    for (const int q : {-20, 5, 40}) EXPECT_EQ(smoothing_factor(0, 2 * 7 + 61, one, q, one, q + 3), 8192);
}

TEST(EchoBandSmoothing, FirstBlockUsesTheSmallestFactorEverywhere) {
    for (const bool wide : {false, true}) {
        auto st = make_state(wide);
        std::mt19937 rng(11);
        const int n = st->s16FftLen;
        const int bins = st->s16HalfFftLen + 4;
        const auto E = spectrum(n, rng), X = spectrum(n, rng), Y = spectrum(n, rng);
        Sonvel_AEC_HnlmGain(st.get(), nullptr, E.data(), X.data(), Y.data());

        // Reference: each power smoothed from the zero state with a = 8192 in every bin.
        const std::vector<int16_t> a(132, 8192);
        const struct {
            const std::vector<int32_t> &in;
            const int32_t *man;
            const int16_t *exp;
        } cases[] = {{E, st->ai32AseMan, st->as16AseExp},
                     {X, st->ai32AsxMan, st->as16AsxExp},
                     {Y, st->ai32AsyMan, st->as16AsyExp}};
        for (const auto &c : cases) {
            Power p = power_of(c.in, *st);
            std::vector<int32_t> man(132, 0);
            std::vector<int16_t> exp(132, 0);
            Sonvel_AEC_Smooth_DG_F(p.man.data(), man.data(), p.exp.data(), exp.data(), a.data(),
                                   static_cast<int16_t>(bins));
            for (int k = 0; k < bins; ++k) {
                EXPECT_EQ(c.man[k], man[k]) << "bin " << k;
                EXPECT_EQ(c.exp[k], exp[k]) << "bin " << k;
            }
        }
    }
}

TEST(EchoBandInstantGain, ResidualEchoAgainstErrorPower) {
    const int32_t one = 1 << 30;
    const int32_t w1 = 32768;  // coupling 1.0
    // W * Asx at or below Asy: no residual echo.
    EXPECT_EQ(instant_gain(one, 30, w1, one, 30, one, 30), 32767);
    EXPECT_EQ(instant_gain(one, 31, w1, one, 30, 1, 60), 32767);
    // Residual echo half the error power.
    EXPECT_EQ(instant_gain(one, 30, w1, one, 31, one, 30), 16383);
    // Residual echo far above the error power, also with an all-zero error power.
    EXPECT_EQ(instant_gain(one, 10, w1, one, 30, one, 30), 0);
    EXPECT_EQ(instant_gain(one, 30, w1, 0, 30, 0, 0), 0);
    // The coupling scales the far-end power: 1/4 of Asx against Asy = 1/8 leaves 1/8 of Ase = 1.
    EXPECT_NEAR(instant_gain(one, 30, w1 / 4, one, 33, one, 30), 32768 - 4096, 2);
}

TEST(EchoBandInstantGain, UpdateFallsAtOnceAndRisesAlmostAtOnce) {
    EXPECT_EQ(update_gain(0, 32767), 32733);
    EXPECT_EQ(update_gain(32767, 100), 100);
    EXPECT_EQ(update_gain(20000, 20000), 20000);
    EXPECT_EQ(update_gain(16384, 32767), (17 * 16384 + 16367 * 32767) >> 14);
}

TEST(EchoBandSilence, LatchNeedsAtLeast151QuietBlocks) {
    std::mt19937 rng(3);
    auto st = make_state(true);
    const auto E = spectrum(256, rng), X = spectrum(256, rng), Y = spectrum(256, rng);
    st->as16FarVadSt[0] = 150;
    Sonvel_AEC_HnlmGain(st.get(), nullptr, E.data(), X.data(), Y.data());
    EXPECT_EQ(st->s16FarQuietLen, 0);
    st->as16FarVadSt[0] = 151;
    Sonvel_AEC_HnlmGain(st.get(), nullptr, E.data(), X.data(), Y.data());
    EXPECT_EQ(st->s16FarQuietLen, 151);
    // Far-end activity: 6 active blocks keep the latch, 7 clear it.
    st->as16FarVadSt[0] = 0;
    st->as16FarVadSt[3] = 6;
    Sonvel_AEC_HnlmGain(st.get(), nullptr, E.data(), X.data(), Y.data());
    EXPECT_EQ(st->s16FarQuietLen, 151);
    st->as16FarVadSt[3] = 7;
    Sonvel_AEC_HnlmGain(st.get(), nullptr, E.data(), X.data(), Y.data());
    EXPECT_EQ(st->s16FarQuietLen, 0);
}

// Runs one block with a tiny Asx history and a strong far end; returns the bins whose Asx was
// replaced by the far-end power.
std::vector<int> peak_held_bins(bool wide, int16_t quietLen, int16_t nearActive, int16_t farActive) {
    std::mt19937 rng(5);
    auto st = make_state(wide);
    const int n = st->s16FftLen;
    const auto E = spectrum(n, rng), X = spectrum(n, rng, true), Y = spectrum(n, rng);
    for (int k = 0; k < 132; ++k) {
        st->ai32AsxMan[k] = 1 << 30;
        st->as16AsxExp[k] = 60;
    }
    st->s16FarQuietLen = quietLen;
    st->s16NearActive = nearActive;
    st->as16FarVadSt[3] = farActive;
    Sonvel_AEC_HnlmGain(st.get(), nullptr, E.data(), X.data(), Y.data());
    const Power px = power_of(X, *st);
    std::vector<int> held;
    for (int k = 0; k < st->s16HalfFftLen + 4; ++k) {
        if (st->ai32AsxMan[k] == px.man[k] && st->as16AsxExp[k] == px.exp[k]) held.push_back(k);
    }
    return held;
}

TEST(EchoBandSilence, PeakHoldAfterLongSilenceCoversBinsUpToL) {
    for (const bool wide : {false, true}) {
        const int last = wide ? 128 : 64;
        const auto held = peak_held_bins(wide, 201, 1, 5);
        ASSERT_EQ(held.size(), static_cast<size_t>(last + 1));
        EXPECT_EQ(held.back(), last);
        EXPECT_TRUE(peak_held_bins(wide, 200, 1, 5).empty());
        EXPECT_TRUE(peak_held_bins(wide, 201, 0, 5).empty());
        EXPECT_TRUE(peak_held_bins(wide, 201, 1, 6).empty());
    }
}

}  // namespace
