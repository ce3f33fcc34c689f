// Dominant partition search: period at both rates, strict comparison, searched bins and slots,
// and the single-precision summation order deciding between nearly equal partitions.
#include <gtest/gtest.h>

#include "linear_test_state.h"
#include "sonvel_aec_stages.h"

namespace {

void set_bin(AecState &st, int slot, int bin, int32_t re, int32_t im = 0) {
    st.aiFiltPart[slot][2 * bin] = re;
    st.aiFiltPart[slot][2 * bin + 1] = im;
}

int32_t run(AecState &st, int blocks) {
    for (int i = 0; i < blocks; ++i) Sonvel_AEC_FilterDelayEstimate(&st);
    return st.s32MaxPartIdx;
}

TEST(DelaySearch, PeriodStrictComparisonAndSearchedRange) {
    for (const auto &rate : {lintest::k8k, lintest::k16k}) {
        const int period = 10 * rate.factor;
        const int last = rate.l == 64 ? 61 : 113;
        auto st = lintest::make_state(rate, 6);
        st->s32MaxPartIdx = 5;
        EXPECT_EQ(run(*st, period), 5);  // all zero: index kept
        set_bin(*st, 0, 10, 1 << 20);        // before the start slot
        set_bin(*st, 7, 0, 1 << 20);         // DC
        set_bin(*st, 8, last + 1, 1 << 20);  // above the last searched bin
        set_bin(*st, 9, last, 0, 3);         // last bin, imaginary part
        set_bin(*st, 11, last, 3);           // equal energy, later slot
        EXPECT_EQ(run(*st, period - 1), 5);
        EXPECT_EQ(run(*st, 1), 9);
    }
}

TEST(DelaySearch, InterleavedSingleSumsDecideBetweenNearlyEqualPartitions) {
    // Both slots hold 2^24 + 2. In slot 0 the two small terms share the running sum of the large
    // one and are lost to rounding; slot 1 keeps them in the other pair. Summed in bin order or in
    // double precision the two would tie and slot 0 would win.
    auto st = lintest::make_state(lintest::k8k);
    set_bin(*st, 0, 1, 4096);
    set_bin(*st, 0, 5, 1);
    set_bin(*st, 0, 9, 1);
    set_bin(*st, 1, 1, 4096);
    set_bin(*st, 1, 2, 1);
    set_bin(*st, 1, 4, 1);
    EXPECT_EQ(run(*st, 10), 1);
}

}  // namespace
