// Divergence guard of the suppressor: a hysteresis state that, while the linear canceller's error
// carries more power than the near end, swaps the error spectrum for the near-end spectrum and
// drops the echo estimate; and the reset of every filter partition after a long enough run of
// blocks whose error power exceeds the near-end power by about 13 dB.
#include <algorithm>
#include <cstring>

#include "sonvel_aec_stages.h"

#include "fixedpoint/basic_ops.h"
#include "fixedpoint/extended_ops.h"
#include "state/aec_state.h"

namespace {

constexpr int16_t kLeaveFactor = 17203;  // 1.05 in Q14 (with the shift by 1)
constexpr int16_t kResetFactor = 20428;  // 19.95 in Q10 (with the shift by 5)
constexpr int kMinResetThreshold = 2;

// The near-end spectrum takes the place of the error, and the echo estimate is dropped, over
// words 0..N+3 (bins 0..L and one guard bin).
void substitute(int32_t *E, const int32_t *D, int32_t *Y, int words) {
    std::memcpy(E, D, sizeof(int32_t) * static_cast<size_t>(words));
    std::memset(Y, 0, sizeof(int32_t) * static_cast<size_t>(words));
}

// Entered when seSum > sdSum; left when sdSum > 1.05 * seSum. Returns whether to substitute.
bool update_state(AecState *st, int32_t seSum, int32_t sdSum) {
    if (st->s32Diverged != 0) {
        const int32_t a = fx::L_shl(fx::Mpy_32_16_opt(seSum, kLeaveFactor), 1);
        if (a < sdSum) {
            st->s32Diverged = 0;
            return false;
        }
        return true;
    }
    if (seSum > sdSum) {
        st->s32Diverged = 1;
        return true;
    }
    return false;
}

// Counts consecutive blocks with seSum above 19.95 * sdSum.
void update_run(AecState *st, int32_t seSum, int32_t sdSum) {
    const int32_t b = fx::L_shl(fx::Mpy_32_16_opt(sdSum, kResetFactor), 5);
    st->s16DivRunCnt = b < seSum ? static_cast<int16_t>(st->s16DivRunCnt + 1) : int16_t{0};
}

// Threshold from where the filter's energy sits: max(2, strongest slot - first slot), the
// difference taken as int16.
int reset_threshold(const AecState *st) {
    const auto diff = static_cast<int16_t>(static_cast<uint32_t>(st->s32MaxPartIdx) -
                                           static_cast<uint32_t>(st->s16StartPart));
    return std::max<int>(kMinResetThreshold, diff);
}

// Clears words 0..N+3 of all 12 partition slots, used or not.
void reset_filter(AecState *st, int words) {
    for (auto &slot : st->aiFiltPart) {
        std::memset(slot, 0, sizeof(int32_t) * static_cast<size_t>(words));
    }
}

}  // namespace

extern "C" SONVEL_API void Sonvel_AEC_DivergeRistrict(AecState *state, int32_t *E, const int32_t *D,
                                                      int32_t *Y, int32_t seSum, int32_t sdSum) {
    const int words = state->s16FftLen + 4;

    // 1. Divergence state with hysteresis, and the substitution while it is set.
    if (update_state(state, seSum, sdSum)) substitute(E, D, Y, words);

    // 2. Run of strongly diverged blocks.
    update_run(state, seSum, sdSum);

    // 3.-4. Reset of the filter once the run exceeds the threshold.
    if (state->s16DivRunCnt > reset_threshold(state)) {
        state->s16DivRunCnt = 0;
        reset_filter(state, words);
    }
}
