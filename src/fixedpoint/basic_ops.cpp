// Exported scalar operators: each forwards to its inline twin in basic_ops.h, so the library
// and its internal callers give identical results.
#include "sonvel_aec_ops.h"

#include "fixedpoint/basic_ops.h"

extern "C" SONVEL_API int16_t Sonvel_aec_add(int16_t a, int16_t b) { return fx::add(a, b); }
extern "C" SONVEL_API int16_t Sonvel_aec_sub(int16_t a, int16_t b) { return fx::sub(a, b); }
extern "C" SONVEL_API int16_t Sonvel_aec_abs_s(int16_t a) { return fx::abs_s(a); }
extern "C" SONVEL_API int16_t Sonvel_aec_negate(int16_t a) { return fx::negate(a); }
extern "C" SONVEL_API int16_t Sonvel_aec_mult(int16_t a, int16_t b) { return fx::mult(a, b); }
extern "C" SONVEL_API int32_t Sonvel_aec_L_mult(int16_t a, int16_t b) { return fx::L_mult(a, b); }
extern "C" SONVEL_API int32_t Sonvel_aec_L_mpy(int16_t a, int16_t b) { return fx::L_mpy(a, b); }
extern "C" SONVEL_API int32_t Sonvel_aec_L_mac(int32_t acc, int16_t a, int16_t b) {
    return fx::L_mac(acc, a, b);
}
extern "C" SONVEL_API int32_t Sonvel_aec_L_msu(int32_t acc, int16_t a, int16_t b) {
    return fx::L_msu(acc, a, b);
}
extern "C" SONVEL_API int32_t Sonvel_aec_L_add(int32_t a, int32_t b) { return fx::L_add(a, b); }
extern "C" SONVEL_API int32_t Sonvel_aec_L_sub(int32_t a, int32_t b) { return fx::L_sub(a, b); }
extern "C" SONVEL_API int32_t Sonvel_aec_L_negate(int32_t a) { return fx::L_negate(a); }
extern "C" SONVEL_API int32_t Sonvel_aec_L_abs(int32_t a) { return fx::L_abs(a); }
extern "C" SONVEL_API int16_t Sonvel_aec_extract_h(int32_t a) { return fx::extract_h(a); }
extern "C" SONVEL_API int16_t Sonvel_aec_extract_l(int32_t a) { return fx::extract_l(a); }
extern "C" SONVEL_API int16_t Sonvel_aec_round(int32_t a) { return fx::round(a); }
extern "C" SONVEL_API int32_t Sonvel_aec_L_deposit_h(int16_t a) { return fx::L_deposit_h(a); }
extern "C" SONVEL_API int32_t Sonvel_aec_L_deposit_l(int16_t a) { return fx::L_deposit_l(a); }
extern "C" SONVEL_API int16_t Sonvel_aec_sature(int32_t a) { return fx::sature(a); }
extern "C" SONVEL_API int32_t Sonvel_aec_sature_L(int64_t a) { return fx::sature_L(a); }
extern "C" SONVEL_API int16_t Sonvel_aec_shl(int16_t a, int16_t n) { return fx::shl(a, n); }
extern "C" SONVEL_API int16_t Sonvel_aec_shr(int16_t a, int16_t n) { return fx::shr(a, n); }
extern "C" SONVEL_API int16_t Sonvel_aec_shr_opt2(int16_t a, int16_t n) {
    return fx::shr_opt2(a, n);
}
extern "C" SONVEL_API int32_t Sonvel_aec_L_shl(int32_t a, int16_t n) { return fx::L_shl(a, n); }
extern "C" SONVEL_API int32_t Sonvel_aec_L_shl_opt2(int32_t a, int16_t n) {
    return fx::L_shl_opt2(a, n);
}
extern "C" SONVEL_API int32_t Sonvel_aec_L_shr(int32_t a, int16_t n) { return fx::L_shr(a, n); }
extern "C" SONVEL_API int32_t Sonvel_aec_L_shl_opt(int32_t a, int16_t n) {
    return fx::L_shl_opt(a, n);
}
extern "C" SONVEL_API int32_t Sonvel_aec_L_shr_opt(int32_t a, int16_t n) {
    return fx::L_shr_opt(a, n);
}
extern "C" SONVEL_API int16_t Sonvel_aec_norm_s(int16_t a) { return fx::norm_s(a); }
extern "C" SONVEL_API int16_t Sonvel_aec_norm_l(int32_t a) { return fx::norm_l(a); }
extern "C" SONVEL_API int16_t Sonvel_aec_norm_l_opt(int32_t a) { return fx::norm_l_opt(a); }
extern "C" SONVEL_API int16_t Sonvel_aec_div_s(int16_t num, int16_t den) {
    return fx::div_s(num, den);
}
