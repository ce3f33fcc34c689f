// Layout facts the scheduler and the initialiser rely on beyond the compile-time checks: header
// field positions, room for words 0..N+1 in every history slot and for 2L samples in the time
// buffers at the widest rate, and the plan area's alignment inside the block.
#include <gtest/gtest.h>

#include <cstddef>

#include "state/aec_header.h"
#include "state/aec_state.h"

namespace {

TEST(InstanceLayout, HeaderFieldPositions) {
    using sonvel::AecHeader;
    EXPECT_EQ(offsetof(AecHeader, as16InCarryFar), 960u);
    EXPECT_EQ(offsetof(AecHeader, as16OutCarry), 1920u);
    EXPECT_EQ(offsetof(AecHeader, u8HdrSampleRate), 2884u);
    EXPECT_LT(offsetof(AecHeader, u16Phase), offsetof(AecHeader, u16HdrMagic));
}

TEST(InstanceLayout, StateRoomAndOrder) {
    EXPECT_GE(sizeof(AecState::aiFarSpecHist[0]) / 4, 258u);
    EXPECT_GE(sizeof(AecState::aiNlpSpecHist[0]) / 4, 258u);
    EXPECT_GE(sizeof(AecState::as16NearTimeBuf) / 2, 256u);
    EXPECT_GE(sizeof(AecState::as16FarTimeBuf) / 2, 256u);
    EXPECT_GE(sizeof(AecState::ai32BandCoupling) / 4, 129u);
    EXPECT_GE(sizeof(AecState::au8FftPlan), 3664u);
    EXPECT_EQ((sonvel::kHeaderBytes + offsetof(AecState, au8FftPlan)) % 8, 0u);
    EXPECT_EQ(offsetof(AecState, s16BandEdgeEnd), offsetof(AecState, as16BandEdge) + 12);
    EXPECT_LT(offsetof(AecState, u32GuardA), offsetof(AecState, u32GuardB));
}

}  // namespace
