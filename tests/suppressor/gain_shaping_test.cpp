// Gain shaping: the overdrive power, the pull, the upper-band cut-off, and smoothing and
// taper.
#include "suppressor/gain_shaping.h"
#include "spectral/processor.h"

#include <array>
#include <cstring>
#include <numeric>
#include <random>

#include "fixedpoint/block_float.h"
#include "spectral/fft/fft_plan.h"
#include "suppressor/support.h"
#include "suppressor/suppressor_lanes.h"

namespace {

using namespace sup::shaping;
using suptest::make_state;
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
    for (int k = 0; k < 132; ++k)
        h[k] = k % 2 == 0 ? 20000 : 100, g[k] = static_cast<int16_t>(1000 + k);
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

// The vector steps 1-3 give the scalar results for every gain, with overdrives over the whole
// int16 range (the product with the curve saturating too), band gains inside the int16 range and
// at its ends, and caps in every position; band gains outside the int16 range are left to the
// scalar steps.
TEST(GainShaping, VectorStepsMatchTheScalarStepsForEveryGain) {
    if (sp::probe_isa() != sp::Isa::kVector) GTEST_SKIP() << "no vector unit on this processor";
    constexpr int kCount = 65536;
    Gains g(kCount), wc(kCount), ovrd(kCount), oc(kCount), out(kCount);
    std::mt19937 rng(5);
    const int16_t od_edges[] = {-32768, -513, -1,  0,    1,    255,  256,   511,
                                512,    513,  700, 1536, 4095, 8191, 16384, 32767};
    for (int trial = 0; trial < 40; ++trial) {
        const int32_t fb = trial < 6 ? std::array{-32768, -1, 0, 1638, 32767, 20000}[trial]
                                     : static_cast<int16_t>(rng());
        sup::lanes::OverdriveCaps caps{-1, 1, 0, 0, 0};
        if (trial >= 20) {
            caps = {static_cast<int32_t>(rng() % kCount) - 2, 0, 0, static_cast<int16_t>(rng()),
                    static_cast<int16_t>(rng())};
            caps.hi_from = caps.lo + 1;
            caps.hi_to = caps.hi_from + static_cast<int32_t>(rng() % 3000) - 100;
        }
        for (int i = 0; i < kCount; ++i) {
            g[i] = static_cast<int16_t>(i - 32768);
            wc[i] = static_cast<int16_t>(trial % 2 == 0 ? (i * 7919) % 32768 : rng() % 32768);
            ovrd[i] = trial < 16 ? od_edges[trial] : static_cast<int16_t>(rng());
            oc[i] = static_cast<int16_t>(trial < 16 ? 16384 : rng() % 32768);
        }
        out = g;
        ASSERT_EQ(sup::lanes::shape_gains(out.data(), fb, wc.data(), ovrd.data(), oc.data(), caps,
                                          kCount),
                  kCount);
        for (int i = 0; i < kCount; ++i) {
            int16_t od = fx::sat16((int32_t{ovrd[i]} * oc[i]) >> 14);
            if (i <= caps.lo) od = std::min(od, caps.cap_lo);
            if (i >= caps.hi_from && i <= caps.hi_to) od = std::min(od, caps.cap_hi);
            ASSERT_EQ(out[i], overdrive_power(weigh_toward_band(g[i], fb, wc[i]), od))
                << "trial " << trial << " gain " << g[i] << " od " << od;
        }
    }
    for (const int32_t fb : {-32769, 32768, INT32_MIN, INT32_MAX}) {
        EXPECT_EQ(sup::lanes::shape_gains(out.data(), fb, wc.data(), ovrd.data(), oc.data(),
                                          {-1, 1, 0, 0, 0}, kCount),
                  0);
    }
}

// The whole shaping on the vector path and on the portable path of the same instance gives the
// same gains, error spectrum and state, at both rates, in every high-frequency mode and cap
// setting, for extreme gains, band gains (in and outside the int16 range) and spectra.
TEST(GainShaping, VectorPathMatchesPortable) {
    if (sp::probe_isa() != sp::Isa::kVector) GTEST_SKIP() << "no vector unit on this processor";
    std::mt19937 rng(17);
    const int16_t g_edges[] = {-32768, -1, 0, 1, 2, 1637, 1638, 16384, 32766, 32767};
    const int32_t e_edges[] = {0, 1, -1, INT32_MIN, INT32_MAX, 1 << 30, -(1 << 24), 12345};
    const int32_t fb_edges[] = {0, -32768, 32767, 1 << 20, -(1 << 20), INT32_MIN, 16000, -5};
    const auto gain = [&] {
        return rng() % 4 == 0 ? g_edges[rng() % 10] : static_cast<int16_t>(rng() % 32768);
    };
    for (int trial = 0; trial < 240; ++trial) {
        const bool wide = trial % 2 == 1;
        const int last = wide ? 128 : 64;
        auto portable = make_state(wide);
        AecState *st = portable.get();
        for (int k = 0; k < sonvel::kBinWords; ++k) {
            st->as16BinOvrd[k] =
                rng() % 8 == 0 ? static_cast<int16_t>(rng()) : static_cast<int16_t>(rng() % 2048);
            st->as16EchoBandGain[k] = gain();
        }
        for (int16_t &v : st->as16LowGainSm) v = gain();
        st->s16ClampBinLo = static_cast<int16_t>(rng() % (last + 4));
        st->s16ClampBinHi = static_cast<int16_t>(rng() % (last + 4));
        st->s16OvrdCapLo = static_cast<int16_t>(rng() % 2048);
        st->s16OvrdCapHi = static_cast<int16_t>(rng() % 2048);
        st->s32OvrdBoost = static_cast<int32_t>(rng() % 2);
        st->s32EchoState = static_cast<int32_t>(rng() % 2);
        st->s16FarActive = static_cast<int16_t>(rng() % 2);
        st->s32GainCapCnt = static_cast<int32_t>(rng() % 300);
        st->u16HighFreqMode = static_cast<uint16_t>(rng() % 2);
        Gains g(sonvel::kBinWords);
        for (int16_t &v : g) v = gain();
        std::vector<int32_t> e(2 * sonvel::kBinWords);
        for (int32_t &v : e) v = rng() % 4 == 0 ? e_edges[rng() % 8] : static_cast<int32_t>(rng());
        const int32_t fb = rng() % 2 == 0 ? fb_edges[rng() % 8] : static_cast<int16_t>(rng());

        auto vector = std::make_unique<AecState>(*st);
        st->s32LanePath = 0;
        Gains g_vec = g;
        std::vector<int32_t> e_vec = e;
        Sonvel_AEC_NlpPro(st, g.data(), fb, e.data());
        Sonvel_AEC_NlpPro(vector.get(), g_vec.data(), fb, e_vec.data());
        ASSERT_EQ(g_vec, g) << "trial " << trial;
        ASSERT_EQ(e_vec, e) << "trial " << trial;
        st->s32LanePath = vector->s32LanePath;
        ASSERT_EQ(std::memcmp(st, vector.get(), sizeof(AecState)), 0) << "trial " << trial;
    }
}

}  // namespace
