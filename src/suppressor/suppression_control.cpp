// Overdrive control of the suppressor: the target overdrive derived from the lowest recent band
// gain and the attenuation target of the mode, its smoothing, the upward creep of the minimum
// trackers, and the per-bin overdrive handed to the gain shaping.
#include <algorithm>
#include <cstdint>

#include "sonvel_aec_stages.h"

#include "fixedpoint/basic_ops.h"
#include "fixedpoint/extended_ops.h"
#include "state/aec_state.h"

namespace {

// Overdrive in Q9 that takes the gain g0 (Q15) to e^-target (target in Q15), saturated to 32767.
int16_t overdrive_for(int16_t g0, int32_t target) {
    if (g0 == 0) g0 = 1;
    int32_t g = fx::L_negate(fx::Ln_OP(g0));
    if (g == 0) g = 1;
    const int16_t n = fx::norm_l(g);
    const int32_t q = fx::Div_32_OP(target, fx::L_shl(g, n));
    return fx::extract_h(fx::L_shl(fx::L_shl(q, static_cast<int16_t>(n - 22)), 16));
}

// First-order smoothing: slow when falling (0.99), fast when rising (0.9).
int16_t smooth_overdrive(int16_t m, int16_t o) {
    if (o < m) return fx::extract_h(fx::L_add(fx::L_mult(m, 32439), fx::L_mult(o, 328)));
    return fx::extract_h(fx::L_add(fx::L_mult(m, 29490), fx::L_mult(o, 3277)));
}

void fill_bins(int16_t *v, int16_t value, int count) {
    for (int k = 0; k < count; ++k) v[k] = value;
}

}  // namespace

extern "C" SONVEL_API int32_t Sonvel_AEC_HnlCtrl(AecState *state) {
    // 1. Normal mode unless a raised mode is chosen below.
    int32_t target = state->s32OvrdTarget0;
    int16_t floor = state->s16OvrdFloor0;
    bool update = false;
    state->s32OvrdBoost = 0;

    // 2. Recompute on the second block after a new minimum.
    if (state->s32NewMin == 1) ++state->s32MinHoldCnt;
    if (state->s32MinHoldCnt == 2) {
        update = true;
        state->s32NewMin = 0;
        state->s32MinHoldCnt = 0;
    }

    // 3. Raised mode: echo with a low mean incoherence.
    if (state->s16XdAvg < state->s16CohThr && state->s32EchoState == 1) {
        update = true;
        state->s32OvrdBoost = 1;
        target = state->s32OvrdTarget1;
        floor = state->s16OvrdFloor1;
    }

    // 4. Strongest mode: echo while the filter diverged and the far end is active.
    if (state->s32Diverged == 1 && state->s32EchoState == 1 && state->s16FarActive == 1) {
        update = true;
        state->s32OvrdBoost = 1;
        target = state->s32OvrdTarget2;
        floor = state->s16OvrdFloor2;
    }

    // 5. Target overdrive, not below the floor of the mode.
    if (update) {
        const int16_t r = overdrive_for(state->s16FbLocalMin, target);
        state->s16Ovrd = r < floor ? floor : r;
    }

    // 6. Let the minimum trackers creep upward.
    const bool narrow = state->s32RateFactor == 1;
    state->s16FbMin = fx::add(state->s16FbMin, narrow ? 26 : 13);
    state->s16XdAvgMin = fx::add(state->s16XdAvgMin, narrow ? 13 : 7);

    // 7-8. Smoothing.
    state->s16OvrdSm = smooth_overdrive(state->s16OvrdSm, state->s16Ovrd);
    return state->s16OvrdSm;
}

extern "C" SONVEL_API void Sonvel_AEC_HnlCtrl1(AecState *state) {
    const int half = state->s16HalfFftLen;
    int16_t *bin_ovrd = state->as16BinOvrd;

    if (state->s32OvrdBoost == 1) {
        // 1. Boosted: every bin at least the strongest floor.
        if (state->s16OvrdSm < state->s16OvrdFloor2) state->s16OvrdSm = state->s16OvrdFloor2;
        fill_bins(bin_ovrd, state->s16OvrdSm, half + 1);
    } else if (state->s32OvrdBoost == 0 && state->s32EchoState == 1) {
        // 2. Plain echo: keep the last values, capped at the raised floor.
        const int16_t cap = state->s16OvrdFloor1;
        for (int k = 0; k < half + 8; ++k) bin_ovrd[k] = std::min(bin_ovrd[k], cap);
    } else {
        // 3. No echo: the smoothed overdrive, at least the floor of the near-end state.
        const int16_t floor =
            state->s32NearState == 1 ? state->s16OvrdFloor0 : state->s16OvrdFloor1;
        if (state->s16OvrdSm < floor) state->s16OvrdSm = floor;
        fill_bins(bin_ovrd, state->s16OvrdSm, half + 1);
    }
}
