// Comfort noise: the floor estimate (average, floor, persistence counter, quiet-block steps,
// block count) and the generator (start, seed sequence, amplitude and phase of the noise).
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <tuple>
#include <vector>

#include "sonvel_aec_stages.h"
#include "state/aec_state.h"
#include "suppressor/gain_shaping_state.h"

namespace {

double value(int32_t m, int q) { return std::ldexp(static_cast<double>(m), -q); }
double floor_of(const AecState &st, int k) {
    return value(st.ai32CnFloorMan[k], st.as16CnFloorExp[k]);
}
double avg_of(const AecState &st, int k) { return value(st.ai32CnAvgMan[k], st.as16CnAvgExp[k]); }

// Power 2^30 / 2^q in every bin of the near-end power (P), the floor (F) or the average (A).
void set_power(AecState *st, int16_t q) {
    std::fill(std::begin(st->ai32DPowMan), std::end(st->ai32DPowMan), 1 << 30);
    std::fill(std::begin(st->as16DPowExp), std::end(st->as16DPowExp), q);
}
void set_floor(AecState *st, int16_t q) {
    std::fill(std::begin(st->ai32CnFloorMan), std::end(st->ai32CnFloorMan), 1 << 30);
    std::fill(std::begin(st->as16CnFloorExp), std::end(st->as16CnFloorExp), q);
}

void estimate(AecState *st, int blocks) {
    for (int b = 0; b < blocks; ++b) Sonvel_AEC_ComfortNoiseEstimate(st);
}

TEST(ComfortNoiseEstimate, AverageAndFloorTrackThePower) {
    auto st = make_state(true);
    st->s16NearActive = 1;
    set_power(st.get(), 20);  // P = 1024
    estimate(st.get(), 1);
    EXPECT_NEAR(avg_of(*st, 5), 102.4, 1.5);
    estimate(st.get(), 19);  // up to K = 19 the floor is the average
    for (int k = 0; k < 128; ++k) EXPECT_EQ(floor_of(*st, k), avg_of(*st, k));
    estimate(st.get(), 130);
    EXPECT_NEAR(avg_of(*st, 5), 1024.0, 15.0);
    EXPECT_EQ(st->ai32CnFloorMan[128], 0);  // bin L is never estimated
    const double high = floor_of(*st, 9);

    set_power(st.get(), 26);  // P = 16: the floor follows the average down
    estimate(st.get(), 60);
    const double low = floor_of(*st, 9);
    EXPECT_LT(low, 0.1 * high);
    set_power(st.get(), 20);  // back up with the near end active: the floor stays
    estimate(st.get(), 60);
    EXPECT_EQ(floor_of(*st, 9), low);
}

TEST(ComfortNoiseEstimate, PersistenceCounterSaturatesAtBothEnds) {
    auto st = make_state(false);
    st->s32CnBlockCnt = 100;
    st->s16NearActive = 1;
    set_floor(st.get(), 30);
    set_power(st.get(), 20);  // far above four times the floor
    st->as16CnRiseCnt[3] = 32758;
    estimate(st.get(), 1);
    EXPECT_EQ(st->as16CnRiseCnt[3], 32760);
    EXPECT_EQ(st->as16CnRiseCnt[5], 7);
    set_floor(st.get(), 30);
    set_power(st.get(), 40);  // below the floor
    st->as16CnRiseCnt[5] = 3;
    estimate(st.get(), 1);
    EXPECT_EQ(st->as16CnRiseCnt[3], 32754);
    EXPECT_EQ(st->as16CnRiseCnt[5], 0);
}

// One block: A = 2^20 (far above 2 P), F = 1 (far below P = 256), counter at `risen`.
std::pair<double, double> quiet_block(int16_t nearActive, int16_t quiet, int32_t notNear,
                                      int32_t blocks, int16_t risen = 400) {
    auto st = make_state(true);
    std::fill(std::begin(st->ai32CnAvgMan), std::end(st->ai32CnAvgMan), 1 << 30);
    std::fill(std::begin(st->as16CnAvgExp), std::end(st->as16CnAvgExp), int16_t{10});
    set_floor(st.get(), 30);
    set_power(st.get(), 22);
    std::fill(std::begin(st->as16CnRiseCnt), std::end(st->as16CnRiseCnt), risen);
    st->s32CnBlockCnt = blocks;
    st->s16NearActive = nearActive;
    st->as16NearVadSt[0] = quiet;
    st->s32NotNearState = notNear;
    Sonvel_AEC_ComfortNoiseEstimate(st.get());
    return {avg_of(*st, 10), floor_of(*st, 10)};
}

TEST(ComfortNoiseEstimate, QuietBlockStepsNeedTheirConditions) {
    const auto [avg, flr] = quiet_block(1, 7, 0, 300);  // near end active: neither step
    EXPECT_EQ(quiet_block(0, 6, 0, 300), std::pair(avg, flr));
    // Fewer than 6 quiet blocks: the average takes the power on top.
    EXPECT_EQ(quiet_block(0, 5, 0, 300).second, flr);
    EXPECT_NEAR(quiet_block(0, 5, 0, 300).first, avg + 256.0, 1.0);
    // More than 6: the floor rises by 1 % of the power, when allowed.
    EXPECT_NEAR(quiet_block(0, 7, 0, 201).second, 0.99 + 2.56, 0.01);
    EXPECT_EQ(quiet_block(0, 7, 0, 200).second, flr);
    EXPECT_EQ(quiet_block(0, 7, 1, 300).second, flr);
    EXPECT_EQ(quiet_block(0, 7, 0, 300, 293).second, flr);  // only recently above 4 F
}

TEST(ComfortNoiseEstimate, BlockCountWrapsTo251) {
    auto st = make_state(false);
    st->s32CnBlockCnt = INT32_MAX - 2;
    estimate(st.get(), 1);
    EXPECT_EQ(st->s32CnBlockCnt, INT32_MAX - 1);
    estimate(st.get(), 1);
    EXPECT_EQ(st->s32CnBlockCnt, 251);
}

TEST(ComfortNoiseGeneration, OffOrNotYetStartedCopiesTheErrorSpectrum) {
    for (const auto [enable, blocks] : {std::tuple{0u, 5000}, std::tuple{1u, 250}}) {
        auto st = make_state(true);
        st->u32CnEnable = enable;
        st->s32CnBlockCnt = blocks;
        set_floor(st.get(), 10);
        std::vector<int32_t> E(264);
        for (int w = 0; w < 264; ++w) E[w] = 100 * w - 9000;
        const std::vector<int16_t> g(132, 0);
        for (int b = 0; b < 3; ++b) {
            std::vector<int32_t> out(264, 77);
            Sonvel_AEC_ComfortNoise(st.get(), g.data(), E.data(), out.data());
            for (int w = 0; w < 264; ++w) ASSERT_EQ(out[w], w <= 257 ? E[w] : 77) << "word " << w;
            EXPECT_EQ(st->s16CnSeed, 21845);
        }
    }
}

TEST(ComfortNoiseGeneration, SeedSequenceSetsThePhases) {
    auto st = make_state(true);
    st->s32CnBlockCnt = 251;
    set_floor(st.get(), 10);  // F = 2^20: amplitude sqrt(F) * 2^s = 2^17 at g = 0
    const std::vector<int32_t> E(264, 0);
    const std::vector<int16_t> g(132, 0);
    for (const auto [seed, r] :
         {std::tuple{3242, 42}, std::tuple{23867, 59}, std::tuple{-11048, 88}}) {
        std::vector<int32_t> out(264, 0);
        Sonvel_AEC_ComfortNoise(st.get(), g.data(), E.data(), out.data());
        EXPECT_EQ(st->s16CnSeed, seed);
        EXPECT_EQ(out[0], 0);  // bin 0 gets no noise
        EXPECT_EQ(out[1], 0);
        for (int k = 1; k <= 128; ++k) {
            EXPECT_NEAR(out[2 * k], 4.0 * Sonvel_AEC_gasAecCnCos_650[r + k], 8.0) << k;
            EXPECT_NEAR(out[2 * k + 1], -4.0 * Sonvel_AEC_gasAecCnSin_650[r + k], 8.0) << k;
        }
    }
}

TEST(ComfortNoiseGeneration, AmplitudeFollowsFloorAndGain) {
    for (const bool wide : {false, true}) {
        auto st = make_state(wide);
        const int last = st->s16HalfFftLen;
        st->s32CnBlockCnt = 300;
        std::vector<int32_t> E(2 * last + 8);
        for (size_t w = 0; w < E.size(); ++w) E[w] = 1000 * static_cast<int32_t>(w) - 60000;
        std::vector<int16_t> g(132);
        for (int k = 0; k < 130; ++k) {  // floors of both exponent parities; bin 7 has none
            g[k] = static_cast<int16_t>((k * 2711) % 32768);
            st->ai32CnFloorMan[k] = k == 7 ? 0 : 0x40000000 + 12345 * k;
            st->as16CnFloorExp[k] = static_cast<int16_t>(k % 23 - 4);
        }
        std::vector<int32_t> out(E.size());
        Sonvel_AEC_ComfortNoise(st.get(), g.data(), E.data(), out.data());
        for (int k = 1; k <= last; ++k) {
            const double gg = g[k] / 32768.0;
            const double amp =
                std::sqrt(floor_of(*st, k) * (1.0 - gg * gg)) * std::ldexp(1.0, st->s16RateShift);
            const double got =
                std::hypot(double(out[2 * k]) - E[2 * k], double(out[2 * k + 1]) - E[2 * k + 1]);
            EXPECT_NEAR(got, amp, 1e-4 * amp + 3.0) << "bin " << k;
        }
        EXPECT_EQ(out[14], E[14]);
    }
}

}  // namespace
