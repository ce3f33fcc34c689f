// Search for the filter partition with the largest energy (echo-path delay in blocks).
#include "sonvel_aec_stages.h"

#include "state/aec_state.h"

extern "C" SONVEL_API void Sonvel_AEC_FilterDelayEstimate(AecState *) {}
