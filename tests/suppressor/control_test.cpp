// Overdrive control: the target overdrive from the lowest band gain after the hold, the choice of
// mode and the smoothing's rates and resting values.
#include "suppressor/support.h"

namespace {

// The initialised state with an incoherence above the threshold (normal mode).
std::unique_ptr<AecState> control_state(bool wide) {
    auto st = suptest::make_state(wide);
    st->s16XdAvg = 30000;
    return st;
}

TEST(ControlTest, TargetOverdriveIsRecomputedOnTheSecondBlockAfterANewMinimum) {
    for (const auto &[local_min, ovrd, tol] : {std::tuple{3277, 1536, 4},  // 0.1^3 = 1e-3
                                               {16384, 5104, 10},          // 0.5^x = 1e-3: x = 9.97
                                               {32767, 32767, 0},  // no attenuation: saturates
                                               {0, 512, 0},  // as 1: 0.66, raised to the floor
                                               {1, 512, 0}}) {
        auto st = control_state(true);
        st->s16FbLocalMin = static_cast<int16_t>(local_min);
        st->s32NewMin = 1;             // found in block b
        Sonvel_AEC_HnlCtrl(st.get());  // b + 1
        EXPECT_EQ(std::tuple(st->s16Ovrd, st->s32MinHoldCnt), std::tuple(1024, 1));
        Sonvel_AEC_HnlCtrl(st.get());
        EXPECT_NEAR(st->s16Ovrd, ovrd, tol) << local_min;
        EXPECT_EQ(std::tuple(st->s32NewMin, st->s32MinHoldCnt, st->s32OvrdBoost),
                  std::tuple(0, 0, 0));
    }
    auto st = control_state(true);  // a newer minimum restarts the hold
    st->s16FbLocalMin = 3277;
    st->s32NewMin = 1;
    Sonvel_AEC_HnlCtrl(st.get());
    st->s32MinHoldCnt = 0;
    Sonvel_AEC_HnlCtrl(st.get());
    EXPECT_EQ(st->s16Ovrd, 1024);
}

TEST(ControlTest, ModesAndTheirFloors) {
    auto st = control_state(false);
    st->s32EchoState = 1;
    st->s16FbLocalMin = 30000;  // would give a small overdrive
    st->s16XdAvg = 25000;       // equal to the threshold: normal mode
    Sonvel_AEC_HnlCtrl(st.get());
    EXPECT_EQ(std::tuple(st->s32OvrdBoost, st->s16Ovrd), std::tuple(0, 1024));
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

TEST(ControlTest, SmoothingRisesFastFallsSlowAndSettlesJustBelowAConstantTarget) {
    for (const auto &[target, rest] : {std::pair{1536, 1526}, {2560, 2550}, {512, 511}}) {
        auto st = control_state(true);
        st->s16Ovrd = static_cast<int16_t>(target);
        for (int i = 0; i < 3000; ++i) Sonvel_AEC_HnlCtrl(st.get());
        EXPECT_EQ(st->s16OvrdSm, rest) << target;
        EXPECT_EQ(Sonvel_AEC_HnlCtrl(st.get()), rest);
    }
    auto st = control_state(true);  // rising is fast (0.9), falling slow (0.99)
    st->s16Ovrd = 2048;
    Sonvel_AEC_HnlCtrl(st.get());
    EXPECT_EQ(st->s16OvrdSm, 1126);
    st->s16Ovrd = 0;
    Sonvel_AEC_HnlCtrl(st.get());
    EXPECT_EQ(st->s16OvrdSm, 1114);
}

}  // namespace
