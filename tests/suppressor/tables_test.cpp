// Read-only tables of gain shaping and comfort noise, checked entry by entry against their rules.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>

#include "sonvel_aec_stages.h"

namespace {

long round_half_up(double x) { return static_cast<long>(std::floor(x + 0.5)); }

void expect_weight_curve(const int16_t *wc, int last) {
    EXPECT_EQ(wc[0], 0);
    EXPECT_EQ(wc[last + 1], 0);
    for (int k = 1; k <= last; ++k) {
        const double v = 32768.0 * (0.1 + 0.3 * std::sqrt(static_cast<double>(k - 1) / (last - 1)));
        EXPECT_EQ(wc[k], round_half_up(v)) << "bin " << k;
    }
    EXPECT_EQ(wc[1], 3277);
    EXPECT_EQ(wc[last], 13107);
}

void expect_overdrive_curve(const int16_t *oc, int last) {
    for (int k = 0; k <= last; ++k) {
        const double v = 16384.0 * (1.0 + std::sqrt(static_cast<double>(k) / last));
        EXPECT_EQ(oc[k], std::min(32767L, round_half_up(v))) << "bin " << k;
    }
    EXPECT_EQ(oc[0], 16384);
    EXPECT_EQ(oc[last], 32767);
    EXPECT_EQ(oc[last + 1], 0);
}

TEST(GainCurveTables, WeightCurvesFollowTheirRule) {
    expect_weight_curve(Sonvel_AEC_gasAecWeightCurve_65, 64);
    expect_weight_curve(Sonvel_AEC_gasAecWeightCurve_129, 128);
}

TEST(GainCurveTables, OverdriveCurvesFollowTheirRule) {
    expect_overdrive_curve(Sonvel_AEC_gasAecOverDriveCurve_65, 64);
    expect_overdrive_curve(Sonvel_AEC_gasAecOverDriveCurve_129, 128);
}

TEST(ComfortNoiseTables, UnitPhasorsWithinTheMagnitudeWindow) {
    for (int i = 0; i < 650; ++i) {
        const int64_t c = Sonvel_AEC_gasAecCnCos_650[i];
        const int64_t s = Sonvel_AEC_gasAecCnSin_650[i];
        const int64_t mag2 = c * c + s * s;
        EXPECT_GE(static_cast<double>(mag2), 0.9999 * 1073741824.0) << "entry " << i;
        EXPECT_LE(mag2, int64_t{1} << 30) << "entry " << i;
        EXPECT_NEAR(std::sqrt(static_cast<double>(mag2)), 32767.0, 3.0) << "entry " << i;
    }
}

TEST(ComfortNoiseTables, FollowTheDocumentedGenerator) {
    const double pi = std::acos(-1.0);
    uint32_t x = 1;
    int quadrant[4] = {};
    for (int i = 0; i < 650; ++i) {
        long c = 0, s = 0;
        for (;;) {  // candidates outside the magnitude window are skipped
            x = 1664525u * x + 1013904223u;
            const double phi = 2.0 * pi * static_cast<double>(x >> 8) / 16777216.0;
            c = round_half_up(32767.0 * std::cos(phi));
            s = round_half_up(32767.0 * std::sin(phi));
            const double mag2 = static_cast<double>(c * c + s * s);
            if (mag2 >= 0.9999 * 1073741824.0 && mag2 <= 1073741824.0) break;
        }
        ASSERT_EQ(Sonvel_AEC_gasAecCnCos_650[i], c) << "entry " << i;
        ASSERT_EQ(Sonvel_AEC_gasAecCnSin_650[i], s) << "entry " << i;
        ++quadrant[(c >= 0 ? 0 : 1) + (s >= 0 ? 0 : 2)];
    }
    // The phases cover the whole circle.
    for (const int q : quadrant) EXPECT_GT(q, 120);
}

}  // namespace
