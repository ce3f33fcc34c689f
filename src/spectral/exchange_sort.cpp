// Exchange sort (placeholder body).
#include "sonvel_aec_spectral.h"

extern "C" SONVEL_API int32_t Sonvel_AEC_Qsort(int16_t *, int16_t) { return 0; }
