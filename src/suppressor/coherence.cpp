// Coherence analysis of the suppressor (stub until the analysis lands).
#include "sonvel_aec_stages.h"

#include "state/aec_state.h"

extern "C" SONVEL_API void Sonvel_AEC_CrossCoh(const AecState *, int16_t *, int16_t) {}

extern "C" SONVEL_API void Sonvel_AEC_HnledCalc(AecState *, int16_t *, int16_t *) {}
