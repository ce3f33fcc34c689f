// Exported extended operators: each forwards to its inline twin in extended_ops.h.
#include "sonvel_aec_ops.h"

#include "fixedpoint/extended_ops.h"

extern "C" SONVEL_API void Sonvel_aec_L_Extract(int32_t L, int16_t *hi, int16_t *lo) {
    fx::L_Extract(L, hi, lo);
}
extern "C" SONVEL_API int32_t Sonvel_aec_L_Comp(int16_t hi, int16_t lo) {
    return fx::L_Comp(hi, lo);
}
extern "C" SONVEL_API int32_t Sonvel_aec_Mpy_32(int16_t hi1, int16_t lo1, int16_t hi2,
                                                int16_t lo2) {
    return fx::Mpy_32(hi1, lo1, hi2, lo2);
}
extern "C" SONVEL_API int32_t Sonvel_aec_Mpy_32_16(int16_t hi, int16_t lo, int16_t n) {
    return fx::Mpy_32_16(hi, lo, n);
}
extern "C" SONVEL_API int32_t Sonvel_aec_Mpy_32_opt(int32_t a, int32_t b) {
    return fx::Mpy_32_opt(a, b);
}
extern "C" SONVEL_API int32_t Sonvel_aec_Mpy_32_16_opt(int32_t a, int16_t n) {
    return fx::Mpy_32_16_opt(a, n);
}
extern "C" SONVEL_API int32_t Sonvel_aec_Mpy_32_16_opt2(int32_t a, int16_t n) {
    return fx::Mpy_32_16_opt2(a, n);
}
extern "C" SONVEL_API int32_t Sonvel_aec_Mpy_32_opt2(int32_t a, int32_t b) {
    return fx::Mpy_32_opt2(a, b);
}
extern "C" SONVEL_API int32_t Sonvel_aec_smulwt(int32_t a, int32_t b) { return fx::smulwt(a, b); }
extern "C" SONVEL_API int32_t Sonvel_aec_smlabb(int16_t a, int16_t b, int32_t acc) {
    return fx::smlabb(a, b, acc);
}
extern "C" SONVEL_API int32_t Sonvel_aec_L_qdadd(int32_t a, int32_t b) { return fx::L_qdadd(a, b); }
extern "C" SONVEL_API int32_t Sonvel_aec_L_qdsub(int32_t a, int32_t b) { return fx::L_qdsub(a, b); }
extern "C" SONVEL_API int32_t Sonvel_aec_subc(int32_t a, int32_t b) { return fx::subc(a, b); }
extern "C" SONVEL_API int32_t Sonvel_aec_Div_32_OP(int32_t num, int32_t den) {
    return fx::Div_32_OP(num, den);
}
extern "C" SONVEL_API int32_t Sonvel_aec_Log2(int32_t x, int16_t *exponent, int16_t *fraction) {
    return fx::Log2(x, exponent, fraction);
}
extern "C" SONVEL_API int32_t Sonvel_aec_Ln_OP(int32_t x) { return fx::Ln_OP(x); }
