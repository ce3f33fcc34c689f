// Complex fixed-point FFT service: plan set-up and the forward / inverse transforms.
#include <cstdint>
#include <cstring>

#include "sonvel_aec_fft.h"

extern "C" SONVEL_API int32_t Sonvel_FFTInit_C_SC32(void *plan, int32_t order) {
    if (plan == nullptr || (order != 7 && order != 8)) return -1;
    return 0;
}

extern "C" SONVEL_API int32_t Sonvel_FFTFwd_CToC_SC32_Sfs(const int32_t *src, int32_t *dst,
                                                         const void *plan, int32_t scaleFactor) {
    (void)scaleFactor;
    if (src == nullptr || dst == nullptr || plan == nullptr) return -1;
    return 0;
}

extern "C" SONVEL_API int32_t Sonvel_FFTInv_CToC_SC32_Sfs(const int32_t *src, int32_t *dst,
                                                         const void *plan, int32_t scaleFactor) {
    (void)scaleFactor;
    if (src == nullptr || dst == nullptr || plan == nullptr) return -1;
    return 0;
}
