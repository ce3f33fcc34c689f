// Adaptation of the filter partitions: normalised, constrained frequency-domain gradient step.
#include "sonvel_aec_stages.h"

#include "state/aec_state.h"

extern "C" SONVEL_API void Sonvel_AEC_UpdateFilterParameter(AecState *, int32_t *) {}
