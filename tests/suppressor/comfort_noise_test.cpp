// Comfort noise: the noise-floor estimate (average, floor, persistence counter, quiet-block
// steps, block count) and the generator (start, seed sequence, amplitude and phase of the noise).
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <memory>
#include <vector>

#include "sonvel_aec.h"
#include "sonvel_aec_stages.h"
#include "state/aec_state.h"

namespace {

std::unique_ptr<AecState> make_state(bool wide) {
    auto st = std::make_unique<AecState>();
    AecCfg cfg = Sonvel_AEC_gastMrvAecCfgTab;
    cfg.u8SampleRate = wide ? 1 : 0;
    EXPECT_EQ(Sonvel_AEC_SUB_Init(st.get(), &cfg, 0), 0);
    return st;
}

double value(int32_t m, int q) { return std::ldexp(static_cast<double>(m), -q); }

// Near-end power P = m / 2^q in every bin.
void set_power(AecState *st, int32_t m, int16_t q) {
    for (int k = 0; k < 132; ++k) {
        st->ai32DPowMan[k] = m;
        st->as16DPowExp[k] = q;
    }
}

void set_floor(AecState *st, int32_t m, int16_t q) {
    for (int k = 0; k < 130; ++k) {
        st->ai32CnFloorMan[k] = m;
        st->as16CnFloorExp[k] = q;
    }
}

void estimate(AecState *st, int blocks) {
    for (int b = 0; b < blocks; ++b) Sonvel_AEC_ComfortNoiseEstimate(st);
}

TEST(ComfortNoiseEstimate, AverageConvergesAndFloorCopiesItAtFirst) {
    auto st = make_state(false);
    st->s16NearActive = 1;
    set_power(st.get(), 1 << 30, 20);  // P = 1024
    estimate(st.get(), 1);
    EXPECT_NEAR(value(st->ai32CnAvgMan[5], st->as16CnAvgExp[5]), 102.4, 1.5);
    estimate(st.get(), 19);  // K = 19 in the last of these blocks
    for (int k = 0; k < 64; ++k) {
        EXPECT_EQ(st->ai32CnFloorMan[k], st->ai32CnAvgMan[k]);
        EXPECT_EQ(st->as16CnFloorExp[k], st->as16CnAvgExp[k]);
    }
    estimate(st.get(), 100);
    EXPECT_NEAR(value(st->ai32CnAvgMan[5], st->as16CnAvgExp[5]), 1024.0, 15.0);
    EXPECT_EQ(st->s32CnBlockCnt, 120);
    // Bin L is never estimated.
    EXPECT_EQ(st->ai32CnFloorMan[64], 0);
}

TEST(ComfortNoiseEstimate, FloorFallsWithTheAverageAndRisesOnlyInQuietBlocks) {
    auto st = make_state(true);
    st->s16NearActive = 1;
    set_power(st.get(), 1 << 30, 20);
    estimate(st.get(), 150);
    const double high = value(st->ai32CnFloorMan[9], st->as16CnFloorExp[9]);

    // A lower power: the floor follows the average down.
    set_power(st.get(), 1 << 30, 26);  // P = 16
    estimate(st.get(), 60);
    const double low = value(st->ai32CnFloorMan[9], st->as16CnFloorExp[9]);
    EXPECT_LT(low, 0.1 * high);

    // The power back up while the near end is active: the floor stays.
    set_power(st.get(), 1 << 30, 20);
    estimate(st.get(), 60);
    EXPECT_EQ(value(st->ai32CnFloorMan[9], st->as16CnFloorExp[9]), low);

    // Quiet blocks: it rises by about 1 % of the power per block.
    st->s16NearActive = 0;
    st->s32NotNearState = 0;
    st->as16NearVadSt[0] = 7;
    estimate(st.get(), 1);
    EXPECT_NEAR(value(st->ai32CnFloorMan[9], st->as16CnFloorExp[9]), 0.99 * low + 0.01 * 1024.0, 0.2);
}

TEST(ComfortNoiseEstimate, PersistenceCounterSaturatesAtBothEnds) {
    auto st = make_state(false);
    st->s32CnBlockCnt = 100;
    st->s16NearActive = 1;
    set_floor(st.get(), 1 << 30, 30);
    set_power(st.get(), 1 << 30, 20);  // far above four times the floor
    st->as16CnRiseCnt[3] = 32758;
    st->as16CnRiseCnt[4] = 32760;
    estimate(st.get(), 1);
    EXPECT_EQ(st->as16CnRiseCnt[3], 32760);
    EXPECT_EQ(st->as16CnRiseCnt[4], 32760);
    EXPECT_EQ(st->as16CnRiseCnt[5], 7);

    set_floor(st.get(), 1 << 30, 30);
    set_power(st.get(), 1 << 30, 40);  // below the floor
    st->as16CnRiseCnt[3] = 3;
    estimate(st.get(), 1);
    EXPECT_EQ(st->as16CnRiseCnt[3], 0);
    EXPECT_EQ(st->as16CnRiseCnt[4], 32760 + 7 - 6 - 7);
}

// One estimator block from a state whose average lies far above twice the power (256) and whose
// floor (1) lies far below it, above it for `risen` blocks so far; returns (average, floor) of
// bin 10.
struct Est {
    double avg;
    double flr;
};

Est quiet_block(int16_t nearActive, int16_t quiet, int32_t notNear, int32_t blocks,
                int16_t risen = 400) {
    auto st = make_state(true);
    for (int k = 0; k < 130; ++k) {
        st->ai32CnAvgMan[k] = 1 << 30;
        st->as16CnAvgExp[k] = 10;
    }
    set_floor(st.get(), 1 << 30, 30);
    set_power(st.get(), 1 << 30, 22);
    for (auto &t : st->as16CnRiseCnt) t = risen;
    st->s32CnBlockCnt = blocks;
    st->s16NearActive = nearActive;
    st->as16NearVadSt[0] = quiet;
    st->s32NotNearState = notNear;
    Sonvel_AEC_ComfortNoiseEstimate(st.get());
    return {value(st->ai32CnAvgMan[10], st->as16CnAvgExp[10]),
            value(st->ai32CnFloorMan[10], st->as16CnFloorExp[10])};
}

TEST(ComfortNoiseEstimate, QuietBlockStepsNeedTheirConditions) {
    const Est base = quiet_block(1, 7, 0, 300);
    // Near end active, or exactly 6 quiet blocks: neither step acts.
    for (const Est e : {quiet_block(1, 3, 0, 300), quiet_block(0, 6, 0, 300)}) {
        EXPECT_EQ(e.avg, base.avg);
        EXPECT_EQ(e.flr, base.flr);
    }
    // Fewer quiet blocks: the average takes the power on top.
    const Est early = quiet_block(0, 5, 0, 300);
    EXPECT_NEAR(early.avg, base.avg + 256.0, 1.0);
    EXPECT_EQ(early.flr, base.flr);
    // More quiet blocks: the floor rises, unless the echo analysis holds it or it is too early.
    EXPECT_NEAR(quiet_block(0, 7, 0, 300).flr, 0.99 + 0.01 * 256.0, 0.01);
    // A power only recently above four times the floor leaves it alone.
    EXPECT_EQ(quiet_block(0, 7, 0, 300, 293).flr, base.flr);
    EXPECT_EQ(quiet_block(0, 7, 1, 300).flr, base.flr);
    EXPECT_EQ(quiet_block(0, 7, 0, 200).flr, base.flr);
    EXPECT_GT(quiet_block(0, 7, 0, 201).flr, base.flr);
}

TEST(ComfortNoiseEstimate, BlockCountWrapsTo251) {
    auto st = make_state(false);
    st->s32CnBlockCnt = INT32_MAX - 2;
    estimate(st.get(), 1);
    EXPECT_EQ(st->s32CnBlockCnt, INT32_MAX - 1);
    estimate(st.get(), 1);
    EXPECT_EQ(st->s32CnBlockCnt, 251);
}

// Error spectrum with distinct words and sentinels behind bin L.
std::vector<int32_t> error_spectrum(int n) {
    std::vector<int32_t> e(n + 8);
    for (int w = 0; w < n + 8; ++w) e[w] = 100 * w - 9000;
    return e;
}

TEST(ComfortNoiseGeneration, OffOrNotYetStartedCopiesTheErrorSpectrum) {
    for (const bool enabled : {false, true}) {
        auto st = make_state(true);
        st->u32CnEnable = enabled ? 1 : 0;
        st->s32CnBlockCnt = enabled ? 250 : 5000;
        set_floor(st.get(), 1 << 30, 10);
        const auto E = error_spectrum(256);
        const std::vector<int16_t> g(132, 0);
        for (int b = 0; b < 3; ++b) {
            std::vector<int32_t> out(264, 77);
            Sonvel_AEC_ComfortNoise(st.get(), g.data(), E.data(), out.data());
            for (int w = 0; w < 264; ++w) EXPECT_EQ(out[w], w <= 257 ? E[w] : 77) << "word " << w;
            EXPECT_EQ(st->s16CnSeed, 21845);
        }
    }
}

TEST(ComfortNoiseGeneration, SeedSequenceAndPhaseOfTheNoise) {
    auto st = make_state(true);
    st->s32CnBlockCnt = 251;
    set_floor(st.get(), 1 << 30, 10);  // F = 2^20: amplitude sqrt(F) * 2^s = 2^17 for g = 0
    const std::vector<int32_t> E(264, 0);
    const std::vector<int16_t> g(132, 0);
    const int16_t seeds[] = {3242, 23867, -11048};
    const int offsets[] = {42, 59, 88};
    for (int b = 0; b < 3; ++b) {
        std::vector<int32_t> out(264, 0);
        Sonvel_AEC_ComfortNoise(st.get(), g.data(), E.data(), out.data());
        EXPECT_EQ(st->s16CnSeed, seeds[b]);
        EXPECT_EQ(out[0], 0);
        EXPECT_EQ(out[1], 0);
        for (int k = 1; k <= 128; ++k) {
            const double c = Sonvel_AEC_gasAecCnCos_650[offsets[b] + k] / 32767.0;
            const double s = Sonvel_AEC_gasAecCnSin_650[offsets[b] + k] / 32767.0;
            EXPECT_NEAR(out[2 * k], 131072.0 * c, 8.0) << "block " << b << " bin " << k;
            EXPECT_NEAR(out[2 * k + 1], -131072.0 * s, 8.0) << "block " << b << " bin " << k;
        }
    }
}

TEST(ComfortNoiseGeneration, AmplitudeFollowsFloorAndGain) {
    for (const bool wide : {false, true}) {
        auto st = make_state(wide);
        const int last = st->s16HalfFftLen;
        const int s = st->s16RateShift;
        st->s32CnBlockCnt = 300;
        const auto E = error_spectrum(2 * last);
        std::vector<int16_t> g(132);
        for (int k = 0; k < 132; ++k) {
            g[k] = static_cast<int16_t>((k * 2711) % 32768);
            // Floors of both exponent parities over a wide range; bin 7 has none.
            st->ai32CnFloorMan[k < 130 ? k : 0] = k == 7 ? 0 : 0x40000000 + 12345 * k;
            st->as16CnFloorExp[k] = static_cast<int16_t>(k % 23 - 4);
        }
        std::vector<int32_t> out(2 * last + 8);
        Sonvel_AEC_ComfortNoise(st.get(), g.data(), E.data(), out.data());
        EXPECT_EQ(out[0], E[0]);
        EXPECT_EQ(out[1], E[1]);
        for (int k = 1; k <= last; ++k) {
            const double f = value(st->ai32CnFloorMan[k], st->as16CnFloorExp[k]);
            const double gg = g[k] / 32768.0;
            const double amp = std::sqrt(f) * std::ldexp(1.0, s) * std::sqrt(1.0 - gg * gg);
            const double want = std::min(amp, 2147483647.0);
            const double re = static_cast<double>(out[2 * k]) - E[2 * k];
            const double im = static_cast<double>(out[2 * k + 1]) - E[2 * k + 1];
            EXPECT_NEAR(std::hypot(re, im), want, 1e-4 * want + 3.0) << "bin " << k;
        }
        EXPECT_EQ(out[14], E[14]);  // zero floor in bin 7
        EXPECT_EQ(out[15], E[15]);
    }
}

}  // namespace
