// Divergence guard: hysteresis of the divergence state with the substitution of the error
// spectrum, and the run counter that clears the adaptive filter.
#include "sonvel_aec_ops.h"
#include "suppressor/support.h"

namespace {

// The initialised state with every filter word non-zero.
std::unique_ptr<AecState> make_filled_state(bool wide) {
    auto st = suptest::make_state(wide);
    for (auto &slot : st->aiFiltPart)
        for (int w = 0; w < sonvel::kSpecSlotWords; ++w) slot[w] = 0x1234 + w;
    return st;
}

// E, D, Y of N + 8 distinct words; run() applies the guard once.
struct Block {
    AecState *st;
    std::vector<int32_t> E, D, Y;
    explicit Block(AecState *s) : st(s) {
        for (int w = 0; w < s->s16FftLen + 8; ++w)
            E.push_back(1000 + w), D.push_back(-7000 - 3 * w), Y.push_back(55 + w);
    }
    Block &run(int32_t seSum, int32_t sdSum) {
        Sonvel_AEC_DivergeRistrict(st, E.data(), D.data(), Y.data(), seSum, sdSum);
        return *this;
    }
};

TEST(DivergenceGuard, StateEntersAboveAndLeavesBelowTheNearEndByFivePercent) {
    for (const bool wide : {false, true}) {
        auto st = make_filled_state(wide);
        const int n = st->s16FftLen;
        const Block ref(st.get());
        EXPECT_EQ(Block(st.get()).run(5000, 5000).E, ref.E);  // equal sums: nothing
        const Block b = Block(st.get()).run(5001, 5000);
        ASSERT_EQ(st->s32Diverged, 1);
        for (int w = 0; w < n + 8; ++w) {  // words 0..N+3, the guard bin included
            EXPECT_EQ(b.E[w], w <= n + 3 ? ref.D[w] : ref.E[w]) << "word " << w;
            EXPECT_EQ(b.Y[w], w <= n + 3 ? 0 : ref.Y[w]) << "word " << w;
        }
        const int32_t se = 1000003;
        const int32_t edge = Sonvel_aec_L_shl(Sonvel_aec_Mpy_32_16_opt(se, 17203), 1);
        EXPECT_EQ(Block(st.get()).run(se, edge).E[10], ref.D[10]);  // exactly 1.05: stays
        EXPECT_EQ(st->s32Diverged, 1);
        EXPECT_EQ(Block(st.get()).run(se, edge + 1).E, ref.E);  // left, without substitution
        EXPECT_EQ(st->s32Diverged, 0);
    }
}

// Runs blocks passing the 19.95 test; returns the block (1-based) that cleared the filter.
int blocks_until_reset(AecState *st) {
    for (int b = 1; b <= 20; ++b)
        if (Block(st).run(400000, 20000).st->aiFiltPart[0][0] == 0) return b;
    return 0;
}

TEST(DivergenceGuard, ResetAfterARunThatFollowsTheStrongestPartitionClearsUpToTheGuardBin) {
    for (const auto &[wide, maxPart, startPart, resetBlock] : {std::tuple{true, 0, 3, 3},
                                                               {true, 2, 0, 3},
                                                               {true, 6, 1, 6},
                                                               {true, 11, 0, 12},
                                                               {false, 0, 0, 3}}) {
        auto st = make_filled_state(wide);
        st->s32MaxPartIdx = maxPart;
        st->s16StartPart = static_cast<int16_t>(startPart);
        EXPECT_EQ(blocks_until_reset(st.get()), resetBlock) << maxPart << " " << startPart;
        EXPECT_EQ(st->s16DivRunCnt, 0);
        for (int slot = 0; slot < sonvel::kSpecSlots; ++slot)
            for (int w = 0; w < sonvel::kSpecSlotWords; ++w)
                ASSERT_EQ(st->aiFiltPart[slot][w], w <= st->s16FftLen + 3 ? 0 : 0x1234 + w)
                    << slot << " " << w;
    }
    // A block failing the test, also by saturation of 19.95 * sdSum, restarts the run.
    auto st = make_filled_state(true);
    const int32_t level = Sonvel_aec_L_shl(Sonvel_aec_Mpy_32_16_opt(20000, 20428), 5);
    Block(st.get()).run(400000, 20000).run(400000, 20000).run(level, 20000);
    EXPECT_EQ(st->s16DivRunCnt, 0);
    Block(st.get()).run(400000, 20000).run(INT32_MAX, 0x7FFFFFF);
    EXPECT_EQ(st->s16DivRunCnt, 0);
    EXPECT_EQ(blocks_until_reset(st.get()), 3);
}

}  // namespace
