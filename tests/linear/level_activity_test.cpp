// Block level and activity detector: level scale anchors, noise-floor tracking (fast start,
// 3 dB margin, fast fall, rise factor growing with activity), the absolute level threshold and
// the wrapping run counters.
#include <gtest/gtest.h>

#include <vector>

#include "linear_test_state.h"
#include "sonvel_aec_stages.h"

namespace {

using lintest::k16k;
using lintest::k8k;

enum { kInactiveRun = 0, kFloor = 1, kTracker = 2, kActiveRun = 3 };

TEST(BlockLevel, ScaleAnchors) {
    auto st = lintest::make_state(k16k);
    std::vector<int16_t> x(128, 0);
    EXPECT_EQ(Sonvel_AEC_GetFramedB(st.get(), x.data()), 418);
    std::fill(x.begin(), x.end(), int16_t{-32768});
    EXPECT_EQ(Sonvel_AEC_GetFramedB(st.get(), x.data()), 18311);

    // Only the first L samples count: at 8000 Hz half the full-scale energy, 3 dB lower
    // (617 units per octave of energy).
    auto st8 = lintest::make_state(k8k);
    EXPECT_EQ(Sonvel_AEC_GetFramedB(st8.get(), x.data()), 18311 - 617);
}

TEST(BlockLevel, GrowsByAboutTwentyDecibelsPerTenfoldAmplitude) {
    auto st = lintest::make_state(k8k);
    std::vector<int16_t> a(64, 100), b(64, 1000);
    const int32_t la = Sonvel_AEC_GetFramedB(st.get(), a.data());
    const int32_t lb = Sonvel_AEC_GetFramedB(st.get(), b.data());
    EXPECT_NEAR(lb - la, 4096, 8);
}

struct Vad {
    std::unique_ptr<AecState> st = lintest::make_state(k8k);
    int16_t s[4] = {0, 0, 0, 0};
    int16_t flag = -1;
    int16_t step(int level) {
        Sonvel_AEC_Vad(st.get(), s, static_cast<int16_t>(level), &flag);
        return flag;
    }
};

TEST(ActivityDetector, FloorMovesHalfWayDuringFastStart) {
    Vad v;
    v.st->s32CnBlockCnt = 50;
    v.s[kFloor] = 1000;
    v.step(11000);
    EXPECT_EQ(v.s[kFloor], 6000);

    // From block 51 on the same jump only creeps (factor 16 / 32768).
    Vad w;
    w.st->s32CnBlockCnt = 51;
    w.s[kFloor] = 1000;
    w.step(11000);
    EXPECT_EQ(w.s[kFloor], 1000 + (10000 * 16 >> 15));
}

TEST(ActivityDetector, FloorKeepsAThreeDecibelMarginAndFallsFast) {
    Vad v;
    v.s[kFloor] = 1000;
    v.step(1615);  // 615 above: unchanged
    EXPECT_EQ(v.s[kFloor], 1000);
    v.step(1616);  // 616 above: half-way during the fast start
    EXPECT_EQ(v.s[kFloor], 1308);
    v.s[kFloor] = 5000;
    v.step(4000);  // below: 90 % of the gap, rounded down
    EXPECT_EQ(v.s[kFloor], 4100);
}

TEST(ActivityDetector, TrackerRisesQuicklyAndFallsOnlyOnLargeDrops) {
    Vad v;
    v.s[kTracker] = 10000;
    v.step(11000);
    EXPECT_EQ(v.s[kTracker], 10000 + (1000 * 22938 >> 15));
    const int16_t t = v.s[kTracker];
    v.step(t - 2460);  // within 12 dB: kept
    EXPECT_EQ(v.s[kTracker], t);
    v.step(t - 2461);  // beyond: half-way down
    EXPECT_EQ(v.s[kTracker], t + ((-2461 * 16384) >> 15));
}

TEST(ActivityDetector, LevelBelowAbsoluteThresholdIsNeverActive) {
    for (int level : {7404, 7405}) {
        Vad v;
        v.st->s32CnBlockCnt = 1000;
        int active = 0;
        for (int i = 0; i < 200; ++i) active += v.step(level);
        if (level == 7404) {
            EXPECT_EQ(active, 0);
        } else {
            EXPECT_GT(active, 190);
        }
    }
}

TEST(ActivityDetector, FloorRisesFasterAfterLongActivity) {
    // Expected rise of the floor for a jump of 20000 by the active-run count at entry.
    const struct {
        int16_t run;
        int32_t factor;
    } cases[] = {{128, 16}, {129, 63}, {191, 63}, {192, 127}, {256, 255}, {319, 255},
                 {320, 511}, {32767, 511}, {-5, 16}};
    for (const auto &c : cases) {
        Vad v;
        v.st->s32CnBlockCnt = 51;
        v.s[kActiveRun] = c.run;
        v.s[kTracker] = 20000;
        v.step(20000);
        EXPECT_EQ(v.s[kFloor], (20000 * c.factor) >> 15) << "run " << c.run;
    }
}

TEST(ActivityDetector, RunCountersResetAndWrap) {
    Vad v;
    v.st->s32CnBlockCnt = 51;
    v.s[kTracker] = 20000;
    v.s[kActiveRun] = 32767;
    v.s[kInactiveRun] = 7;
    EXPECT_EQ(v.step(20000), 1);
    EXPECT_EQ(v.s[kActiveRun], -32768);
    EXPECT_EQ(v.s[kInactiveRun], 0);

    v.s[kInactiveRun] = 32767;
    EXPECT_EQ(v.step(0), 0);
    EXPECT_EQ(v.s[kInactiveRun], -32768);
    EXPECT_EQ(v.s[kActiveRun], 0);
}

}  // namespace
