// Overdrive control: the target overdrive from the lowest band gain, the choice of mode, the hold
// before a recomputation, the tracker creep, the smoothing's resting values and the per-bin
// overdrive of each suppressor state.
#include <gtest/gtest.h>

#include <memory>

#include "sonvel_aec_stages.h"
#include "state/aec_state.h"

namespace {

std::unique_ptr<AecState> control_state(int rate_factor) {
    auto st = std::make_unique<AecState>();
    st->s32OvrdTarget0 = 226353;
    st->s32OvrdTarget1 = 377256;
    st->s32OvrdTarget2 = 603609;
    st->s16OvrdFloor0 = 512;
    st->s16OvrdFloor1 = 1536;
    st->s16OvrdFloor2 = 2560;
    st->s16Ovrd = 1024;
    st->s16OvrdSm = 1024;
    st->s16FbLocalMin = 32767;
    st->s16FbMin = 32767;
    st->s16XdAvgMin = 32767;
    st->s16CohThr = 25000;
    st->s16XdAvg = 30000;
    st->s32RateFactor = rate_factor;
    st->s16HalfFftLen = rate_factor == 1 ? 64 : 128;
    return st;
}

// One recomputation of the overdrive in the normal mode from the given low band gain.
int16_t recomputed(int16_t local_min) {
    auto st = control_state(2);
    st->s16FbLocalMin = local_min;
    st->s32NewMin = 1;
    st->s32MinHoldCnt = 1;
    Sonvel_AEC_HnlCtrl(st.get());
    return st->s16Ovrd;
}

TEST(ControlTest, TargetOverdriveReachesTheAttenuationTarget) {
    EXPECT_NEAR(recomputed(3277), 1536, 4);    // 0.1^3 = 1e-3
    EXPECT_NEAR(recomputed(16384), 5104, 10);  // 0.5^x = 1e-3: x = 9.97
    EXPECT_EQ(recomputed(32767), 32767);       // almost no attenuation in the gain: saturates
    EXPECT_EQ(recomputed(0), 512);             // treated as 1: about 0.66, raised to the floor
    EXPECT_EQ(recomputed(1), 512);
}

TEST(ControlTest, RecomputesOnTheSecondBlockAfterANewMinimum) {
    auto st = control_state(2);
    st->s16FbLocalMin = 3277;
    st->s32NewMin = 1;             // found in block b
    Sonvel_AEC_HnlCtrl(st.get());  // b + 1
    EXPECT_EQ(st->s16Ovrd, 1024);
    EXPECT_EQ(st->s32MinHoldCnt, 1);
    st->s32MinHoldCnt = 0;  // a newer minimum restarts the count
    Sonvel_AEC_HnlCtrl(st.get());
    EXPECT_EQ(st->s16Ovrd, 1024);
    Sonvel_AEC_HnlCtrl(st.get());
    EXPECT_NEAR(st->s16Ovrd, 1536, 4);
    EXPECT_EQ(st->s32NewMin, 0);
    EXPECT_EQ(st->s32MinHoldCnt, 0);
    EXPECT_EQ(st->s32OvrdBoost, 0);
}

TEST(ControlTest, ModesAndTheirFloors) {
    auto st = control_state(1);
    st->s32EchoState = 1;
    st->s16FbLocalMin = 30000;  // would give a small overdrive
    st->s16XdAvg = 25000;       // equal to the threshold: normal mode
    Sonvel_AEC_HnlCtrl(st.get());
    EXPECT_EQ(st->s32OvrdBoost, 0);
    EXPECT_EQ(st->s16Ovrd, 1024);

    st->s16XdAvg = 24999;  // raised mode
    Sonvel_AEC_HnlCtrl(st.get());
    EXPECT_EQ(st->s32OvrdBoost, 1);
    EXPECT_GE(st->s16Ovrd, 1536);
    st->s16FbLocalMin = 3277;
    Sonvel_AEC_HnlCtrl(st.get());
    EXPECT_NEAR(st->s16Ovrd, 2560, 6);  // 0.1^5 = 1e-5

    st->s32Diverged = 1;  // strongest mode overrides the raised one only with the far end active
    Sonvel_AEC_HnlCtrl(st.get());
    EXPECT_NEAR(st->s16Ovrd, 2560, 6);
    st->s16FarActive = 1;
    Sonvel_AEC_HnlCtrl(st.get());
    EXPECT_NEAR(st->s16Ovrd, 4096, 10);  // 0.1^8 = 1e-8
    EXPECT_EQ(st->s32OvrdBoost, 1);

    st->s32EchoState = 0;  // neither raised mode without echo
    Sonvel_AEC_HnlCtrl(st.get());
    EXPECT_EQ(st->s32OvrdBoost, 0);
}

TEST(ControlTest, TrackersCreepAndSaturate) {
    for (int factor : {1, 2}) {
        auto st = control_state(factor);
        st->s16FbMin = 1000;
        st->s16XdAvgMin = 32760;
        Sonvel_AEC_HnlCtrl(st.get());
        EXPECT_EQ(st->s16FbMin, factor == 1 ? 1026 : 1013);
        EXPECT_EQ(st->s16XdAvgMin, 32767);
        st->s16XdAvgMin = 30000;
        Sonvel_AEC_HnlCtrl(st.get());
        EXPECT_EQ(st->s16XdAvgMin, factor == 1 ? 30013 : 30007);
    }
}

TEST(ControlTest, SmoothingSettlesJustBelowAConstantTarget) {
    for (const auto &[target, rest] :
         {std::pair{1536, 1526}, std::pair{2560, 2550}, std::pair{512, 511}}) {
        auto st = control_state(2);
        st->s16Ovrd = static_cast<int16_t>(target);
        for (int i = 0; i < 3000; ++i) Sonvel_AEC_HnlCtrl(st.get());
        EXPECT_EQ(st->s16OvrdSm, rest) << target;
        EXPECT_EQ(Sonvel_AEC_HnlCtrl(st.get()), rest);
    }
    auto st = control_state(2);  // rising is fast (0.9), falling slow (0.99)
    st->s16Ovrd = 2048;
    Sonvel_AEC_HnlCtrl(st.get());
    EXPECT_EQ(st->s16OvrdSm, 1126);
    st->s16Ovrd = 0;
    Sonvel_AEC_HnlCtrl(st.get());
    EXPECT_EQ(st->s16OvrdSm, 1114);
}

TEST(ControlTest, PerBinOverdriveOfEachState) {
    auto st = control_state(1);
    for (int16_t &v : st->as16BinOvrd) v = 3000;
    st->s16OvrdSm = 2000;

    st->s32OvrdBoost = 1;  // boosted: the smoothed value, at least 5.0, written back
    Sonvel_AEC_HnlCtrl1(st.get());
    EXPECT_EQ(st->s16OvrdSm, 2560);
    EXPECT_EQ(st->as16BinOvrd[0], 2560);
    EXPECT_EQ(st->as16BinOvrd[64], 2560);
    EXPECT_EQ(st->as16BinOvrd[65], 3000);

    st->s32OvrdBoost = 0;  // plain echo: capped at 3.0 over bins 0..L+7, nothing else touched
    st->s32EchoState = 1;
    st->as16BinOvrd[3] = 1536;
    st->as16BinOvrd[4] = 700;
    st->s16OvrdSm = 100;
    Sonvel_AEC_HnlCtrl1(st.get());
    EXPECT_EQ(st->as16BinOvrd[0], 1536);
    EXPECT_EQ(st->as16BinOvrd[3], 1536);
    EXPECT_EQ(st->as16BinOvrd[4], 700);
    EXPECT_EQ(st->as16BinOvrd[71], 1536);
    EXPECT_EQ(st->as16BinOvrd[72], 3000);
    EXPECT_EQ(st->s16OvrdSm, 100);

    st->s32EchoState = 0;  // no echo, near end alone: at least 1.0
    st->s32NearState = 1;
    Sonvel_AEC_HnlCtrl1(st.get());
    EXPECT_EQ(st->s16OvrdSm, 512);
    EXPECT_EQ(st->as16BinOvrd[4], 512);
    st->s32NearState = 0;  // neither: at least 3.0
    Sonvel_AEC_HnlCtrl1(st.get());
    EXPECT_EQ(st->s16OvrdSm, 1536);
    EXPECT_EQ(st->as16BinOvrd[64], 1536);
}

}  // namespace
