// Suppression frame step of one processing block.
//
// Interim step: until the residual echo suppressor is in place, the output block is the linear
// stage's error block, shifted back from the transform scale to 16-bit samples with saturation.
#include "sonvel_aec_stages.h"

#include "fixedpoint/block_float.h"
#include "state/aec_state.h"

extern "C" SONVEL_API int32_t Sonvel_AEC_Nlp(AecState *state, int16_t *out) {
    const int s = state->s16RateShift;
    for (int i = 0; i < state->s16BlockLen; ++i) {
        out[i] = fx::sat16(fx::shr_trunc(state->ai32ErrBlk[i], s));
    }
    return 0;
}
