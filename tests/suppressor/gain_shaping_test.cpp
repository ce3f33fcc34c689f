// Gain shaping: the overdrive power against the exact power, and the upper-band cut-off. The
// shaping's lane equivalence is in suppressor_lanes_test.cpp.
#include "suppressor/gain_shaping.h"

#include <cmath>

#include "suppressor/support.h"

namespace {

using namespace sup::shaping;
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

}  // namespace
