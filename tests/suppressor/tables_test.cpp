// Read-only tables of the suppressor, checked entry by entry against their rules: the analysis
// window, the weighting and overdrive curves, and the comfort-noise phasors.
#include "suppressor/support.h"

namespace {

long round_half_up(double x) { return static_cast<long>(std::floor(x + 0.5)); }

TEST(SuppressorTables, WindowAndCurvesFollowTheirRules) {
    for (const int last : {64, 128}) {
        const bool wide = last == 128;
        const int16_t *win = wide ? Sonvel_AEC_gasAecWindow_129 : Sonvel_AEC_gasAecWindow_65;
        const int16_t *wc =
            wide ? Sonvel_AEC_gasAecWeightCurve_129 : Sonvel_AEC_gasAecWeightCurve_65;
        const int16_t *oc =
            wide ? Sonvel_AEC_gasAecOverDriveCurve_129 : Sonvel_AEC_gasAecOverDriveCurve_65;
        EXPECT_EQ(wc[0], 0);
        EXPECT_EQ(wc[last + 1], 0);
        EXPECT_EQ(oc[last + 1], 0);
        for (int k = 0; k <= last; ++k) {
            EXPECT_EQ(win[k], round_half_up(32767.0 * std::sin(std::numbers::pi * k / (2 * last))));
            if (k > 0) {
                const double weight = 0.1 + 0.3 * std::sqrt((k - 1.0) / (last - 1));
                EXPECT_EQ(wc[k], round_half_up(32768.0 * weight));
            }
            const long over = round_half_up(16384.0 * (1.0 + std::sqrt(double(k) / last)));
            EXPECT_EQ(oc[k], std::min(32767L, over));
        }
    }
}

TEST(SuppressorTables, PhasorsAreUnitAndFollowTheDocumentedGenerator) {
    uint32_t x = 1;
    int quadrant[4] = {};
    for (int i = 0; i < 650; ++i) {
        long c = 0, s = 0;
        do {  // candidates outside the magnitude window are skipped
            x = 1664525u * x + 1013904223u;
            const double phi = 2.0 * std::numbers::pi * (x >> 8) / 16777216.0;
            c = round_half_up(32767.0 * std::cos(phi));
            s = round_half_up(32767.0 * std::sin(phi));
        } while (c * c + s * s < 0.9999 * (1L << 30) || c * c + s * s > (1L << 30));
        ASSERT_EQ(Sonvel_AEC_gasAecCnCos_650[i], c) << "entry " << i;
        ASSERT_EQ(Sonvel_AEC_gasAecCnSin_650[i], s) << "entry " << i;
        ++quadrant[(c >= 0 ? 0 : 1) + (s >= 0 ? 0 : 2)];
    }
    for (const int q : quadrant) EXPECT_GT(q, 120);  // phases over the whole circle
}

}  // namespace
