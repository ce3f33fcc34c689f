// Divergence guard: hysteresis of the divergence state, the substitution of the error spectrum,
// and the run counter that clears the adaptive filter.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "sonvel_aec.h"
#include "sonvel_aec_ops.h"
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

struct Spectra {
    explicit Spectra(int n) : E(n + 8), D(n + 8), Y(n + 8) {
        for (int w = 0; w < n + 8; ++w) {
            E[w] = 1000 + w;
            D[w] = -7000 - 3 * w;
            Y[w] = 55 + w;
        }
    }
    std::vector<int32_t> E, D, Y;
};

// The fixed-point form of 1.05 * seSum used to leave the state.
int32_t leave_level(int32_t seSum) { return Sonvel_aec_L_shl(Sonvel_aec_Mpy_32_16_opt(seSum, 17203), 1); }

// The fixed-point form of 19.95 * sdSum.
int32_t run_level(int32_t sdSum) { return Sonvel_aec_L_shl(Sonvel_aec_Mpy_32_16_opt(sdSum, 20428), 5); }

void fill_filter(AecState *st) {
    for (auto &slot : st->aiFiltPart) {
        for (int w = 0; w < sonvel::kSpecSlotWords; ++w) slot[w] = 0x1234 + w;
    }
}

TEST(DivergenceState, EqualSumsLeaveEverythingAlone) {
    auto st = make_state(true);
    Spectra s(256);
    const Spectra ref(256);
    Sonvel_AEC_DivergeRistrict(st.get(), s.E.data(), s.D.data(), s.Y.data(), 5000, 5000);
    EXPECT_EQ(st->s32Diverged, 0);
    EXPECT_EQ(s.E, ref.E);
    EXPECT_EQ(s.Y, ref.Y);
}

TEST(DivergenceState, EnteringSubstitutesWordsUpToTheGuardBin) {
    for (const bool wide : {false, true}) {
        const int n = wide ? 256 : 128;
        auto st = make_state(wide);
        Spectra s(n);
        const Spectra ref(n);
        Sonvel_AEC_DivergeRistrict(st.get(), s.E.data(), s.D.data(), s.Y.data(), 5001, 5000);
        EXPECT_EQ(st->s32Diverged, 1);
        for (int w = 0; w < n + 8; ++w) {
            const bool inside = w <= n + 3;
            EXPECT_EQ(s.E[w], inside ? ref.D[w] : ref.E[w]) << "word " << w;
            EXPECT_EQ(s.Y[w], inside ? 0 : ref.Y[w]) << "word " << w;
        }
    }
}

TEST(DivergenceState, LeavesOnlyWhenNearExceedsErrorByFivePercent) {
    const int32_t seSum = 1000003;
    const int32_t boundary = leave_level(seSum);
    ASSERT_GT(boundary, seSum);

    // Exactly at the boundary: still divergent, E replaced by D.
    auto st = make_state(false);
    st->s32Diverged = 1;
    Spectra s(128);
    Sonvel_AEC_DivergeRistrict(st.get(), s.E.data(), s.D.data(), s.Y.data(), seSum, boundary);
    EXPECT_EQ(st->s32Diverged, 1);
    EXPECT_EQ(s.E[10], s.D[10]);

    // One unit above: the state is left and this block is not substituted.
    Spectra t(128);
    const Spectra ref(128);
    Sonvel_AEC_DivergeRistrict(st.get(), t.E.data(), t.D.data(), t.Y.data(), seSum, boundary + 1);
    EXPECT_EQ(st->s32Diverged, 0);
    EXPECT_EQ(t.E, ref.E);
    EXPECT_EQ(t.Y, ref.Y);

    // A saturating error sum keeps the state set.
    st->s32Diverged = 1;
    Sonvel_AEC_DivergeRistrict(st.get(), t.E.data(), t.D.data(), t.Y.data(), INT32_MAX, INT32_MAX);
    EXPECT_EQ(st->s32Diverged, 1);
}

