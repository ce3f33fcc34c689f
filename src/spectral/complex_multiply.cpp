// Complex multiply kernels over packed spectra (placeholder bodies).
#include "sonvel_aec_spectral.h"

extern "C" SONVEL_API void Sonvel_AEC_Complex_Mult(const int32_t *, const int32_t *, int32_t *, int32_t) {}
extern "C" SONVEL_API void Sonvel_AEC_Complex_Mla(const int32_t *, const int32_t *, int32_t *, int32_t) {}
extern "C" SONVEL_API void Sonvel_AEC_Complex_ConjMult(const int32_t *, const int32_t *, int32_t *, int32_t) {}
extern "C" SONVEL_API void Sonvel_AEC_Complex_ConjMult_Q(const int32_t *, const int32_t *, int32_t *, int16_t,
                                                         int16_t *, int32_t) {}
