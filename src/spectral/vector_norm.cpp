// Block normaliser (placeholder body).
#include "sonvel_aec_spectral.h"

extern "C" SONVEL_API int32_t Sonvel_AEC_VetorNorm(int32_t *, int32_t, int32_t) { return 0; }
