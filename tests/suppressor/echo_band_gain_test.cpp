// Echo-band gain: the adaptive smoothing factor, the gain of the coupling model and its update,
// and the far-end silence latch with its peak hold.
#include "suppressor/echo_band_gain.h"
#include "spectral/processor.h"

#include <random>

#include "sonvel_aec_spectral.h"
#include "suppressor/support.h"

namespace {

using namespace sup::echo_band;
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

// Mantissas and Q values that reach every saturation and shift limit of the per-bin steps: zero
// and negative powers, full-scale and most negative mantissas, Q values far apart.
struct Adversarial {
    std::vector<int32_t> man[4];  // Px (or W), Asx, Asy, Ase
    std::vector<int16_t> exp[4];
    std::vector<int16_t> h;
};

Adversarial adversarial_bins(int n, uint32_t seed) {
    static constexpr int32_t kMan[] = {
        0, 1, -1, 2, INT32_MIN, INT32_MAX, kOne, kOne + 1, 32768, INT32_MIN + 1, 0x7FFF0000};
    static constexpr int16_t kExp[] = {-32768, 32767, 0, 30, 31, -1, 60, -60, 15, 16};
    std::mt19937 rng(seed);
    Adversarial a;
    for (int j = 0; j < 4; ++j) {
        for (int k = 0; k < n; ++k) {
            const uint32_t pick = rng();
            a.man[j].push_back(pick % 3 == 0 ? static_cast<int32_t>(rng())
                                             : kMan[pick / 3 % std::size(kMan)]);
            a.exp[j].push_back(pick % 5 == 0 ? static_cast<int16_t>(rng() % 90 - 30)
                                             : kExp[pick / 5 % std::size(kExp)]);
        }
    }
    for (int k = 0; k < n; ++k) a.h.push_back(static_cast<int16_t>(rng()));
    return a;
}

TEST(EchoBandGain, VectorLoopsGiveThePortableBits) {
    if (sp::probe_isa() != sp::Isa::kVector) GTEST_SKIP() << "no vector path on this processor";
    for (const int n : {0, 3, 8, 13, 68, 132}) {
        for (uint32_t seed = 1; seed <= 40; ++seed) {
            const Adversarial a = adversarial_bins(n, seed);
            const Bins px{a.man[0].data(), a.exp[0].data()}, asx{a.man[1].data(), a.exp[1].data()};
            const Bins asy{a.man[2].data(), a.exp[2].data()}, ase{a.man[3].data(), a.exp[3].data()};
            std::vector<int16_t> fv(n), fp(n);
            smoothing_factors(sp::Isa::kVector, px, asx, asy, fv.data(), n);
            smoothing_factors(sp::Isa::kPortable, px, asx, asy, fp.data(), n);
            ASSERT_EQ(fv, fp) << "smoothing factors, n " << n << " seed " << seed;
            std::vector<int16_t> hv = a.h, hp = a.h;
            update_gains(sp::Isa::kVector, asx, a.man[0].data(), asy, ase, hv.data(), n);
            update_gains(sp::Isa::kPortable, asx, a.man[0].data(), asy, ase, hp.data(), n);
            ASSERT_EQ(hv, hp) << "gains, n " << n << " seed " << seed;
        }
    }
}

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
