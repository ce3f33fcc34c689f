// Gain shaping: the overdrive power, the pull, the upper-band cut-off, smoothing and taper, the
// far-end activity cap, the modes, and band limits beyond the computed bins.
#include "suppressor/gain_shaping.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <numeric>
#include <random>
#include <tuple>
#include <vector>

#include "sonvel_aec_stages.h"
#include "state/aec_state.h"
#include "suppressor/gain_shaping_state.h"

namespace {

using namespace sonvel::shaping;
using Gains = std::vector<int16_t>;

TEST(GainShaping, OverdrivePower) {
    for (int od = 0; od <= 32767; ++od)
        ASSERT_EQ(overdrive_power(32767, static_cast<int16_t>(od)), 32767);
    EXPECT_EQ(overdrive_power(16384, 512), 16383);
    EXPECT_EQ(overdrive_power(16384, 1024), 8191);
    EXPECT_EQ(overdrive_power(0, 512), 0);
    // Close to g^(od/512): the exponent is truncated to 1/256 octave and its fraction to 1/100.
    for (int g = 64; g <= 32767; g += 97) {
        for (const int od : {512, 700, 1024, 2560}) {
            const double exact = 32768.0 * std::pow(g / 32768.0, od / 512.0);
            EXPECT_NEAR(overdrive_power(static_cast<int16_t>(g), static_cast<int16_t>(od)), exact,
                        0.012 * exact + 2.0)
                << g << " " << od;
        }
    }
}

TEST(GainShaping, PullClimbsSevenEighthsTowardTheEchoBandGain) {
    Gains h(132), g(132);
    for (int k = 0; k < 132; ++k) {
        h[k] = static_cast<int16_t>(k % 2 == 0 ? 20000 : 100);
        g[k] = static_cast<int16_t>(1000 + k);
    }
    Gains out = g;
    pull_toward(out.data(), h.data(), -1, 64);
    EXPECT_EQ(out, g);
    pull_toward(out.data(), h.data(), 37, 64);
    for (int k = 0; k < 132; ++k) {
        const int expect = (k <= 37 && h[k] > g[k]) ? h[k] - (h[k] - g[k] + 7) / 8 : g[k];
        EXPECT_EQ(out[k], expect) << "bin " << k;
    }
}

TEST(GainShaping, UpperBandCutOff) {
    Gains g(132, 30000);
    Sonvel_AEC_HighFreqProc(g.data(), g.data(), 40, 7, 64);  // empty band
    EXPECT_EQ(g, Gains(132, 30000));
    // Bins 7..37 all weak: cut from bin 24 (the cut itself stays past the band).
    for (int k = 7; k <= 37; ++k) g[k] = 1000;
    Sonvel_AEC_HighFreqProc(g.data(), g.data(), 7, 38, 128);
    for (int k = 0; k <= 131; ++k) EXPECT_EQ(g[k] == 0, k >= 24 && k <= 128) << "bin " << k;
    // Weak 7..16, strong 17, weak 18..37: cut = 17.
    g.assign(132, 30000);
    for (int k = 7; k <= 37; ++k) g[k] = k == 17 ? 1638 : 1637;
    Sonvel_AEC_HighFreqProc(g.data(), g.data(), 7, 38, 64);
    for (int k = 0; k <= 65; ++k) EXPECT_EQ(g[k] == 0, k >= 17 && k <= 64) << "bin " << k;
}

TEST(GainShaping, SpectralAndTemporalSmoothingAndTaper) {
    for (const int last : {64, 128}) {
        auto st = make_state(last == 128);
        Gains g(132);
        for (int k = 0; k < 132; ++k) g[k] = static_cast<int16_t>((k * 7919) % 32768);
        Gains out = g;
        Sonvel_AEC_HnledSm(st.get(), out.data(), 14, last);
        for (int k = 0; k <= last; ++k) {
            int expect = g[k];
            if (k < 12) expect = (13108 * g[k] + 16384) >> 15;  // 0.4 of the gain, from zero
            if (k == 12 || k == 13) {                           // mean of the four smallest of five
                const auto first = g.begin() + k - 2;
                expect = (std::accumulate(first, first + 5, 0) -
                          *std::max_element(first, first + 5) + 2) >>
                         2;
            }
            if (k >= last - 4) expect = g[k] >> (3 * (k - last + 5));
            EXPECT_EQ(out[k], expect) << "bin " << k << " last " << last;
        }
        EXPECT_EQ(out[last], 0);
        EXPECT_LE(out[last - 1], 7);
    }
}

// Shapes gains all at g0 with overdrive od0 in every bin and spectrum words of 2^20.
struct Shaped {
    Gains g;
    std::vector<int32_t> E;
};

Shaped run_shaping(AecState *st, int16_t g0, int16_t od0) {
    Shaped b{Gains(132, g0), std::vector<int32_t>(st->s16FftLen + 8, 1 << 20)};
    std::fill(std::begin(st->as16BinOvrd), std::end(st->as16BinOvrd), od0);
    Sonvel_AEC_NlpPro(st, b.g.data(), 32767, b.E.data());
    return b;
}

TEST(GainShaping, EchoBandGainCapsTheFirst200FarActiveBlocks) {
    auto st = make_state(true);
    std::fill(std::begin(st->as16EchoBandGain), std::end(st->as16EchoBandGain), int16_t{20000});
    EXPECT_EQ(run_shaping(st.get(), 32767, 0).g[40], 32767);  // far end quiet: no cap, no count
    EXPECT_EQ(st->s32GainCapCnt, 0);
    st->s16FarActive = 1;
    st->s32GainCapCnt = 199;
    const Shaped capped = run_shaping(st.get(), 32767, 0);  // overdrive 0 keeps 32767
    const Shaped free = run_shaping(st.get(), 32767, 0);
    EXPECT_EQ(st->s32GainCapCnt, 200);
    for (int k = 12; k <= 123; ++k) {
        ASSERT_EQ(capped.g[k], 20000);
        ASSERT_EQ(free.g[k], 32767);
        ASSERT_EQ(capped.E[2 * k], 640000);  // 2^20 * 20000 / 32768
        ASSERT_EQ(free.E[2 * k + 1], 1048544);
    }
}

// Shapes random gains, overdrives and spectra under the given band limits.
std::vector<int32_t> shape_random(bool wide, uint16_t mode, int32_t boost, int16_t hfHi,
                                  int16_t edge5, int16_t clampLo, int16_t clampHi) {
    auto st = make_state(wide);
    std::mt19937 rng(17);
    std::uniform_int_distribution<int> gd(0, 32767), od(300, 3000);
    std::uniform_int_distribution<int32_t> ed(-(1 << 26), 1 << 26);
    for (auto &o : st->as16BinOvrd) o = static_cast<int16_t>(od(rng));
    for (auto &h : st->as16EchoBandGain) h = static_cast<int16_t>(gd(rng));
    st->u16HighFreqMode = mode;
    st->s32OvrdBoost = boost;
    st->s32EchoState = 1;
    st->s16HfBinHi = hfHi;
    st->as16BandEdge[5] = edge5;
    st->s16ClampBinLo = clampLo;
    st->s16ClampBinHi = clampHi;
    Gains g(132);
    for (int k = 0; k < 132; ++k) g[k] = static_cast<int16_t>(gd(rng) / (k % 3 == 0 ? 40 : 1));
    std::vector<int32_t> E(st->s16FftLen + 8);
    for (auto &w : E) w = ed(rng);
    Sonvel_AEC_NlpPro(st.get(), g.data(), 12000, E.data());
    E.insert(E.end(), g.begin(), g.end());
    E.insert(E.end(), std::begin(st->as16LowGainSm), std::end(st->as16LowGainSm));
    return E;
}

TEST(GainShaping, BandLimitsBeyondTheBinsActAsTheirBound) {
    for (const bool wide : {false, true}) {
        const int16_t n = wide ? 256 : 128;  // the largest value validation admits
        const int16_t last = n / 2, bound = static_cast<int16_t>(last - 2);
        for (const uint16_t mode : {0, 1}) {
            for (const int32_t boost : {0, 1}) {
                EXPECT_EQ(shape_random(wide, mode, boost, n, n, 3, 6),
                          shape_random(wide, mode, boost, bound, bound, 3, 6));
                EXPECT_EQ(shape_random(wide, mode, boost, 38, 49, 3, INT16_MAX),
                          shape_random(wide, mode, boost, 38, 49, 3, last));
                EXPECT_EQ(shape_random(wide, mode, boost, 38, 49, n, INT16_MAX),
                          shape_random(wide, mode, boost, 38, 49, last, last));
            }
        }
    }
}

}  // namespace
