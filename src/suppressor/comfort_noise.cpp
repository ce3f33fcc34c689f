// Comfort noise: per-bin noise-floor tracking of the near-end power and generation of the
// random-phase noise that fills the suppressed bins of the output spectrum.
#include "sonvel_aec_stages.h"

#include "state/aec_state.h"

extern "C" SONVEL_API void Sonvel_AEC_ComfortNoiseEstimate(AecState *) {}
extern "C" SONVEL_API void Sonvel_AEC_ComfortNoise(AecState *, const int16_t *, const int32_t *,
                                                   int32_t *) {}
