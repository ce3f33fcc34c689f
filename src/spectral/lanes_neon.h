// The lane vocabulary on aarch64 (NEON, part of every ARMv8-A core): four int32 lanes per
// register, the 64-bit values of a register's lanes as its low and its high half. Most steps are
// single instructions whose saturation and rounding are the scalar ones. Included through
// spectral/lanes.h.
#pragma once

#include <arm_neon.h>

#include <cstdint>

#include "spectral/reciprocal.h"

namespace ln {

using I32 = int32x4_t;
using F32 = float32x4_t;

inline constexpr int kLanes = 4;

// The 64-bit values of the lanes of a register: a holds those of the low two lanes, b those of
// the high two. Only steps of this vocabulary read them.
struct W64 {
    int64x2_t a;
    int64x2_t b;
};

// All ones in the lanes where a comparison holds, zeros elsewhere.
using Mask = uint32x4_t;

// Separate re and im lanes of consecutive interleaved complex values, in bin order.
struct Bins {
    I32 re;
    I32 im;
};

// ---- Loads, stores, constants ----

inline I32 load(const int32_t *p) { return vld1q_s32(p); }
inline void store(int32_t *p, I32 v) { vst1q_s32(p, v); }
inline I32 load16(const int16_t *p) { return vmovl_s16(vld1_s16(p)); }
inline void store16(int16_t *p, I32 v) { vst1_s16(p, vmovn_s32(v)); }
inline Bins load_bins(const int32_t *p) {
    const int32x4x2_t v = vld2q_s32(p);
    return {v.val[0], v.val[1]};
}
inline void store_bins(int32_t *p, Bins b) { vst2q_s32(p, int32x4x2_t{{b.re, b.im}}); }
inline F32 loadf(const float *p) { return vld1q_f32(p); }
inline void storef(float *p, F32 v) { vst1q_f32(p, v); }
inline Bins load16_bins(const int16_t *p) {
    const int16x4x2_t v = vld2_s16(p);
    return {vmovl_s16(v.val[0]), vmovl_s16(v.val[1])};
}
inline void store16_bins(int16_t *p, Bins b) {
    vst2_s16(p, int16x4x2_t{{vmovn_s32(b.re), vmovn_s32(b.im)}});
}
inline void store16_sat(int16_t *p, I32 v) { vst1_s16(p, vqmovn_s32(v)); }
inline I32 dup(int32_t v) { return vdupq_n_s32(v); }
inline F32 dupf(float v) { return vdupq_n_f32(v); }
inline I32 zero() { return vdupq_n_s32(0); }

// ---- 32-bit lanes: wrapping arithmetic and bits ----

inline I32 add(I32 a, I32 b) { return vaddq_s32(a, b); }
inline I32 sub(I32 a, I32 b) { return vsubq_s32(a, b); }
inline I32 min(I32 a, I32 b) { return vminq_s32(a, b); }
inline I32 max(I32 a, I32 b) { return vmaxq_s32(a, b); }
inline I32 min_u(I32 a, I32 b) {
    return vreinterpretq_s32_u32(vminq_u32(vreinterpretq_u32_s32(a), vreinterpretq_u32_s32(b)));
}
inline I32 bor(I32 a, I32 b) { return vorrq_s32(a, b); }
inline I32 mul_lo(I32 a, I32 b) { return vmulq_s32(a, b); }
inline I32 abs_sat(I32 x) { return vqabsq_s32(x); }
inline I32 band(I32 a, I32 b) { return vandq_s32(a, b); }
inline Mask gt(I32 a, I32 b) { return vcgtq_s32(a, b); }
inline Mask eq(I32 a, I32 b) { return vceqq_s32(a, b); }
inline Mask mask_or(Mask a, Mask b) { return vorrq_u32(a, b); }
inline I32 select(Mask m, I32 a, I32 b) { return vbslq_s32(m, a, b); }
inline I32 mask_and(Mask m, I32 v) { return vandq_s32(vreinterpretq_s32_u32(m), v); }
inline I32 count_set(I32 acc, Mask m) { return vsubq_s32(acc, vreinterpretq_s32_u32(m)); }
template <int N>
inline I32 rnd_shr_n(I32 x) {
    return vrshrq_n_s32(x, N);
}
template <int N>
inline I32 shl_n(I32 x) {
    return vreinterpretq_s32_u32(vshlq_n_u32(vreinterpretq_u32_s32(x), N));
}
inline I32 shl_all(I32 x, int c) { return vshlq_s32(x, vdupq_n_s32(c)); }
inline I32 shr_all(I32 x, int r) { return vshlq_s32(x, vdupq_n_s32(-r)); }
inline I32 shl(I32 x, I32 c) { return vshlq_s32(x, c); }
inline I32 mag(I32 x) { return veorq_s32(x, vshrq_n_s32(x, 31)); }
inline I32 neg_wrap(I32 x) { return vnegq_s32(x); }
inline I32 neg_sat(I32 x) { return vqnegq_s32(x); }
inline I32 reverse(I32 x) {
    const I32 r = vrev64q_s32(x);
    return vextq_s32(r, r, 2);
}
inline void store_real_bins(int32_t *p, const int32_t *re) {
    vst2q_s32(p, int32x4x2_t{{vld1q_s32(re), vdupq_n_s32(0)}});
}
inline I32 conj_reverse_pairs(I32 x) {
    const I32 r = vextq_s32(x, x, 2);
    const uint32x4_t odd = vreinterpretq_u32_u64(vdupq_n_u64(0xFFFFFFFF00000000ull));
    return vbslq_s32(odd, vqnegq_s32(r), r);
}
inline uint32_t or_lanes(I32 v) {
    const int32x2_t half = vorr_s32(vget_low_s32(v), vget_high_s32(v));
    return static_cast<uint32_t>(vget_lane_s32(half, 0) | vget_lane_s32(half, 1));
}
inline int32_t min_lanes(I32 v) { return vminvq_s32(v); }
inline I32 if_zero(I32 x, I32 b, I32 a) { return vbslq_s32(vceqq_s32(x, vdupq_n_s32(0)), b, a); }
inline bool any_negative(I32 v) { return vminvq_s32(v) < 0; }

// ---- 32-bit lanes: the fixed-point steps ----

// fx::hr (the instruction counts the bits after the sign bit that equal it).
inline I32 hr(I32 x) { return vclsq_s32(x); }
inline I32 hr_min(I32 a, I32 b) { return vminq_s32(vclsq_s32(a), vclsq_s32(b)); }
inline I32 sat_add(I32 a, I32 b) { return vqaddq_s32(a, b); }
inline I32 sat_sub(I32 a, I32 b) { return vqsubq_s32(a, b); }
// The instruction reads the count from the low byte, so counts are limited to 32 first.
inline I32 shr_trunc(I32 x, I32 c) {
    return vshlq_s32(x, vnegq_s32(vminq_s32(c, vdupq_n_s32(32))));
}
inline I32 shift_sat(I32 x, I32 c) {
    return vqshlq_s32(x, vmaxq_s32(vminq_s32(c, vdupq_n_s32(32)), vdupq_n_s32(-32)));
}

inline I32 shl_sat_all(I32 x, int c) { return vqshlq_s32(x, vdupq_n_s32(c < 32 ? c : 32)); }
// Counts limited to [-32, 32]: the instruction reads only the low byte of a count, and 32
// already gives 0 to the left and the sign fill to the right.
inline I32 shift_wrap(I32 x, I32 c) {
    return vshlq_s32(x, vmaxq_s32(vminq_s32(c, vdupq_n_s32(32)), vdupq_n_s32(-32)));
}

// ---- Float lanes (the conversion truncates, saturates and maps NaN to 0) ----

inline F32 i2f(I32 x) { return vcvtq_f32_s32(x); }
inline I32 f2i(F32 f) { return vcvtq_s32_f32(f); }
inline F32 fmul(F32 a, F32 b) { return vmulq_f32(a, b); }
// sp::recip, sp::rsqrt and sp::sqrt of each lane: the estimate and three Newton steps.
inline F32 recip(F32 x) {
    F32 r = vrecpeq_f32(x);
    for (int i = 0; i < 3; ++i) r = vmulq_f32(r, vrecpsq_f32(x, r));
    return r;
}
inline F32 rsqrt(F32 x) {
    F32 r = vrsqrteq_f32(x);
    for (int i = 0; i < 3; ++i) r = vmulq_f32(r, vrsqrtsq_f32(x, vmulq_f32(r, r)));
    return r;
}
inline F32 sqrt(F32 x) { return recip(rsqrt(x)); }
// sp::sqrt of each lane, +0 for zero lanes (the estimate steps give it).
inline F32 sqrt_or_zero(F32 x) { return sqrt(x); }
inline F32 fadd(F32 a, F32 b) { return vaddq_f32(a, b); }
inline F32 fsub(F32 a, F32 b) { return vsubq_f32(a, b); }

inline I32 iota(int32_t k) { return vaddq_s32(vdupq_n_s32(k), I32{0, 1, 2, 3}); }

// Table look-ups lane by lane.
template <typename T>
inline I32 lookup(const T *table, I32 idx) {
    alignas(16) int32_t i[4];
    vst1q_s32(i, idx);
    const int32_t e[4] = {table[i[0]], table[i[1]], table[i[2]], table[i[3]]};
    return vld1q_s32(e);
}

// ---- int16 lanes ----

using I16 = int16x8_t;
inline constexpr int kLanes16 = 8;
inline I16 load_i16(const int16_t *p) { return vld1q_s16(p); }
inline I16 dup_i16(int16_t v) { return vdupq_n_s16(v); }
inline I16 min_i16(I16 a, I16 b) { return vminq_s16(a, b); }
inline int16_t min_lanes_i16(I16 m) { return vminvq_s16(m); }
inline I16 sub_sat_i16(I16 a, I16 b) { return vqsubq_s16(a, b); }
inline void store_i16(int16_t *p, I16 v) { vst1q_s16(p, v); }

// ---- Sums of int32 lanes in 64 bits ----

using Acc64 = int64x2_t;
inline Acc64 acc64_zero() { return vdupq_n_s64(0); }
inline Acc64 acc64_add(Acc64 acc, I32 v) {
    return vaddw_high_s32(vaddw_s32(acc, vget_low_s32(v)), v);
}
inline int64_t acc64_total(Acc64 acc) { return vaddvq_s64(acc); }

// ---- 64-bit values ----

inline W64 mul_wide(I32 a, I32 b) {
    return {vmull_s32(vget_low_s32(a), vget_low_s32(b)), vmull_high_s32(a, b)};
}
inline W64 add64(W64 x, W64 y) { return {vaddq_s64(x.a, y.a), vaddq_s64(x.b, y.b)}; }
inline W64 sub64(W64 x, W64 y) { return {vsubq_s64(x.a, y.a), vsubq_s64(x.b, y.b)}; }
inline W64 sat_add64(W64 x, W64 y) { return {vqaddq_s64(x.a, y.a), vqaddq_s64(x.b, y.b)}; }
inline W64 sat_sub64(W64 x, W64 y) { return {vqsubq_s64(x.a, y.a), vqsubq_s64(x.b, y.b)}; }

// The rounding shift adds 2^(K-1) without overflow and the narrowing saturates.
template <int K>
inline I32 rnd_narrow(W64 v) {
    return vqrshrn_high_n_s64(vqrshrn_n_s64(v.a, K), v.b, K);
}

// The rounding shift by a run-time count and the saturating narrowing.
inline I32 rnd_narrow_var(W64 v, int k) {
    const int64x2_t c = vdupq_n_s64(-k);
    return vcombine_s32(vqmovn_s64(vrshlq_s64(v.a, c)), vqmovn_s64(vrshlq_s64(v.b, c)));
}

inline I32 scale_rnd32(W64 p, I32 h) {
    const int64x2_t ta = vqshlq_s64(p.a, vmovl_s32(vget_low_s32(h)));
    const int64x2_t tb = vqshlq_s64(p.b, vmovl_high_s32(h));
    return rnd_narrow<32>(W64{ta, tb});
}

inline I32 mul_rnd15(I32 x, I32 f) { return rnd_narrow<15>(mul_wide(x, f)); }

// The doubling high half of x * f * 2^15 is (x * f) >> 16 and never saturates, as f * 2^15 is
// never -2^31.
inline I32 mpy_32_16(I32 x, I32 f) { return vqdmulhq_s32(x, vshlq_n_s32(f, 15)); }

// ---- Complex values in the back end's own word order ----

// kLanes bins in two registers: the re parts in w[0] and the im parts in w[1] (the
// de-interleaving load and the interleaving store are single instructions). Steps that treat
// every word alike take w[0] and w[1] one by one; steps that pair a bin's parts are below.
struct Cplx {
    I32 w[2];
};
struct CplxMask {
    Mask w[2];
};
inline Cplx load_cplx(const int32_t *p) {
    const int32x4x2_t v = vld2q_s32(p);
    return {{v.val[0], v.val[1]}};
}
inline void store_cplx(int32_t *p, Cplx c) { vst2q_s32(p, int32x4x2_t{{c.w[0], c.w[1]}}); }
// int16 words in the same order, widened; and their low 16 bits back.
inline Cplx load16_cplx(const int16_t *p) {
    const int16x4x2_t v = vld2_s16(p);
    return {{vmovl_s16(v.val[0]), vmovl_s16(v.val[1])}};
}
inline void store16_cplx(int16_t *p, Cplx c) {
    vst2_s16(p, int16x4x2_t{{vmovn_s32(c.w[0]), vmovn_s32(c.w[1])}});
}
// Set in the words of the bins from index first (0..kLanes) of a step on.
inline CplxMask bins_from(int first) {
    const Mask m = vcgtq_s32(I32{0, 1, 2, 3}, vdupq_n_s32(first - 1));
    return {{m, m}};
}
// The words of a where m is set, of b elsewhere.
inline Cplx select(CplxMask m, Cplx a, Cplx b) {
    return {{vbslq_s32(m.w[0], a.w[0], b.w[0]), vbslq_s32(m.w[1], a.w[1], b.w[1])}};
}
// The conjugate: im parts negated, -2^31 staying -2^31 (sp::neg_wrap).
inline Cplx conj(Cplx c) { return {{c.w[0], vnegq_s32(c.w[1])}}; }
// Per bin: re <- min(ha.re + hb.re, ha.im + hb.im), im <- min(ha.re + hb.im, ha.im + hb.re) (the
// headroom sums of sp::conj_mult_q).
inline Cplx cross_min_sums(Cplx ha, Cplx hb) {
    return {{vminq_s32(vaddq_s32(ha.w[0], hb.w[0]), vaddq_s32(ha.w[1], hb.w[1])),
             vminq_s32(vaddq_s32(ha.w[0], hb.w[1]), vaddq_s32(ha.w[1], hb.w[0]))}};
}

// sp::cmul of each bin: re = ar br - ai bi exactly (it lies in [-2^63 + 2^31, 2^63 - 2^31]), im
// = ar bi + ai br with 64-bit saturation (only 2^63 itself, all four parts -2^31, saturates).
// The narrowing steps below give each part's bits for the saturated value.
struct CplxWide {
    W64 re;
    W64 im;
};
inline CplxWide cmul_wide(Cplx a, Cplx b) {
    return {sub64(mul_wide(a.w[0], b.w[0]), mul_wide(a.w[1], b.w[1])),
            sat_add64(mul_wide(a.w[0], b.w[1]), mul_wide(a.w[1], b.w[0]))};
}
// fx::rnd(part, K) saturated to int32, for K in 1..31.
template <int K>
inline Cplx rnd_narrow(CplxWide p) {
    return {{rnd_narrow<K>(p.re), rnd_narrow<K>(p.im)}};
}
// fx::rnd(fx::shift_sat64(part, h), 32) with the count h >= 0 of each word (sp::conj_mult_q).
inline Cplx scale_rnd32(CplxWide p, Cplx h) {
    return {{scale_rnd32(p.re, h.w[0]), scale_rnd32(p.im, h.w[1])}};
}

// ---- Float to int of lanes that are not NaN ----

// fx::f2i where no lane is NaN: the conversion itself.
inline I32 f2i_not_nan(F32 f) { return vcvtq_s32_f32(f); }

// ---- Rounded high half of a product ----

// fx::rnd(a * b, 32) per lane (never saturates).
inline I32 mul_rnd32(I32 a, I32 b) { return rnd_narrow<32>(mul_wide(a, b)); }
// ---- Suppressor: steps for operands known to lie in a narrower range ----

inline I32 hr_nonneg(I32 x) { return vclsq_s32(x); }
inline I32 f2i_in_range(F32 f) { return vcvtq_s32_f32(f); }
inline F32 recip_moderate(F32 x) { return recip(x); }
inline I32 shift_sat_nonneg(I32 x, I32 c) { return shift_sat(x, c); }
inline F32 rsqrt_moderate(F32 x) { return rsqrt(x); }
inline F32 sqrt_moderate(F32 x) { return sqrt(x); }
inline F32 sqrt_or_zero_moderate(F32 x) { return sqrt_or_zero(x); }
using Mask16 = uint16x8_t;
inline Mask16 gt_i16(I16 a, I16 b) { return vcgtq_s16(a, b); }
inline Mask16 eq_i16(I16 a, I16 b) { return vceqq_s16(a, b); }
inline Mask16 mask16_and(Mask16 a, Mask16 b) { return vandq_u16(a, b); }
inline I16 count_set_i16(I16 acc, Mask16 m) { return vsubq_s16(acc, vreinterpretq_s16_u16(m)); }
inline I16 discount_i16(I16 acc, Mask16 m) { return vaddq_s16(acc, vreinterpretq_s16_u16(m)); }

}  // namespace ln
