// Dominant partition search: its period at both rates, strict comparison (ties and an all-zero
// filter keep the index), the searched bin range and partitions, and the single-precision
// summation order that decides between nearly equal partitions.
#include <gtest/gtest.h>

#include "linear_test_state.h"
#include "sonvel_aec_stages.h"

namespace {

using lintest::k16k;
using lintest::k8k;

void set_bin(AecState &st, int slot, int bin, int32_t re, int32_t im = 0) {
    st.aiFiltPart[slot][2 * bin] = re;
    st.aiFiltPart[slot][2 * bin + 1] = im;
}

// Calls the search `blocks` times and returns the index afterwards.
int32_t run(AecState &st, int blocks) {
    for (int i = 0; i < blocks; ++i) Sonvel_AEC_FilterDelayEstimate(&st);
    return st.s32MaxPartIdx;
}

TEST(DelaySearch, RunsEveryTenBlocksAt8kAndTwentyAt16k) {
    for (const auto &rate : {k8k, k16k}) {
        const int period = 10 * rate.factor;
        auto st = lintest::make_state(rate);
        set_bin(*st, 3, 5, 1000);
        EXPECT_EQ(run(*st, period - 1), 0);
        EXPECT_EQ(run(*st, 1), 3);
        EXPECT_EQ(st->s32PartSearchCnt, 0);
        set_bin(*st, 4, 7, 0, 2000);
        EXPECT_EQ(run(*st, period - 1), 3);
        EXPECT_EQ(run(*st, 1), 4);
    }
}

TEST(DelaySearch, ZeroFilterAndTiesKeepTheEarlierIndex) {
    auto st = lintest::make_state(k8k);
    st->s32MaxPartIdx = 5;
    EXPECT_EQ(run(*st, 10), 5);

    set_bin(*st, 2, 9, 300, -400);
    set_bin(*st, 4, 9, -400, 300);  // equal energy, later slot
    EXPECT_EQ(run(*st, 10), 2);
}

TEST(DelaySearch, CoversBinsOneToBAndOnlyTheSixPartitionsFromTheStart) {
    for (const auto &rate : {k8k, k16k}) {
        const int last = rate.l == 64 ? 61 : 113;
        auto st = lintest::make_state(rate, 6);
        set_bin(*st, 0, 10, 1 << 20);         // slot before the start: never searched
        set_bin(*st, 7, 0, 1 << 20);          // DC is not searched
        set_bin(*st, 8, last + 1, 1 << 20);   // above bin B: not searched
        set_bin(*st, 9, last, 0, 3);          // imaginary part of bin B counts
        set_bin(*st, 11, last, 2);
        EXPECT_EQ(run(*st, 10 * rate.factor), 9);
    }
}

TEST(DelaySearch, InterleavedSingleSumsDecideBetweenNearlyEqualPartitions) {
    // Both partitions hold 2^24 + 2 exactly. Slot 0 puts the two small terms into the same running
    // sum as the large one, where each is lost to rounding; slot 1 puts them into the other pair,
    // which keeps them. A plain sum in bin order (or in double precision) would tie and keep slot 0.
    auto st = lintest::make_state(k8k);
    set_bin(*st, 0, 1, 4096);
    set_bin(*st, 0, 5, 1);
    set_bin(*st, 0, 9, 1);
    set_bin(*st, 1, 1, 4096);
    set_bin(*st, 1, 2, 1);
    set_bin(*st, 1, 4, 1);
    EXPECT_EQ(run(*st, 10), 1);
}

}  // namespace
