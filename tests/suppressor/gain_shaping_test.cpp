// Gain shaping: the overdrive power, weighting, pull, upper-band cut-off, smoothing and taper, the
// far-end activity cap, and the band limits beyond the computed bins.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <random>
#include <vector>

#include "sonvel_aec.h"
#include "sonvel_aec_stages.h"
#include "state/aec_state.h"
#include "suppressor/gain_shaping.h"

namespace {

using namespace sonvel::shaping;

std::unique_ptr<AecState> make_state(bool wide) {
    auto st = std::make_unique<AecState>();
    AecCfg cfg = Sonvel_AEC_gastMrvAecCfgTab;
    cfg.u8SampleRate = wide ? 1 : 0;
    EXPECT_EQ(Sonvel_AEC_SUB_Init(st.get(), &cfg, 0), 0);
    return st;
}

TEST(GainShapingPower, UnityGainStaysForEveryOverdrive) {
    for (int od = 0; od <= 32767; ++od) {
        ASSERT_EQ(overdrive_power(32767, static_cast<int16_t>(od)), 32767) << "od " << od;
    }
}

TEST(GainShapingPower, HalfAndZeroGains) {
    EXPECT_EQ(overdrive_power(16384, 512), 16383);
    EXPECT_EQ(overdrive_power(16384, 1024), 8191);
    EXPECT_EQ(overdrive_power(0, 512), 0);
    EXPECT_EQ(overdrive_power(0, 0), 32767);
}

TEST(GainShapingPower, FollowsThePowerFunction) {
    // The exponent is truncated to 1/256 of an octave and its fraction quantised down to
    // hundredths (together about 1 %, always upward); the logarithm is interpolated.
    for (int g = 64; g <= 32767; g += 97) {
        for (const int od : {512, 700, 1024, 1536, 2560}) {
            const double exact = 32768.0 * std::pow(g / 32768.0, od / 512.0);
            const int got = overdrive_power(static_cast<int16_t>(g), static_cast<int16_t>(od));
            EXPECT_NEAR(got, exact, 0.012 * exact + 2.0) << "g " << g << " od " << od;
        }
    }
}

TEST(GainShapingWeighting, DrawsOnlyLargerGainsTowardTheBandGain) {
    EXPECT_EQ(weigh_toward_band(10000, 20000, 13107), (32767 * 10000) >> 15);
    EXPECT_EQ(weigh_toward_band(20000, 10000, 13107), (13107 * 10000 + 19660 * 20000) >> 15);
    EXPECT_EQ(weigh_toward_band(20000, 10000, 0), (32767 * 20000) >> 15);
    EXPECT_EQ(weigh_toward_band(32767, 32767, 13107), 32766);
}

TEST(GainShapingPull, WeakGainsClimbSevenEighthsToTheEchoBandGain) {
    std::vector<int16_t> h(132), g(132);
    for (int k = 0; k < 132; ++k) {
        h[k] = static_cast<int16_t>(k % 2 == 0 ? 20000 : 100);
        g[k] = static_cast<int16_t>(1000 + k);
    }
    auto out = g;
    pull_toward(out.data(), h.data(), -1, 64);
    EXPECT_EQ(out, g);

    pull_toward(out.data(), h.data(), 37, 64);
    for (int k = 0; k < 132; ++k) {
        const int climb = (h[k] - g[k] + 7) / 8;  // ceil((H - g) / 8)
        const int expect = (k <= 37 && h[k] > g[k]) ? h[k] - climb : g[k];
        EXPECT_EQ(out[k], expect) << "bin " << k;
    }

    // At or beyond the last bin the whole group of four holding b changes.
    out = g;
    pull_toward(out.data(), h.data(), 64, 64);
    EXPECT_NE(out[66], g[66]);
    EXPECT_EQ(out[68], g[68]);
}

std::vector<int16_t> gains(int n, int16_t v) { return std::vector<int16_t>(n, v); }

TEST(GainShapingCutOff, EmptyBandDoesNothing) {
    auto g = gains(132, 100);
    const auto ref = g;
    Sonvel_AEC_HighFreqProc(g.data(), g.data(), 38, 38, 64);
    Sonvel_AEC_HighFreqProc(g.data(), g.data(), 40, 7, 64);
    EXPECT_EQ(g, ref);
}

TEST(GainShapingCutOff, WeakBandCutsFromBin24) {
    auto g = gains(132, 30000);
    for (int k = 7; k <= 37; ++k) g[k] = 1000;
    Sonvel_AEC_HighFreqProc(g.data(), g.data(), 7, 38, 128);
    for (int k = 0; k <= 131; ++k) {
        const int expect = k < 7 ? 30000 : (k < 24 ? 1000 : (k <= 128 ? 0 : 30000));
        EXPECT_EQ(g[k], expect) << "bin " << k;
    }
}

TEST(GainShapingCutOff, StrongBinAfterAWeakStretchMovesTheCut) {
    auto g = gains(132, 30000);
    for (int k = 7; k <= 37; ++k) g[k] = k == 17 ? 1638 : 1637;
    Sonvel_AEC_HighFreqProc(g.data(), g.data(), 7, 38, 64);
    for (int k = 0; k <= 64; ++k) EXPECT_EQ(g[k] == 0, k >= 17) << "bin " << k;
    EXPECT_EQ(g[65], 30000);

    // A strong bin before the stretch is long enough restarts the run; the total still counts.
    auto h = gains(132, 30000);
    for (int k = 7; k <= 37; ++k) h[k] = (k % 8 == 0) ? 30000 : 0;  // runs of at most 7 < q = 8
    const auto ref = h;
    Sonvel_AEC_HighFreqProc(h.data(), h.data(), 7, 38, 64);
    EXPECT_EQ(h, ref);
}

TEST(GainShapingSmoothing, SpectralSmoothingTemporalFadeInAndTaper) {
    for (const int last : {64, 128}) {
        auto st = make_state(last == 128);
        std::vector<int16_t> g(132);
        for (int k = 0; k < 132; ++k) g[k] = static_cast<int16_t>((k * 7919) % 32768);
        auto out = g;
        Sonvel_AEC_HnledSm(st.get(), out.data(), 14, last);
        for (int k = 0; k <= last; ++k) {
            int expect = g[k];
            if (k < 12) expect = (13108 * g[k] + 16384) >> 15;  // 0.4 of the gain from a zero state
            if (k == 12 || k == 13) {
                int sum = 0, top = 0;
                for (int d = -2; d <= 2; ++d) {
                    sum += g[k + d];
                    top = std::max<int>(top, g[k + d]);
                }
                expect = (sum - top + 2) >> 2;
            }
            if (k >= last - 4) expect = g[k] >> (3 * (k - last + 5));
            EXPECT_EQ(out[k], expect) << "bin " << k << " last " << last;
        }
        EXPECT_EQ(out[last], 0);
        EXPECT_LE(out[last - 1], 7);
        for (int k = 0; k < 12; ++k) EXPECT_EQ(st->as16LowGainSm[k], out[k]);
    }
}

// Shaping inputs: every gain at g0, overdrive od0 in every bin, spectrum words at 2^20.
struct Block {
    std::vector<int16_t> g;
    std::vector<int32_t> E;
};

Block run_shaping(AecState *st, int16_t g0, int16_t od0, int32_t fb) {
    Block b{gains(132, g0), std::vector<int32_t>(st->s16FftLen + 8, 1 << 20)};
    for (int k = 0; k < 136; ++k) st->as16BinOvrd[k] = od0;
    Sonvel_AEC_NlpPro(st, b.g.data(), fb, b.E.data());
    return b;
}

TEST(GainShapingFarCap, EchoBandGainCapsTheFirst200FarActiveBlocks) {
    auto st = make_state(true);
    std::fill(std::begin(st->as16EchoBandGain), std::end(st->as16EchoBandGain), int16_t{20000});
    st->s16FarActive = 1;
    st->s32GainCapCnt = 199;
    // Overdrive 0 keeps every gain at 32767 through the power step.
    Block capped = run_shaping(st.get(), 32767, 0, 32767);
    EXPECT_EQ(st->s32GainCapCnt, 200);
    Block free = run_shaping(st.get(), 32767, 0, 32767);
    EXPECT_EQ(st->s32GainCapCnt, 200);
    for (int k = 12; k <= 128 - 5; ++k) {
        ASSERT_EQ(capped.g[k], 20000) << "bin " << k;
        ASSERT_EQ(free.g[k], 32767) << "bin " << k;
        // Application: E * g / 32768.
        EXPECT_EQ(capped.E[2 * k], 640000);
        EXPECT_EQ(free.E[2 * k + 1], 1048544);
    }

    // A quiet far end neither caps nor counts.
    auto quiet = make_state(true);
    std::fill(std::begin(quiet->as16EchoBandGain), std::end(quiet->as16EchoBandGain), int16_t{20000});
    EXPECT_EQ(run_shaping(quiet.get(), 32767, 0, 32767).g[40], 32767);
    EXPECT_EQ(quiet->s32GainCapCnt, 0);
}

TEST(GainShapingModes, CutOffOnlyWhereTheModeAsksForIt) {
    struct Case {
        uint16_t mode;
        int32_t boost;
        bool cut;
    };
    for (const Case c : {Case{0, 0, true}, Case{1, 1, true}, Case{1, 0, false}}) {
        auto st = make_state(false);
        st->u16HighFreqMode = c.mode;
        st->s32OvrdBoost = c.boost;
        const Block b = run_shaping(st.get(), 1000, 512, 32767);
        EXPECT_EQ(b.g[30] == 0, c.cut) << "mode " << c.mode << " boost " << c.boost;
        EXPECT_GT(b.g[20], 0);
    }
}

// Shapes random gains and spectra with the given band limits; returns gains, spectrum and the
// time-smoothed low gains.
struct Shaped {
    std::vector<int16_t> g;
    std::vector<int32_t> E;
    std::vector<int16_t> low;
    bool operator==(const Shaped &) const = default;
};

Shaped shape_random(bool wide, uint16_t mode, int32_t boost, int16_t hfHi, int16_t edge5,
                    int16_t clampLo, int16_t clampHi) {
    auto st = make_state(wide);
    const int n = st->s16FftLen;
    std::mt19937 rng(17);
    std::uniform_int_distribution<int> gd(0, 32767), od(300, 3000);
    std::uniform_int_distribution<int32_t> ed(-(1 << 26), 1 << 26);
    for (int k = 0; k < 136; ++k) st->as16BinOvrd[k] = static_cast<int16_t>(od(rng));
    for (auto &h : st->as16EchoBandGain) h = static_cast<int16_t>(gd(rng));
    st->u16HighFreqMode = mode;
    st->s32OvrdBoost = boost;
    st->s32EchoState = 1;
    st->s16HfBinLo = 7;
    st->s16HfBinHi = hfHi;
    st->as16BandEdge[5] = edge5;
    st->s16ClampBinLo = clampLo;
    st->s16ClampBinHi = clampHi;
    Shaped s{std::vector<int16_t>(132), std::vector<int32_t>(n + 8), {}};
    for (int k = 0; k < 132; ++k) s.g[k] = static_cast<int16_t>(gd(rng) / (k % 3 == 0 ? 40 : 1));
    for (auto &w : s.E) w = ed(rng);
    Sonvel_AEC_NlpPro(st.get(), s.g.data(), 12000, s.E.data());
    s.low.assign(std::begin(st->as16LowGainSm), std::end(st->as16LowGainSm));
    return s;
}

TEST(GainShapingLimits, BandLimitsBeyondTheBinsActAsTheirBound) {
    for (const bool wide : {false, true}) {
        const int16_t n = wide ? 256 : 128;  // largest value validation admits
        const int16_t last = n / 2;
        const auto bound = static_cast<int16_t>(last - 2);
        for (const uint16_t mode : {0, 1}) {
            for (const int32_t boost : {0, 1}) {
                // Band limits at the validation maximum give the result of the bounded value.
                EXPECT_EQ(shape_random(wide, mode, boost, n, n, 3, 6),
                          shape_random(wide, mode, boost, bound, bound, 3, 6))
                    << "rate " << n << " mode " << mode << " boost " << boost;
                // The overdrive caps stop at bin L whatever the clamp bins say.
                EXPECT_EQ(shape_random(wide, mode, boost, 38, 49, 3, INT16_MAX),
                          shape_random(wide, mode, boost, 38, 49, 3, last));
                EXPECT_EQ(shape_random(wide, mode, boost, 38, 49, n, INT16_MAX),
                          shape_random(wide, mode, boost, 38, 49, last, last));
            }
        }
    }
}

}  // namespace
