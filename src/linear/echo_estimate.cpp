// Echo estimate of the adaptive filter: far-end history times filter partitions, inverse
// transform, error against the near-end block.
#include "sonvel_aec_stages.h"

#include "state/aec_state.h"

extern "C" SONVEL_API void Sonvel_AEC_MdfFilter(AecState *, int32_t *, const int16_t *) {}
