// Windowed overlap-add synthesis of the suppressor's output: block normalisation, inverse
// transform, undoing of the normalisation, input and window scales, and overlap-add with the
// previous frame. The frame step and Sonvel_AEC_OutPutSmooth share it.
#include "suppressor/synthesis.h"

#include <cstring>

#include "fixedpoint/block_float.h"
#include "sonvel_aec_stages.h"
#include "spectral/kernels.h"
#include "spectral/lane_check.h"
#include "spectral/processor.h"
#include "state/aec_state.h"
#include "suppressor/suppressor_lanes.h"

namespace sup {
namespace {

// frame[i] = round(spectrum[i] * win[i] shifted by t, 16) for i < len.
void unwindow(sp::Isa isa, const int32_t *spectrum, const int16_t *win, int t, int32_t *frame,
              int len) {
    if (sp::lanes_checked(isa, {{frame, 4u * len}},
                          [&](sp::Isa i) { unwindow(i, spectrum, win, t, frame, len); }))
        return;
    int i = sp::lanes_on(isa) ? lanes::unwindow(spectrum, win, t, frame, len) : 0;
    for (; i < len; ++i) {
        const int64_t p = static_cast<int64_t>(spectrum[i]) * win[i];
        frame[i] = fx::rnd(fx::shift_sat64(p, t), 16);
    }
}

// out[i] = sat16(prev[i] + frame[i]) for i < half.
void overlap_add(sp::Isa isa, const int32_t *prev, const int32_t *frame, int16_t *out, int half) {
    if (sp::lanes_checked(isa, {{out, 2u * half}},
                          [&](sp::Isa i) { overlap_add(i, prev, frame, out, half); }))
        return;
    int i = sp::lanes_on(isa) ? lanes::overlap_add(prev, frame, out, half) : 0;
    for (; i < half; ++i) out[i] = fx::sat16(fx::sat_add(prev[i], frame[i]));
}

}  // namespace

int32_t synthesize(AecState *state, int32_t *spectrum, const int16_t *win, int32_t *frame,
                   int16_t *out) {
    const int n = state->s16FftLen;
    const int half = state->s16BlockLen;
    const int order = state->s16FftOrder;
    const int len = state->s16FftLen2;
    const sp::Isa isa = sp::instance_isa(state);

    // 1. Normalise to log2 N guard bits and transform back.
    const int32_t k = sp::vector_norm(isa, spectrum, order, n + 1);
    const int32_t status = Sonvel_AEC_Realifft(spectrum, n, state->au8FftPlan);

    // 2. Undo the normaliser's shift, the input shift and the Q15 window.
    const int t = static_cast<int16_t>(order + 1 - state->s16RateShift - k);
    unwindow(isa, spectrum, win, t, frame, len);

    // 3. Overlap-add with the upper half of the previous frame, which the new frame replaces.
    int32_t *ola = state->ai32OlaBuf;
    overlap_add(isa, ola + half, frame, out, half);
    std::memcpy(ola, frame, sizeof(int32_t) * static_cast<size_t>(n));
    return status;
}

}  // namespace sup

extern "C" SONVEL_API int32_t Sonvel_AEC_OutPutSmooth(AecState *state, int32_t *spectrum,
                                                      const int16_t *win, int32_t *frame,
                                                      int16_t *out) {
    return sup::synthesize(state, spectrum, win, frame, out);
}
