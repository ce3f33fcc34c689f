/* Spectral kernels: the real FFT pair over the complex FFT service and the complex vector kernels
 * (multiply-accumulate, powers, smoothing, normalisation, sorting) working on packed half spectra:
 * bins 0..N/2 as interleaved signed 32-bit (re, im) pairs followed by guard words. */
#ifndef SONVEL_AEC_SPECTRAL_H
#define SONVEL_AEC_SPECTRAL_H

#include <stdint.h>
#include "sonvel_aec_export.h"

SONVEL_EXTERN_C_BEGIN

/* Processing state of one instance (opaque to callers of the core interface). */
typedef struct AecState AecState;

/* Real block buf[0..n-1] -> packed half spectrum buf[0..n+1]. Returns the service status. */
SONVEL_API int32_t Sonvel_AEC_Realfft(int32_t *buf, int32_t n, const void *plan);
/* Packed half spectrum buf[0..n+1] -> real block buf[0..n-1]; buf[n], buf[n+1] keep their value. */
SONVEL_API int32_t Sonvel_AEC_Realifft(int32_t *buf, int32_t n, const void *plan);

/* Complex kernels; counts of complex kernels count bins. */
SONVEL_API void Sonvel_AEC_Complex_Mult(const int32_t *a, const int32_t *b, int32_t *out,
                                        int32_t n);
SONVEL_API void Sonvel_AEC_Complex_Mla(const int32_t *a, const int32_t *b, int32_t *acc, int32_t n);
SONVEL_API void Sonvel_AEC_Complex_ConjMult(const int32_t *a, const int32_t *b, int32_t *out,
                                            int32_t n);
SONVEL_API void Sonvel_AEC_Complex_ConjMult_Q(const int32_t *a, const int32_t *b, int32_t *out,
                                              int16_t q, int16_t *qout, int32_t n);
SONVEL_API void Sonvel_AEC_Complex_Energy_DQ_T(const int32_t *x, const int32_t *qx, int32_t *e,
                                               int32_t *qe, int32_t n);
SONVEL_API void Sonvel_AEC_Complex_Energy_DQ_F(const int32_t *x, const int32_t *qx, int32_t *e,
                                               int32_t *qe, int32_t n);
SONVEL_API void Sonvel_AEC_Complex_Energy_F(const int32_t *x, int32_t *e, int16_t q, int16_t *qe,
                                            int32_t n);
SONVEL_API void Sonvel_AEC_Smooth_DG_F(const int32_t *x, int32_t *y, const int16_t *qx, int16_t *qy,
                                       const int16_t *a, int16_t n);
SONVEL_API void Sonvel_AEC_Smooth_F(const int32_t *x, int32_t *y, const int16_t *qx, int16_t *qy,
                                    int16_t a, int16_t n);
SONVEL_API void Sonvel_AEC_Complex_Energy_Smooth_F(const int32_t *x, int32_t *y, int16_t q,
                                                   int16_t *qy, int16_t a, int32_t n);
SONVEL_API void Sonvel_AEC_Complex_ConjMult_Smooth_Q(const int32_t *a, const int32_t *b, int32_t *y,
                                                     int16_t q, int16_t *qy, int16_t s, int32_t n);
/* Normalises v to q guard bits (writes 1 into v[n+1..n+4]); returns the headroom found. */
SONVEL_API int32_t Sonvel_AEC_VetorNorm(int32_t *v, int32_t q, int32_t n);
/* Smoothed far-end power of spectrum x into p (bins 0..N/2+3), using the state's sizes. */
SONVEL_API void Sonvel_AEC_Energy(const AecState *state, const int32_t *x, int32_t *p);
/* Ascending exchange sort of v[0..n-1]; returns 0. */
SONVEL_API int32_t Sonvel_AEC_Qsort(int16_t *v, int16_t n);

SONVEL_EXTERN_C_END

#endif
