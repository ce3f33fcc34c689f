// First-order smoothing kernels (placeholder bodies).
#include "sonvel_aec_spectral.h"

extern "C" SONVEL_API void Sonvel_AEC_Smooth_DG_F(const int32_t *, int32_t *, const int16_t *, int16_t *,
                                                  const int16_t *, int16_t) {}
extern "C" SONVEL_API void Sonvel_AEC_Smooth_F(const int32_t *, int32_t *, const int16_t *, int16_t *, int16_t,
                                               int16_t) {}
extern "C" SONVEL_API void Sonvel_AEC_Complex_Energy_Smooth_F(const int32_t *, int32_t *, int16_t, int16_t *,
                                                              int16_t, int32_t) {}
extern "C" SONVEL_API void Sonvel_AEC_Complex_ConjMult_Smooth_Q(const int32_t *, const int32_t *, int32_t *,
                                                                int16_t, int16_t *, int16_t, int32_t) {}
