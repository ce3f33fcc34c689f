// Echo-band gain: the adaptive smoothing factor, the gain of the coupling model and its update,
// and the far-end silence latch with its peak hold.
#include "suppressor/echo_band_gain.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <tuple>
#include <vector>

#include "sonvel_aec_spectral.h"
#include "sonvel_aec_stages.h"
#include "state/aec_state.h"
#include "suppressor/gain_shaping_state.h"

namespace {

using namespace sonvel::echo_band;
constexpr int32_t kOne = 1 << 30;  // 1.0 at Q value 30

// N + 8 words: random bins 0..L, guard words zero as the frame step leaves them (or random).
std::vector<int32_t> spectrum(const AecState &st, std::mt19937 &rng, bool guards = false) {
    std::uniform_int_distribution<int32_t> d(-(1 << 24), 1 << 24);
    std::vector<int32_t> x(st.s16FftLen + 8, 0);
    for (int w = 0; w < st.s16FftLen + (guards ? 8 : 2); ++w) x[w] = d(rng);
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

TEST(EchoBandGain, SmoothingFactorFollowsPowerOverItsAverage) {
    EXPECT_EQ(smoothing_factor(kOne, 30, kOne, 30, kOne, 30), 24575);  // R = 1
    EXPECT_EQ(smoothing_factor(kOne, 31, kOne, 30, kOne, 30), 16384);  // R = 1/2
    EXPECT_EQ(smoothing_factor(kOne, 29, kOne, 30, kOne, 30), 8192);   // R = 2
    EXPECT_EQ(smoothing_factor(kOne, 10, kOne, 30, kOne, 30), 8192);
    for (const int q : {-20, 5, 40}) EXPECT_EQ(smoothing_factor(0, 75, kOne, q, kOne, q + 3), 8192);
}

TEST(EchoBandGain, FirstBlockSmoothsEveryPowerWithTheSmallestFactor) {
    for (const bool wide : {false, true}) {
        auto st = make_state(wide);
        std::mt19937 rng(11);
        const auto E = spectrum(*st, rng), X = spectrum(*st, rng), Y = spectrum(*st, rng);
        Sonvel_AEC_HnlmGain(st.get(), nullptr, E.data(), X.data(), Y.data());
        const std::vector<int16_t> a(132, 8192);
        const int bins = st->s16HalfFftLen + 4;
        for (const auto &[in, man, exp] : {std::tuple{&E, st->ai32AseMan, st->as16AseExp},
                                           std::tuple{&X, st->ai32AsxMan, st->as16AsxExp},
                                           std::tuple{&Y, st->ai32AsyMan, st->as16AsyExp}}) {
            Power p = power_of(*in, *st);
            Power ref{std::vector<int32_t>(132), std::vector<int16_t>(132)};
            Sonvel_AEC_Smooth_DG_F(p.man.data(), ref.man.data(), p.exp.data(), ref.exp.data(),
                                   a.data(), static_cast<int16_t>(bins));
            EXPECT_EQ(std::vector<int32_t>(man, man + bins),
                      std::vector<int32_t>(ref.man.begin(), ref.man.begin() + bins));
            EXPECT_EQ(std::vector<int16_t>(exp, exp + bins),
                      std::vector<int16_t>(ref.exp.begin(), ref.exp.begin() + bins));
        }
    }
}

TEST(EchoBandGain, GainOfTheCouplingModelAndItsUpdate) {
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

// One block with a tiny Asx history, a strong far end and the given latched silence and activity
// counts; returns the bins whose Asx became Px.
std::vector<int> peak_held_bins(bool wide, int16_t quietLen, int16_t nearActive,
                                int16_t farActive) {
    std::mt19937 rng(5);
    auto st = make_state(wide);
    const auto E = spectrum(*st, rng), X = spectrum(*st, rng, true), Y = spectrum(*st, rng);
    for (int k = 0; k < 132; ++k) {
        st->ai32AsxMan[k] = kOne;
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

TEST(EchoBandGain, SilenceLatchAndPeakHoldOverBinsUpToL) {
    std::mt19937 rng(3);
    auto st = make_state(true);
    const auto E = spectrum(*st, rng), X = spectrum(*st, rng), Y = spectrum(*st, rng);
    for (const auto [quiet, active, len] : {std::tuple{150, 0, 0}, std::tuple{151, 0, 151},
                                            std::tuple{0, 6, 151}, std::tuple{0, 7, 0}}) {
        st->as16FarVadSt[0] = static_cast<int16_t>(quiet);
        st->as16FarVadSt[3] = static_cast<int16_t>(active);
        Sonvel_AEC_HnlmGain(st.get(), nullptr, E.data(), X.data(), Y.data());
        EXPECT_EQ(st->s16FarQuietLen, len) << quiet << " " << active;
    }
    for (const bool wide : {false, true}) {
        const auto held = peak_held_bins(wide, 201, 1, 5);
        ASSERT_EQ(held.size(), wide ? 129u : 65u);
        EXPECT_EQ(held.back(), wide ? 128 : 64);
        EXPECT_TRUE(peak_held_bins(wide, 200, 1, 5).empty());
        EXPECT_TRUE(peak_held_bins(wide, 201, 0, 5).empty());
        EXPECT_TRUE(peak_held_bins(wide, 201, 1, 6).empty());
    }
}

}  // namespace
