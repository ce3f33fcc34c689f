/* Complex fixed-point FFT service: plan set-up and forward / inverse transforms of signed 32-bit
 * complex data (interleaved re, im). The library ships its own implementation; a platform library
 * with the same symbols may replace it at link time. */
#ifndef SONVEL_AEC_FFT_H
#define SONVEL_AEC_FFT_H

#include <stdint.h>
#include "sonvel_aec_export.h"

SONVEL_EXTERN_C_BEGIN

/* Bytes a plan may occupy. */
#define SONVEL_FFT_PLAN_BYTES 3664

/* Prepares the plan area (at least SONVEL_FFT_PLAN_BYTES bytes, 8-byte aligned) for transforms of
 * length 2^order. Supported orders: 7 and 8. Returns 0 on success, a non-zero status otherwise
 * (null plan, misaligned plan, unsupported order). */
SONVEL_API int32_t Sonvel_FFTInit_C_SC32(void *plan, int32_t order);

/* dst[k] = 2^-scaleFactor * sum_n src[n] e^{-j 2 pi k n / N}. src and dst hold N complex values
 * and must not overlap. Returns 0, or non-zero for a null pointer or an unprepared plan. */
SONVEL_API int32_t Sonvel_FFTFwd_CToC_SC32_Sfs(const int32_t *src, int32_t *dst, const void *plan,
                                               int32_t scaleFactor);

/* dst[n] = 2^-scaleFactor * (1/N) sum_k src[k] e^{+j 2 pi k n / N}. */
SONVEL_API int32_t Sonvel_FFTInv_CToC_SC32_Sfs(const int32_t *src, int32_t *dst, const void *plan,
                                               int32_t scaleFactor);

SONVEL_EXTERN_C_END

#endif
