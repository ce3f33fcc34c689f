// Pieces shared by the linear canceller's stage functions: the work-buffer sizes, the geometry of
// one block read from the state and the logarithmic block level.
#pragma once

#include <algorithm>
#include <cstdint>

#include "fixedpoint/basic_ops.h"
#include "fixedpoint/block_float.h"
#include "fixedpoint/extended_ops.h"
#include "linear/linear_loops.h"
#include "state/aec_state.h"

namespace lin {

// Largest transform length; work buffers are sized for it.
inline constexpr int kMaxFft = 256;
// Far-end block and spectrum: N words plus four guard bins read by the power update.
inline constexpr int kFarWords = kMaxFft + 8;
// Echo estimate / error block handed from the echo estimate to the filter update.
inline constexpr int kErrWords = kMaxFft + 6;
// Partitions of the filter and the last slot a partition may use.
inline constexpr int kParts = 6;
inline constexpr int kMaxStartPart = sonvel::kSpecSlots - kParts;

// Sizes of one block, read once from the state.
struct Geometry {
    int n;      // transform length N
    int l;      // block length L = N / 2
    int order;  // log2 N
    int s;      // rate shift 15 - log2 N
    int start;  // first partition slot, bounded to 0..6
};

inline Geometry geometry(const AecState &st) {
    return {st.s16FftLen, st.s16BlockLen, st.s16FftOrder, st.s16RateShift,
            std::clamp<int>(st.s16StartPart, 0, kMaxStartPart)};
}

// Level of a block in 1/2048 bel: 977 + (617 * log2(sum x^2 / 256) - 559), taken as int16.
inline int16_t block_level(sp::Isa isa, const int16_t *x, int n) {
    const int64_t energy = sum_squares(isa, x, n);
    const auto a = static_cast<int32_t>(static_cast<uint64_t>(energy >> 8));
    int16_t e = 0;
    int16_t f = 0;
    fx::Log2(a, &e, &f);
    const int32_t v = fx::L_sub(fx::L_add(fx::L_mpy(617, e), fx::L_mpy(617, f) >> 15), 559);
    return static_cast<int16_t>(977 + v);
}

}  // namespace lin
