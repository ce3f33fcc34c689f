// Logarithmic level of a block of 16-bit samples, as offered to outside callers.
#include "linear/linear_internal.h"
#include "sonvel_aec_stages.h"

extern "C" SONVEL_API int32_t Sonvel_AEC_GetFramedB(const AecState *state, const int16_t *x) {
    return lin::block_level(sp::instance_isa(state), x, state->s16BlockLen);
}
