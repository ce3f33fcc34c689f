// Layout of the instance block as seen from outside: header fields at their byte positions, the
// state directly behind the header, guard words where the block's integrity checks expect them,
// and the parameter record's packing.
#include <gtest/gtest.h>

#include <cstddef>

#include "sonvel_aec.h"
#include "sonvel_aec_host.h"
#include "state/aec_header.h"
#include "state/aec_state.h"

namespace {

TEST(InstanceLayout, HeaderFields) {
    using sonvel::AecHeader;
    EXPECT_EQ(sizeof(AecHeader), 3880u);
    EXPECT_EQ(offsetof(AecHeader, as16InCarryNear), 0u);
    EXPECT_EQ(offsetof(AecHeader, as16InCarryFar), 960u);
    EXPECT_EQ(offsetof(AecHeader, as16OutCarry), 1920u);
    EXPECT_EQ(offsetof(AecHeader, u32StateOffset), 2880u);
    EXPECT_EQ(offsetof(AecHeader, u8HdrSampleRate), 2884u);
    EXPECT_LT(offsetof(AecHeader, u16Phase), offsetof(AecHeader, u16HdrMagic));
}

TEST(InstanceLayout, StateRegionsInOrder) {
    EXPECT_EQ(3880u + sizeof(AecState), 62064u);
    EXPECT_EQ(offsetof(AecState, aiFarSpecHist), 0u);
    EXPECT_LT(offsetof(AecState, aiNlpSpecHist), offsetof(AecState, aiFiltPart));
    EXPECT_LT(offsetof(AecState, aiFiltPart), offsetof(AecState, u32GuardA));
    EXPECT_LT(offsetof(AecState, u32GuardA), offsetof(AecState, au8FftPlan));
    EXPECT_EQ((3880u + offsetof(AecState, au8FftPlan)) % 8, 0u);
    EXPECT_GE(sizeof(AecState::au8FftPlan), 3664u);
    EXPECT_LT(offsetof(AecState, ai32BandCoupling), offsetof(AecState, u32GuardB));
    EXPECT_LT(offsetof(AecState, u32GuardB), offsetof(AecState, u32StateMagic));
    EXPECT_EQ(offsetof(AecState, u32GuardC) + 4, sizeof(AecState));
    // Each history slot holds words 0..N+1 of the widest rate.
    EXPECT_GE(sizeof(AecState::aiFarSpecHist[0]) / 4, 258u);
    EXPECT_GE(sizeof(AecState::as16NearTimeBuf) / 2, 256u);
    EXPECT_GE(sizeof(AecState::as16FarTimeBuf) / 2, 256u);
    // Closing edge right behind the six copied ones.
    EXPECT_EQ(offsetof(AecState, s16BandEdgeEnd), offsetof(AecState, as16BandEdge) + 12);
}

TEST(RecordLayout, ParameterAndHostRecords) {
    EXPECT_EQ(sizeof(AecCfg), 46u);
    EXPECT_EQ(offsetof(AecCfg, s16CohThr), 6u);
    EXPECT_EQ(offsetof(AecCfg, as16BandShift), 32u);
    EXPECT_EQ(sizeof(KxAecHandle), 24u);
    EXPECT_EQ(offsetof(KxAecHostConfig, pstAecConfig), 2 * sizeof(void *));
    EXPECT_EQ(offsetof(KxAecWorkHandle, pfnInit), 32u);
    EXPECT_EQ(sizeof(AecVersion), 48u + 28u + 28u);
}

}  // namespace
