// Instance memory: size query, initialisation and its argument codes, initial values of a fresh
// state, re-initialisation through SetParams, the coupling table, and the version record.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <string>

#include "interface/instance_block.h"
#include "sonvel_aec.h"

namespace {

using sonvel::test::default_cfg;
using sonvel::test::GuardedBlock;

TEST(InstanceSize, CodesAndNoWriteOnFailure) {
    uint32_t size = 7;
    uint32_t other = 9;
    EXPECT_EQ(Sonvel_AEC_GetSize(nullptr, &other), -60);
    EXPECT_EQ(Sonvel_AEC_GetSize(&size, nullptr), -61);
    EXPECT_EQ(size, 7u);
    EXPECT_EQ(Sonvel_AEC_GetSize(&size, &other), 0);
    EXPECT_EQ(size, 62064u);
    EXPECT_EQ(other, 9u);
}

TEST(InstanceInit, ArgumentCodesInOrder) {
    GuardedBlock block;
    const AecCfg cfg = default_cfg(1);
    void *h = nullptr;
    EXPECT_EQ(Sonvel_AEC_Init(nullptr, nullptr, 0, nullptr), -1);
    EXPECT_EQ(Sonvel_AEC_Init(&h, nullptr, 0, nullptr), -2);
    EXPECT_EQ(Sonvel_AEC_Init(&h, block.data() + 4, 62064, nullptr), -3);
    EXPECT_EQ(Sonvel_AEC_Init(&h, block.data(), 62063, nullptr), -4);
    EXPECT_EQ(Sonvel_AEC_Init(&h, block.data(), 62064, nullptr), -5);
    AecCfg bad = cfg;
    bad.s16CohThr = -1;
    EXPECT_EQ(Sonvel_AEC_Init(&h, block.data(), 62064, &bad), -26);
    EXPECT_EQ(h, nullptr);
    // Nothing of the block was touched by any of these.
    const uint8_t *b = block.data();
    for (size_t i = 0; i < block.size(); ++i) ASSERT_EQ(b[i], sonvel::test::kCanaryByte) << i;
    EXPECT_EQ(Sonvel_AEC_Check8Align(block.data()), 1);
    EXPECT_EQ(Sonvel_AEC_Check8Align(block.data() + 4), 0);
}

TEST(InstanceInit, ApplyAfterFailedInitIsRefused) {
    GuardedBlock block;
    std::memset(block.data(), 0, block.size());
    AecCfg bad = default_cfg(1);
    bad.u8StartPart = 7;
    void *h = nullptr;
    ASSERT_EQ(Sonvel_AEC_Init(&h, block.data(), 62064, &bad), -21);
    int16_t in[160] = {};
    int16_t out[160];
    EXPECT_EQ(Sonvel_AEC_Apply(block.data(), in, in, out), -51);
}

TEST(InstanceInit, LargerBlockKeepsItsExcessAndInitTwiceStartsAfresh) {
    GuardedBlock block(62064 + 100);
    std::memset(block.data() + 62064, 0x77, 100);
    const AecCfg cfg = default_cfg(0);
    void *h = nullptr;
    ASSERT_EQ(Sonvel_AEC_Init(&h, block.data(), 62064 + 100, &cfg), 0);
    EXPECT_EQ(h, block.data());
    std::vector<uint8_t> fresh(block.data(), block.data() + 62064);

    // Run a few frames so that the instance holds something, then initialise again.
    const auto sig = sonvel::test::test_signal(800, 3);
    sonvel::test::apply_frames(h, sig, sig, 80);
    ASSERT_EQ(Sonvel_AEC_Init(&h, block.data(), 62064, &cfg), 0);
    EXPECT_EQ(std::memcmp(fresh.data(), block.data(), 62064), 0);
    for (int i = 0; i < 100; ++i) ASSERT_EQ(block.data()[62064 + i], 0x77);
    EXPECT_TRUE(block.canaries_intact());
}

TEST(InstanceInit, HeaderAndRateDerivedValues) {
    for (uint8_t rate : {uint8_t{0}, uint8_t{1}}) {
        GuardedBlock block;
        const AecCfg cfg = default_cfg(rate);
        void *h = nullptr;
        ASSERT_EQ(Sonvel_AEC_Init(&h, block.data(), 62064, &cfg), 0);
        const sonvel::AecHeader *hdr = block.header();
        EXPECT_EQ(hdr->u32StateOffset, 3880u);
        EXPECT_EQ(hdr->u8HdrSampleRate, rate);
        EXPECT_EQ(hdr->u16Phase, 0);
        EXPECT_EQ(hdr->u16HdrMagic, 0x5A5A);
        const AecState *st = block.state();
        const bool wide = rate != 0;
        EXPECT_EQ(st->s16BlockLen, wide ? 128 : 64);
        EXPECT_EQ(st->s16HalfFftLen, wide ? 128 : 64);
        EXPECT_EQ(st->s16FftLen, wide ? 256 : 128);
        EXPECT_EQ(st->s16FftLen2, wide ? 256 : 128);
        EXPECT_EQ(st->s16FftOrder, wide ? 8 : 7);
        EXPECT_EQ(st->s16RateShift, wide ? 7 : 8);
        EXPECT_EQ(st->s32RateFactor, wide ? 2 : 1);
        EXPECT_EQ(st->s16BandEdgeEnd, wide ? 128 : 64);
        // Q values of the power spectra: bins 0..128 at both rates, nothing beyond.
        for (int k = 0; k < 132; ++k) {
            const int16_t want = k <= 128 ? 5 : 0;
            ASSERT_EQ(st->as16SeExp[k], want) << k;
            ASSERT_EQ(st->as16SdExp[k], want) << k;
            ASSERT_EQ(st->as16SxExp[k], want) << k;
        }
    }
}

TEST(StateInit, ArgumentCodes) {
    GuardedBlock block;
    const AecCfg cfg = default_cfg(1);
    EXPECT_EQ(Sonvel_AEC_SUB_Init(nullptr, &cfg, 0), -99);
    EXPECT_EQ(Sonvel_AEC_SUB_Init(block.data() + 4, &cfg, 0), -100);
    // Mode 1 on a state that never went through full initialisation.
    std::memset(block.data(), 0, block.size());
    EXPECT_EQ(Sonvel_AEC_SUB_Init(block.state(), &cfg, 1), -101);
    // Only the low byte of the mode counts: 0x100 is a full initialisation.
    EXPECT_EQ(Sonvel_AEC_SUB_Init(block.state(), &cfg, 0x100), 0);
    EXPECT_EQ(block.state()->u16InitMagic, 0xA5A5);
    EXPECT_TRUE(block.canaries_intact());
}

// Byte ranges of the fields that re-initialisation may rewrite.
bool is_parameter_byte(size_t off) {
    struct Range {
        size_t begin, size;
    };
    const Range ranges[] = {
        {offsetof(AecState, u32CnEnable), 4},
        {offsetof(AecState, s16StartPart), 2},
        {offsetof(AecState, u16NlpLevel), 2},
        {offsetof(AecState, u16HighFreqMode), 2},
        {offsetof(AecState, u16SampleRate), 2},
        {offsetof(AecState, s16CohThr), 2},
        {offsetof(AecState, s16HfBinLo), 2},
        {offsetof(AecState, s16HfBinHi), 2},
        {offsetof(AecState, s16CohBinLo), 2},
        {offsetof(AecState, s16CohBinHi), 2},
        {offsetof(AecState, s16ClampBinLo), 2},
        {offsetof(AecState, s16ClampBinHi), 2},
        {offsetof(AecState, as16BandEdge), 12},
        {offsetof(AecState, s16BandEdgeEnd), 2},
        {offsetof(AecState, as16BandShift), 14},
        {offsetof(AecState, ai32BandCoupling), 4 * 132},
    };
    for (const Range &r : ranges) {
        if (off >= r.begin && off < r.begin + r.size) return true;
    }
    return false;
}

TEST(StateInit, SetParamsRewritesOnlyTheParameterCopies) {
    GuardedBlock block;
    const AecCfg cfg = default_cfg(1);
    void *h = nullptr;
    ASSERT_EQ(Sonvel_AEC_Init(&h, block.data(), 62064, &cfg), 0);
    const auto near = sonvel::test::test_signal(160 * 7, 1);
    const auto far = sonvel::test::test_signal(160 * 7, 2);
    sonvel::test::apply_frames(h, near, far, 160);

    std::vector<uint8_t> before(block.data(), block.data() + block.size());
    AecCfg set = cfg;
    set.u8CnEnable = 0;
    set.u8StartPart = 3;
    set.u8NlpLevel = 2;
    set.u8HighFreqMode = 1;
    set.s16CohThr = 1;
    set.s16HfBinLo = 1;
    set.s16HfBinHi = 2;
    set.s16CohBinLo = 3;
    set.s16CohBinHi = 4;
    const int16_t edges[6] = {0, 1, 2, 3, 4, 5};
    std::memcpy(set.as16BandEdge, edges, sizeof edges);
    set.s16ClampBinLo = 0;
    set.s16ClampBinHi = 1;
    for (int16_t &s : set.as16BandShift) s = 3;
    ASSERT_EQ(Sonvel_AEC_SetParams(h, &set), 0);

    const uint8_t *after = block.data();
    size_t changedParams = 0;
    for (size_t i = 0; i < block.size(); ++i) {
        const bool inState = i >= sonvel::kHeaderBytes;
        if (inState && is_parameter_byte(i - sonvel::kHeaderBytes)) {
            changedParams += before[i] != after[i];
            continue;
        }
        ASSERT_EQ(before[i], after[i]) << "byte " << i << " outside the parameter copies";
    }
    EXPECT_GT(changedParams, 0u);
    EXPECT_EQ(block.state()->s16StartPart, 3);
    EXPECT_EQ(block.state()->u32CnEnable, 0u);
}

TEST(CouplingTable, BandsFollowEdgesAndShifts) {
    GuardedBlock block;
    AecCfg cfg = default_cfg(0);
    const int16_t edges[6] = {2, 2, 5, 9, 9, 60};
    const int16_t shifts[7] = {13, 0, 1, 29, 5, 30, 31};
    std::memcpy(cfg.as16BandEdge, edges, sizeof edges);
    std::memcpy(cfg.as16BandShift, shifts, sizeof shifts);
    void *h = nullptr;
    ASSERT_EQ(Sonvel_AEC_Init(&h, block.data(), 62064, &cfg), 0);
    const int32_t *t = block.state()->ai32BandCoupling;
    for (int b = 0; b < 2; ++b) EXPECT_EQ(t[b], 32768) << b;  // h = 13: 1.0
    for (int b = 2; b < 5; ++b) EXPECT_EQ(t[b], 8) << b;      // band 1 empty, band 2: h = 1
    for (int b = 5; b < 9; ++b) EXPECT_EQ(t[b], INT32_MIN) << b;  // 4 << 29
    for (int b = 9; b < 60; ++b) EXPECT_EQ(t[b], 0) << b;         // 4 << 30 wraps to 0
    for (int b = 60; b <= 64; ++b) EXPECT_EQ(t[b], 0) << b;       // 4 << 31 as well
    for (int b = 65; b < 132; ++b) EXPECT_EQ(t[b], 0) << b;       // beyond M: never written

    // Shifts count modulo 32; the table follows a SetParams.
    for (int16_t &s : cfg.as16BandShift) s = 32 + 2;
    cfg.as16BandShift[6] = -30;  // -30 mod 32 = 2
    ASSERT_EQ(Sonvel_AEC_SetParams(h, &cfg), 0);
    for (int b = 0; b <= 64; ++b) ASSERT_EQ(t[b], 16) << b;
}

TEST(CouplingTable, EdgesBeyondTheLastBinStopAtIt) {
    GuardedBlock block;
    AecCfg cfg = default_cfg(0);
    const int16_t edges[6] = {10, 70, 100, 128, 128, 128};
    std::memcpy(cfg.as16BandEdge, edges, sizeof edges);
    for (int16_t &s : cfg.as16BandShift) s = 13;
    cfg.as16BandShift[1] = 12;
    void *h = nullptr;
    ASSERT_EQ(Sonvel_AEC_Init(&h, block.data(), 62064, &cfg), 0);
    const int32_t *t = block.state()->ai32BandCoupling;
    for (int b = 10; b <= 64; ++b) ASSERT_EQ(t[b], 16384) << b;
    for (int b = 65; b < 132; ++b) ASSERT_EQ(t[b], 0) << b;
    EXPECT_TRUE(block.canaries_intact());
}

TEST(Version, RecordTexts) {
    const AecVersion *v = nullptr;
    EXPECT_EQ(Sonvel_AEC_GetVersion(nullptr), -50);
    ASSERT_EQ(Sonvel_AEC_GetVersion(&v), 0);
    EXPECT_EQ(v, &Sonvel_AEC_gastAecVersionTab);
    EXPECT_STREQ(v->acProduct, "Sonvel Audio REL-01.06.0 ARM AEC");
    for (size_t i = 32; i < sizeof v->acProduct; ++i) EXPECT_EQ(v->acProduct[i], '\0');
    const std::string time(v->acBuildTime);
    ASSERT_EQ(time.size(), 8 + 2 + 11u) << time;
    EXPECT_EQ(time.substr(8, 2), "  ");
    EXPECT_EQ(v->acToolchain[27], '\0');
    EXPECT_GT(std::strlen(v->acToolchain), 0u);
}

}  // namespace
