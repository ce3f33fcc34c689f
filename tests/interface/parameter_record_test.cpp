// Validation of the parameter record (codes and their precedence) and the set / get round trip.
#include <gtest/gtest.h>

#include <cstring>

#include "interface/instance_block.h"
#include "sonvel_aec.h"

namespace {

using sonvel::test::default_cfg;
using sonvel::test::GuardedBlock;

AecCfg valid_cfg(uint8_t rate = 1) { return default_cfg(rate); }

TEST(ParameterCheck, DefaultTablePassesAtBothRates) {
    EXPECT_EQ(Sonvel_AEC_Check(&Sonvel_AEC_gastMrvAecCfgTab), 0);
    const AecCfg narrow = valid_cfg(0);  // its edges and bins stay within 128
    EXPECT_EQ(Sonvel_AEC_Check(&narrow), 0);
    EXPECT_EQ(Sonvel_AEC_Check(nullptr), -20);
}

TEST(ParameterCheck, EachRuleHasItsCode) {
    struct Case {
        const char *what;
        void (*spoil)(AecCfg &);
        int32_t code;
    };
    const Case cases[] = {
        {"start part 7", [](AecCfg &c) { c.u8StartPart = 7; }, -21},
        {"nlp level 3", [](AecCfg &c) { c.u8NlpLevel = 3; }, -22},
        {"high freq mode 2", [](AecCfg &c) { c.u8HighFreqMode = 2; }, -23},
        {"sample rate 2", [](AecCfg &c) { c.u8SampleRate = 2; }, -25},
        {"coh thr -1", [](AecCfg &c) { c.s16CohThr = -1; }, -26},
        {"hf lo > hi", [](AecCfg &c) { c.s16HfBinLo = 39; }, -27},
        {"hf lo < 0", [](AecCfg &c) { c.s16HfBinLo = -1; }, -27},
        {"hf hi > 256", [](AecCfg &c) { c.s16HfBinHi = 257; }, -28},
        {"coh lo > hi", [](AecCfg &c) { c.s16CohBinLo = 73; }, -29},
        {"coh lo < 0", [](AecCfg &c) { c.s16CohBinLo = -1; }, -29},
        {"coh hi > 256", [](AecCfg &c) { c.s16CohBinHi = 257; }, -210},
        {"edge5 > 256", [](AecCfg &c) { c.as16BandEdge[5] = 257; }, -24},
        {"edge0 > edge1", [](AecCfg &c) { c.as16BandEdge[0] = 7; }, -24},
        {"edge0 < 0", [](AecCfg &c) { c.as16BandEdge[0] = -1; }, -24},
        {"edge2 > edge3", [](AecCfg &c) { c.as16BandEdge[2] = 50; }, -24},
        {"edge1 < 0", [](AecCfg &c) { c.as16BandEdge[0] = -3, c.as16BandEdge[1] = -2; }, -24},
        {"clamp lo > hi", [](AecCfg &c) { c.s16ClampBinLo = 7; }, -211},
        {"clamp lo < 0", [](AecCfg &c) { c.s16ClampBinLo = -1; }, -211},
        {"clamp lo > 256", [](AecCfg &c) { c.s16ClampBinLo = 257, c.s16ClampBinHi = 300; }, -212},
    };
    for (const Case &k : cases) {
        AecCfg c = valid_cfg();
        k.spoil(c);
        EXPECT_EQ(Sonvel_AEC_Check(&c), k.code) << k.what;
    }
}

TEST(ParameterCheck, BoundIsTheFftLengthOfTheRate) {
    AecCfg c = valid_cfg(0);
    c.s16HfBinHi = 128;
    c.s16CohBinHi = 128;
    c.as16BandEdge[5] = 128;
    c.s16ClampBinLo = 128;
    c.s16ClampBinHi = 128;
    EXPECT_EQ(Sonvel_AEC_Check(&c), 0) << "values equal to the bound are legal";
    c.s16HfBinHi = 129;
    EXPECT_EQ(Sonvel_AEC_Check(&c), -28);
    c = valid_cfg(1);
    c.s16HfBinHi = 256;
    EXPECT_EQ(Sonvel_AEC_Check(&c), 0);
    c.u8SampleRate = 9;  // any non-zero rate byte uses the wide bound, yet fails R4
    EXPECT_EQ(Sonvel_AEC_Check(&c), -25);
}

TEST(ParameterCheck, LastFailingRuleDecides) {
    AecCfg c = valid_cfg();
    c.u8NlpLevel = 3;
    c.s16CohBinHi = 300;
    EXPECT_EQ(Sonvel_AEC_Check(&c), -210);

    // A band-edge fault hides every fault of R1..R9 ...
    c = valid_cfg();
    c.u8StartPart = 9;
    c.s16CohThr = -5;
    c.s16CohBinHi = 300;
    c.as16BandEdge[3] = 10;
    EXPECT_EQ(Sonvel_AEC_Check(&c), -24);
    // ... and a clamp fault hides the band-edge fault.
    c.s16ClampBinLo = -1;
    EXPECT_EQ(Sonvel_AEC_Check(&c), -211);
    c.s16ClampBinLo = 400;
    c.s16ClampBinHi = 500;
    EXPECT_EQ(Sonvel_AEC_Check(&c), -212);

    // A negative first edge skips R1..R11 entirely.
    c = valid_cfg();
    c.as16BandEdge[0] = -1;
    c.u8SampleRate = 7;
    EXPECT_EQ(Sonvel_AEC_Check(&c), -24);
    c.s16ClampBinLo = 20;  // R13 is still evaluated
    EXPECT_EQ(Sonvel_AEC_Check(&c), -211);
}

TEST(ParameterCheck, UnexaminedFieldsAndEqualEdges) {
    AecCfg c = valid_cfg();
    c.u8CnEnable = 200;
    for (int16_t &h : c.as16BandShift) h = -32768;
    for (int16_t &e : c.as16BandEdge) e = 49;
    EXPECT_EQ(Sonvel_AEC_Check(&c), 0);
}

class LiveInstance : public ::testing::Test {
protected:
    void SetUp() override {
        cfg_ = valid_cfg();
        ASSERT_EQ(Sonvel_AEC_Init(&h_, block_.data(), block_.size(), &cfg_), 0);
    }
    GuardedBlock block_;
    AecCfg cfg_{};
    void *h_ = nullptr;
};

TEST_F(LiveInstance, GetReturnsWhatWasSet) {
    AecCfg set = valid_cfg();
    set.u8CnEnable = 200;
    set.u8StartPart = 6;
    set.u8NlpLevel = 2;
    set.u8HighFreqMode = 1;
    set.s16CohThr = 12345;
    set.s16HfBinLo = 3;
    set.s16HfBinHi = 100;
    set.s16CohBinLo = 10;
    set.s16CohBinHi = 20;
    const int16_t edges[6] = {1, 2, 3, 60, 61, 62};
    std::memcpy(set.as16BandEdge, edges, sizeof edges);
    set.s16ClampBinLo = 9;
    set.s16ClampBinHi = 11;
    for (int k = 0; k < 7; ++k) set.as16BandShift[k] = static_cast<int16_t>(k * 5 - 3);
    ASSERT_EQ(Sonvel_AEC_SetParams(h_, &set), 0);

    AecCfg got;
    std::memset(&got, 0xEE, sizeof got);
    ASSERT_EQ(Sonvel_AEC_GetParams(h_, &got), 0);
    AecCfg want = set;
    want.u8CnEnable = 1;
    EXPECT_EQ(std::memcmp(&got.u8CnEnable, &want.u8CnEnable, 5), 0);
    EXPECT_EQ(std::memcmp(&got.s16CohThr, &want.s16CohThr, sizeof(AecCfg) - 6), 0);
}

TEST_F(LiveInstance, SetAndGetArgumentCodes) {
    AecCfg c = valid_cfg();
    EXPECT_EQ(Sonvel_AEC_SetParams(nullptr, nullptr), -30);
    EXPECT_EQ(Sonvel_AEC_SetParams(h_, nullptr), -31);
    EXPECT_EQ(Sonvel_AEC_GetParams(nullptr, nullptr), -40);
    EXPECT_EQ(Sonvel_AEC_GetParams(h_, nullptr), -41);

    c.u8NlpLevel = 5;
    EXPECT_EQ(Sonvel_AEC_SetParams(h_, &c), -22) << "validation result is passed on";
}

TEST_F(LiveInstance, RateChangeIsRefusedAndChangesNothing) {
    std::vector<uint8_t> before(block_.data(), block_.data() + block_.size());
    const AecCfg narrow = valid_cfg(0);
    EXPECT_EQ(Sonvel_AEC_SetParams(h_, &narrow), -25);
    AecCfg bad = valid_cfg(1);
    bad.as16BandEdge[0] = -1;
    EXPECT_EQ(Sonvel_AEC_SetParams(h_, &bad), -24);
    EXPECT_EQ(std::memcmp(before.data(), block_.data(), block_.size()), 0);
}

TEST_F(LiveInstance, MissingMagicsAreRefusedBeforeAnyWrite) {
    AecCfg c = valid_cfg();
    block_.state()->u32StateMagic = 0;
    std::vector<uint8_t> before(block_.data(), block_.data() + block_.size());
    EXPECT_EQ(Sonvel_AEC_SetParams(h_, &c), -51);
    AecCfg got{};
    EXPECT_EQ(Sonvel_AEC_GetParams(h_, &got), -51);
    EXPECT_EQ(std::memcmp(before.data(), block_.data(), block_.size()), 0);
    block_.state()->u32StateMagic = 0x5A5A;

    block_.state()->u16InitMagic = 0;
    EXPECT_EQ(Sonvel_AEC_SetParams(h_, &c), -101);
    block_.state()->u16InitMagic = 0xA5A5;

    // A damaged state offset means the state cannot be found at all.
    block_.header()->u32StateOffset = 3888;
    EXPECT_EQ(Sonvel_AEC_SetParams(h_, &c), -51);
    EXPECT_EQ(Sonvel_AEC_GetParams(h_, &got), -51);
    block_.header()->u32StateOffset = 0x7FFFFFF0;
    EXPECT_EQ(Sonvel_AEC_GetParams(h_, &got), -51);
    EXPECT_TRUE(block_.canaries_intact());
}

}  // namespace
