// Integer lane primitives for the vectorised per-bin loops on aarch64 (NEON, part of every
// ARMv8-A core): four int32 lanes or two int64 lanes per register. Each one gives, lane by lane,
// exactly the bits of its scalar twin in fixedpoint/block_float.h for every operand; most are
// single instructions whose saturation and rounding are the scalar ones.
#pragma once

#if defined(__aarch64__)

#include <arm_neon.h>

#include <cstdint>

namespace sp::simd {

// ---- Loads and stores (no alignment needed) ----

inline int32x4_t load4(const int32_t *p) { return vld1q_s32(p); }
inline void store4(int32_t *p, int32x4_t v) { vst1q_s32(p, v); }

// Four interleaved complex values as separate re and im lanes, and back.
inline int32x4x2_t load4c(const int32_t *p) { return vld2q_s32(p); }
inline void store4c(int32_t *p, int32x4x2_t v) { vst2q_s32(p, v); }

// ---- 32-bit lanes ----

// fx::hr of each lane (the instruction counts the bits after the sign bit that equal it).
inline int32x4_t hr32(int32x4_t x) { return vclsq_s32(x); }

// fx::sat_add / fx::sat_sub: the saturated value has the sign of the exact result, which on
// overflow is the sign of a.
inline int32x4_t sat_add32(int32x4_t a, int32x4_t b) { return vqaddq_s32(a, b); }
inline int32x4_t sat_sub32(int32x4_t a, int32x4_t b) { return vqsubq_s32(a, b); }

// sp::neg_wrap: two's-complement negation, -2^31 stays -2^31.
inline int32x4_t neg_wrap32(int32x4_t x) { return vnegq_s32(x); }

// fx::shr_trunc with a count per lane, counts >= 0 (from 32 on the sign fill). The instruction
// reads the count from the low byte, so counts are limited to 32 first.
inline int32x4_t shr_trunc32(int32x4_t x, int32x4_t c) {
    return vshlq_s32(x, vnegq_s32(vminq_s32(c, vdupq_n_s32(32))));
}

// fx::shift_sat with a signed count per lane: left with saturation (0 stays 0), truncating right
// for negative counts. Counts are limited to [-32, 32] for the same reason.
inline int32x4_t shift_sat32(int32x4_t x, int32x4_t c) {
    const int32x4_t cc = vmaxq_s32(vminq_s32(c, vdupq_n_s32(32)), vdupq_n_s32(-32));
    return vqshlq_s32(x, cc);
}

// fx::i2f and fx::f2i of each lane (the conversion truncates, saturates and maps NaN to 0).
inline float32x4_t i2f(int32x4_t x) { return vcvtq_f32_s32(x); }
inline int32x4_t f2i(float32x4_t f) { return vcvtq_s32_f32(f); }

// ---- 64-bit lanes ----

// Exact products of the low (high) two int32 lanes of a and b.
inline int64x2_t mul_low(int32x4_t a, int32x4_t b) {
    return vmull_s32(vget_low_s32(a), vget_low_s32(b));
}
inline int64x2_t mul_high(int32x4_t a, int32x4_t b) { return vmull_high_s32(a, b); }

// fx::sat_add64 / fx::sat_sub64.
inline int64x2_t sat_add64(int64x2_t a, int64x2_t b) { return vqaddq_s64(a, b); }
inline int64x2_t sat_sub64(int64x2_t a, int64x2_t b) { return vqsubq_s64(a, b); }

// fx::rnd(v, K) of each lane to int32 for K in 1..32: the rounding shift adds 2^(K-1) without
// overflow and the narrowing saturates.
template <int K>
inline int32x2_t rnd64(int64x2_t v) {
    return vqrshrn_n_s64(v, K);
}

// The same for four lanes: rounded low and high halves as one register.
template <int K>
inline int32x4_t rnd64x2(int64x2_t lo, int64x2_t hi) {
    return vqrshrn_high_n_s64(vqrshrn_n_s64(lo, K), hi, K);
}

// fx::rnd(v, k) with k known only at run time, 1..63.
inline int32x2_t rnd64(int64x2_t v, int k) {
    return vqmovn_s64(vrshlq_s64(v, vdupq_n_s64(-k)));
}

// fx::Mpy_32_16_opt2 of each lane for int16 factors f: the doubling high half of x * f * 2^15
// is (x * f) >> 16 and never saturates, as f * 2^15 is never -2^31.
inline int32x4_t mpy_32_16_opt2(int32x4_t x, int32x4_t f) {
    return vqdmulhq_s32(x, vshlq_n_s32(f, 15));
}

// ---- Composite steps ----

// fx::rnd(x * f, 15) of each lane, saturated.
inline int32x4_t mul_rnd15(int32x4_t x, int32x4_t f) {
    return rnd64x2<15>(mul_low(x, f), mul_high(x, f));
}

// sp::bin_power_f of four bins: e and the headroom h.
struct Power4 {
    int32x4_t e;
    int32x4_t h;
};

inline Power4 bin_power4(int32x4_t re, int32x4_t im) {
    const int32x4_t h = vminq_s32(hr32(re), hr32(im));
    const float32x4_t r = i2f(vshlq_s32(re, h));
    const float32x4_t i = i2f(vshlq_s32(im, h));
    const float32x4_t sum = vaddq_f32(vmulq_f32(r, r), vmulq_f32(i, i));
    return {f2i(vmulq_n_f32(sum, 0x1p-32f)), h};
}

}  // namespace sp::simd

#endif
