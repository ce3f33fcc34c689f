// Per-block step: the far-end level read at the dominant partition's delay, and a silent far end
// (filter untouched, error = scaled near end, far-end power decaying by 0.9 per block).
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "linear_test_state.h"
#include "sonvel_aec_stages.h"

namespace {

using lintest::Rate;

class FrameStep : public ::testing::TestWithParam<Rate> {};

TEST_P(FrameStep, FarEndDetectorReadsTheLevelAtTheDominantDelay) {
    const Rate r = GetParam();
    auto st = lintest::make_state(r);
    for (int i = 0; i < 24; ++i) st->as16FarLevelHist[i] = static_cast<int16_t>(1000 + i);
    st->as16FarLevelHist[2] = 10000;  // entry 3 once the new level is pushed
    st->s32MaxPartIdx = 3;
    std::vector<int16_t> silent(r.l, 0);
    Sonvel_AEC_Mdf(st.get(), silent.data(), silent.data());
    EXPECT_EQ(st->as16FarLevelHist[0], 418);
    EXPECT_EQ(st->as16FarLevelHist[23], 1022);
    EXPECT_EQ(st->as16FarVadSt[2], (10000 * 22938) >> 15);
    EXPECT_EQ(st->as16NearVadSt[2], (418 * 22938) >> 15);
    EXPECT_EQ(st->s32PartSearchCnt, 1);
}

TEST_P(FrameStep, SilentFarEndLeavesTheFilterAndPassesTheNearEnd) {
    const Rate r = GetParam();
    auto st = lintest::make_state(r);
    std::mt19937 rng(22);
    for (int p = 0; p < 12; ++p) lintest::random_spectrum(st->aiFiltPart[p], r, 24, rng);
    const std::vector<int32_t> filter(&st->aiFiltPart[0][0], &st->aiFiltPart[0][0] + 12 * 260);
    for (int k = 0; k < r.l + 4; ++k) st->aiFarPow[k] = 1000000 + 1000 * k;
    std::vector<int16_t> near(r.l), silent(r.l, 0);
    for (int block = 0; block < 3; ++block) {
        lintest::random_block(near.data(), r.l, 20000, rng);
        const std::vector<int32_t> pow(st->aiFarPow, st->aiFarPow + r.l + 4);
        Sonvel_AEC_Mdf(st.get(), near.data(), silent.data());
        for (int i = 0; i < r.l; ++i) EXPECT_EQ(st->ai32ErrBlk[i], near[i] * (1 << r.s));
        for (int k = 0; k < r.l + 4; ++k) {
            const float decayed = static_cast<float>(pow[k]) * 29490.0f;  // single precision
            EXPECT_EQ(st->aiFarPow[k], static_cast<int32_t>(decayed / 32768.0f)) << k;
        }
    }
    EXPECT_TRUE(std::equal(filter.begin(), filter.end(), &st->aiFiltPart[0][0]));
}

INSTANTIATE_TEST_SUITE_P(Rates, FrameStep, ::testing::Values(lintest::k8k, lintest::k16k),
                         [](const auto &info) { return info.param.n == 128 ? "8k" : "16k"; });

}  // namespace
