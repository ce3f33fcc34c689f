/* Fixed-point operators: saturating 16/32-bit scalar operators, double-precision multiplies,
 * 32-bit division and logarithms, and the two tables they use. All are pure functions. */
#ifndef SONVEL_AEC_OPS_H
#define SONVEL_AEC_OPS_H

#include <stdint.h>
#include "sonvel_aec_export.h"

SONVEL_EXTERN_C_BEGIN

/* Scalar operators. */
SONVEL_API int16_t Sonvel_aec_add(int16_t a, int16_t b);
SONVEL_API int16_t Sonvel_aec_sub(int16_t a, int16_t b);
SONVEL_API int16_t Sonvel_aec_abs_s(int16_t a);
SONVEL_API int16_t Sonvel_aec_negate(int16_t a);
SONVEL_API int16_t Sonvel_aec_mult(int16_t a, int16_t b);
SONVEL_API int32_t Sonvel_aec_L_mult(int16_t a, int16_t b);
SONVEL_API int32_t Sonvel_aec_L_mpy(int16_t a, int16_t b);
SONVEL_API int32_t Sonvel_aec_L_mac(int32_t acc, int16_t a, int16_t b);
SONVEL_API int32_t Sonvel_aec_L_msu(int32_t acc, int16_t a, int16_t b);
SONVEL_API int32_t Sonvel_aec_L_add(int32_t a, int32_t b);
SONVEL_API int32_t Sonvel_aec_L_sub(int32_t a, int32_t b);
SONVEL_API int32_t Sonvel_aec_L_negate(int32_t a);
SONVEL_API int32_t Sonvel_aec_L_abs(int32_t a);
SONVEL_API int16_t Sonvel_aec_extract_h(int32_t a);
SONVEL_API int16_t Sonvel_aec_extract_l(int32_t a);
SONVEL_API int16_t Sonvel_aec_round(int32_t a);
SONVEL_API int32_t Sonvel_aec_L_deposit_h(int16_t a);
SONVEL_API int32_t Sonvel_aec_L_deposit_l(int16_t a);
SONVEL_API int16_t Sonvel_aec_sature(int32_t a);
SONVEL_API int32_t Sonvel_aec_sature_L(int64_t a);
SONVEL_API int16_t Sonvel_aec_shl(int16_t a, int16_t n);
SONVEL_API int16_t Sonvel_aec_shr(int16_t a, int16_t n);
SONVEL_API int16_t Sonvel_aec_shr_opt2(int16_t a, int16_t n);
SONVEL_API int32_t Sonvel_aec_L_shl(int32_t a, int16_t n);
SONVEL_API int32_t Sonvel_aec_L_shl_opt2(int32_t a, int16_t n);
SONVEL_API int32_t Sonvel_aec_L_shr(int32_t a, int16_t n);
SONVEL_API int32_t Sonvel_aec_L_shl_opt(int32_t a, int16_t n);
SONVEL_API int32_t Sonvel_aec_L_shr_opt(int32_t a, int16_t n);
SONVEL_API int16_t Sonvel_aec_norm_s(int16_t a);
SONVEL_API int16_t Sonvel_aec_norm_l(int32_t a);
SONVEL_API int16_t Sonvel_aec_norm_l_opt(int32_t a);
SONVEL_API int16_t Sonvel_aec_div_s(int16_t num, int16_t den);

/* Extended operators. */
SONVEL_API void Sonvel_aec_L_Extract(int32_t L, int16_t *hi, int16_t *lo);
SONVEL_API int32_t Sonvel_aec_L_Comp(int16_t hi, int16_t lo);
SONVEL_API int32_t Sonvel_aec_Mpy_32(int16_t hi1, int16_t lo1, int16_t hi2, int16_t lo2);
SONVEL_API int32_t Sonvel_aec_Mpy_32_16(int16_t hi, int16_t lo, int16_t n);
SONVEL_API int32_t Sonvel_aec_Mpy_32_opt(int32_t a, int32_t b);
SONVEL_API int32_t Sonvel_aec_Mpy_32_16_opt(int32_t a, int16_t n);
SONVEL_API int32_t Sonvel_aec_Mpy_32_16_opt2(int32_t a, int16_t n);
SONVEL_API int32_t Sonvel_aec_Mpy_32_opt2(int32_t a, int32_t b);
SONVEL_API int32_t Sonvel_aec_smulwt(int32_t a, int32_t b);
SONVEL_API int32_t Sonvel_aec_smlabb(int16_t a, int16_t b, int32_t acc);
SONVEL_API int32_t Sonvel_aec_L_qdadd(int32_t a, int32_t b);
SONVEL_API int32_t Sonvel_aec_L_qdsub(int32_t a, int32_t b);
SONVEL_API int32_t Sonvel_aec_subc(int32_t a, int32_t b);
SONVEL_API int32_t Sonvel_aec_Div_32_OP(int32_t num, int32_t den);
SONVEL_API int32_t Sonvel_aec_Log2(int32_t x, int16_t *exponent, int16_t *fraction);
SONVEL_API int32_t Sonvel_aec_Ln_OP(int32_t x);

/* Base-2 logarithm table: upper half log2(1 + j/32) in Q15, lower half the step to the next. */
SONVEL_API extern const int32_t Sonvel_AEC_gaiAecLog2Tab[32];
/* 2^(-i/100) in Q15 for i = 0..100. */
SONVEL_API extern const int16_t Sonvel_AEC_gasAecpow2tab[101];

SONVEL_EXTERN_C_END

#endif
