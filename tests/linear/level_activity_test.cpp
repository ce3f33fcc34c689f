// Block level and activity detector: level anchors, noise-floor tracking (fast start, 3 dB
// margin, fast fall, rise factor growing with activity), the absolute threshold, wrapping counters.
#include <gtest/gtest.h>

#include <vector>

#include "linear_test_state.h"
#include "sonvel_aec_stages.h"

namespace {

enum { kInactiveRun = 0, kFloor = 1, kTracker = 2, kActiveRun = 3 };

TEST(BlockLevel, SilenceAndFullScale) {
    auto st16 = lintest::make_state(lintest::k16k), st8 = lintest::make_state(lintest::k8k);
    const std::vector<int16_t> silence(128, 0), full(128, -32768);
    EXPECT_EQ(Sonvel_AEC_GetFramedB(st16.get(), silence.data()), 418);
    EXPECT_EQ(Sonvel_AEC_GetFramedB(st16.get(), full.data()), 18311);
    EXPECT_EQ(Sonvel_AEC_GetFramedB(st8.get(), full.data()), 18311 - 617);  // 64 samples: 3 dB less
}

// Detector state {inactive run, floor, tracker, active run}, stepped with one level per block.
struct Vad {
    std::unique_ptr<AecState> st = lintest::make_state(lintest::k8k);
    int16_t s[4];
    int16_t flag = -1;
    Vad(int32_t blockCount, int16_t floor, int16_t tracker = 0, int16_t activeRun = 0)
        : s{0, floor, tracker, activeRun} {
        st->s32CnBlockCnt = blockCount;
    }
    int16_t step(int level) {
        Sonvel_AEC_Vad(st.get(), s, static_cast<int16_t>(level), &flag);
        return flag;
    }
};

TEST(ActivityDetector, NoiseFloorTracking) {
    Vad fast(50, 1000);
    fast.step(1615);  // within the 3 dB margin: unchanged
    EXPECT_EQ(fast.s[kFloor], 1000);
    fast.step(1616);  // first 51 blocks: half-way up
    EXPECT_EQ(fast.s[kFloor], 1308);
    fast.s[kFloor] = 5000;
    fast.step(4000);  // below: 90 % of the gap, rounded down
    EXPECT_EQ(fast.s[kFloor], 4100);
    Vad slow(51, 1000);
    slow.step(11000);  // afterwards it only creeps up
    EXPECT_EQ(slow.s[kFloor], 1004);
    // The creep factor grows with the length of the active run.
    const struct {
        int16_t run;
        int32_t factor;
    } rises[] = {{128, 16}, {129, 63}, {192, 127}, {319, 255}, {320, 511}, {32767, 511}, {-5, 16}};
    for (const auto &c : rises) {
        Vad v(51, 0, 20000, c.run);
        v.step(20000);
        EXPECT_EQ(v.s[kFloor], (20000 * c.factor) >> 15) << "run " << c.run;
    }
}

TEST(ActivityDetector, AbsoluteThresholdAndWrappingRunCounters) {
    Vad quiet(1000, 0), loud(1000, 0);
    int activeQuiet = 0, activeLoud = 0;
    for (int i = 0; i < 200; ++i) {
        activeQuiet += quiet.step(7404);
        activeLoud += loud.step(7405);
    }
    EXPECT_EQ(activeQuiet, 0);
    EXPECT_EQ(activeLoud, 200);

    Vad v(51, 0, 20000, 32767);
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