// Runs blocks whose error sum passes the 19.95 test; returns the block (1-based) in which the
// filter was cleared, 0 if none within the given count.
int blocks_until_reset(AecState *st, int blocks) {
    const int n = st->s16FftLen;
    for (int b = 1; b <= blocks; ++b) {
        Spectra s(n);
        Sonvel_AEC_DivergeRistrict(st, s.E.data(), s.D.data(), s.Y.data(), 400000, 20000);
        if (st->aiFiltPart[0][0] == 0) return b;
    }
    return 0;
}

TEST(DivergenceReset, ThresholdFollowsTheStrongestPartition) {
    ASSERT_LT(run_level(20000), 400000);
    struct Case {
        int32_t maxPart;
        int16_t startPart;
        int resetBlock;
    };
    for (const Case c : {Case{0, 3, 3}, Case{2, 0, 3}, Case{3, 0, 4}, Case{6, 1, 6}, Case{11, 0, 12}}) {
        auto st = make_state(true);
        fill_filter(st.get());
        st->s32MaxPartIdx = c.maxPart;
        st->s16StartPart = c.startPart;
        EXPECT_EQ(blocks_until_reset(st.get(), 20), c.resetBlock) << c.maxPart << " " << c.startPart;
        EXPECT_EQ(st->s16DivRunCnt, 0);
    }
}

TEST(DivergenceReset, InterruptedRunStartsAgain) {
    auto st = make_state(true);
    fill_filter(st.get());
    Spectra s(256);
    Sonvel_AEC_DivergeRistrict(st.get(), s.E.data(), s.D.data(), s.Y.data(), 400000, 20000);
    Sonvel_AEC_DivergeRistrict(st.get(), s.E.data(), s.D.data(), s.Y.data(), 400000, 20000);
    EXPECT_EQ(st->s16DivRunCnt, 2);
    // The 19.95 test fails (seSum equal to the level): the count drops to 0.
    Sonvel_AEC_DivergeRistrict(st.get(), s.E.data(), s.D.data(), s.Y.data(), run_level(20000), 20000);
    EXPECT_EQ(st->s16DivRunCnt, 0);
    EXPECT_EQ(blocks_until_reset(st.get(), 10), 3);
    // After the reset a new run must be long enough again.
    fill_filter(st.get());
    EXPECT_EQ(blocks_until_reset(st.get(), 10), 3);
    // A saturating near-end sum fails the test.
    Sonvel_AEC_DivergeRistrict(st.get(), s.E.data(), s.D.data(), s.Y.data(), 400000, 20000);
    Sonvel_AEC_DivergeRistrict(st.get(), s.E.data(), s.D.data(), s.Y.data(), INT32_MAX, 0x7FFFFFF);
    EXPECT_EQ(st->s16DivRunCnt, 0);
}

TEST(DivergenceReset, ClearsWordsUpToTheGuardBinOfEverySlot) {
    for (const bool wide : {false, true}) {
        auto st = make_state(wide);
        const int n = st->s16FftLen;
        fill_filter(st.get());
        st->s32Diverged = 1;
        st->s16DivRunCnt = 2;
        const int32_t sdBefore = st->ai32SdMan[3];
        Spectra s(n);
        Sonvel_AEC_DivergeRistrict(st.get(), s.E.data(), s.D.data(), s.Y.data(), 400000, 20000);
        for (int slot = 0; slot < sonvel::kSpecSlots; ++slot) {
            for (int w = 0; w < sonvel::kSpecSlotWords; ++w) {
                EXPECT_EQ(st->aiFiltPart[slot][w], w <= n + 3 ? 0 : 0x1234 + w)
                    << "slot " << slot << " word " << w;
            }
        }
        EXPECT_EQ(st->s32Diverged, 1);
        EXPECT_EQ(st->ai32SdMan[3], sdBefore);
    }
}

}  // namespace
