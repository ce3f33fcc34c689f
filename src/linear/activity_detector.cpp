// Level-based activity detector: a noise floor that falls quickly and rises slowly (faster after
// long activity and during the first blocks), a signal-level tracker, and the active/inactive
// decision with its run counters. All arithmetic is 16-bit and wraps like the stored counters.
#include <algorithm>
#include <cstdint>

#include "sonvel_aec_stages.h"
#include "state/aec_state.h"

namespace {

enum { kInactiveRun = 0, kFloor = 1, kTracker = 2, kActiveRun = 3 };

constexpr int16_t wrap16(int32_t v) { return static_cast<int16_t>(v); }

// (d * a) >> 15 with int16 operands, added to x, result wrapped to int16.
constexpr int16_t step_towards(int16_t x, int16_t d, int32_t a) {
    return wrap16(x + ((d * a) >> 15));
}

// Rise factor of the noise floor: fast start during the first blocks, then a slow rise that
// speeds up after long runs of activity.
int32_t floor_rise_factor(int32_t blockCount, int16_t activeRun) {
    if (blockCount < 51) return 16384;
    if (activeRun < 129) return 16;
    const int k = std::max(11 - (activeRun >> 6), 6);
    return 32767 >> k;
}

}  // namespace

extern "C" SONVEL_API void Sonvel_AEC_Vad(const AecState *state, int16_t *st, int16_t level,
                                          int16_t *flag) {
    // 1. Rise factor of the noise floor.
    const int32_t a = floor_rise_factor(state->s32CnBlockCnt, st[kActiveRun]);

    // 2. Noise floor: rises by a fraction a above a 3 dB margin, falls by 0.9 of the gap.
    const int16_t d = wrap16(level - st[kFloor]);
    if (d >= 616) {
        st[kFloor] = step_towards(st[kFloor], d, a);
    } else if (d < 0) {
        st[kFloor] = step_towards(st[kFloor], d, 29490);
    }

    // 3. Signal level: rises by 0.7 of the gap, falls by half beyond a 12 dB drop.
    const int16_t d2 = wrap16(level - st[kTracker]);
    if (d2 >= 1) {
        st[kTracker] = step_towards(st[kTracker], d2, 22938);
    } else if (d2 < -2460) {
        st[kTracker] = step_towards(st[kTracker], d2, 16384);
    }

    // 4. Decision against the updated floor and tracker.
    const bool active = wrap16(st[kTracker] - st[kFloor]) >= 1641 &&
                        wrap16(level - st[kFloor]) > 615 && level >= 7405;

    // 5. Run counters.
    if (active) {
        st[kActiveRun] = wrap16(st[kActiveRun] + 1);
        st[kInactiveRun] = 0;
    } else {
        st[kActiveRun] = 0;
        st[kInactiveRun] = wrap16(st[kInactiveRun] + 1);
    }

    // 6. Flag.
    *flag = active ? 1 : 0;
}
