// Gain shaping: the overdrive power, the pull, the upper-band cut-off, and smoothing and
// taper.
#include "suppressor/gain_shaping.h"

#include <numeric>

#include "suppressor/support.h"

namespace {

using namespace sonvel::shaping;
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
                        0.012 * exact + 2.0) << g << " " << od;
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
                          *std::max_element(first, first + 5) + 2) >> 2;
            }
            if (k >= last - 4) expect = g[k] >> (3 * (k - last + 5));
            EXPECT_EQ(out[k], expect) << "bin " << k << " last " << last;
        }
        EXPECT_EQ(out[last], 0);
        EXPECT_LE(out[last - 1], 7);
    }
}

}  // namespace
