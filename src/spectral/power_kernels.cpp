// Per-bin power kernels (placeholder bodies).
#include "sonvel_aec_spectral.h"

#include "state/aec_state.h"

extern "C" SONVEL_API void Sonvel_AEC_Complex_Energy_DQ_T(const int32_t *, const int32_t *, int32_t *, int32_t *,
                                                          int32_t) {}
extern "C" SONVEL_API void Sonvel_AEC_Complex_Energy_DQ_F(const int32_t *, const int32_t *, int32_t *, int32_t *,
                                                          int32_t) {}
extern "C" SONVEL_API void Sonvel_AEC_Complex_Energy_F(const int32_t *, int32_t *, int16_t, int16_t *, int32_t) {}
extern "C" SONVEL_API void Sonvel_AEC_Energy(const AecState *, const int32_t *, int32_t *) {}
