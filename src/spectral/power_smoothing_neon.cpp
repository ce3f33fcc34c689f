// Vectorised loops of the power and smoothing kernels for aarch64 (NEON): four elements or four
// bins per step, the bins split into their re and im lanes by the structure loads. Lane by lane
// they compute the per-element definitions of kernel_elements.h; the rounding narrows, saturating
// shifts and sums and the float conversion of NEON have exactly their roundings and saturation,
// for every factor.
#include "spectral/power_smoothing_vec.h"

#if defined(__aarch64__)

#include "spectral/kernel_elements.h"
#include "spectral/simd_neon.h"

namespace sp::vec {
namespace {

using V = int32x4_t;

struct Mant4 {
    V m;
    V q;
};

// ---- Loads and stores ----

// Four int16 Q values widened to int32 lanes, and the low 16 bits of each lane back.
inline V load_q4(const int16_t *p) { return vmovl_s16(vld1_s16(p)); }
inline void store_q4(int16_t *p, V q) { vst1_s16(p, vmovn_s32(q)); }

// ---- Lane versions of the per-element definitions ----

using simd::bin_power4;
using simd::mul_rnd15;
using simd::Power4;

// sp::normalise.
inline Mant4 normalise4(V s, V q) {
    const V g = simd::hr32(s);
    return {vshlq_s32(s, g), vaddq_s32(q, g)};
}

// sp::smooth_element.
inline Mant4 smooth4(V x, V qx, V y, V qy, V a) {
    const V ys = mul_rnd15(y, a);
    const V xs = mul_rnd15(x, vsubq_s32(vdupq_n_s32(kOne15), a));
    const V qm = vminq_s32(qx, qy);
    const V xa = simd::shr_trunc32(xs, vsubq_s32(qx, qm));
    const V ya = simd::shr_trunc32(ys, vsubq_s32(qy, qm));
    return normalise4(simd::sat_add32(xa, ya), qm);
}

// fx::rnd(fx::shift_sat64(p, h), 32) of the low and high pairs of lanes.
inline V scale_rnd32(int64x2_t lo, int64x2_t hi, V h) {
    const int64x2_t t_lo = vqshlq_s64(lo, vmovl_s32(vget_low_s32(h)));
    const int64x2_t t_hi = vqshlq_s64(hi, vmovl_high_s32(h));
    return simd::rnd64x2<32>(t_lo, t_hi);
}

// sp::conj_mult_q of four bins given as re and im lanes: the parts and their headroom sums.
struct ConjQ4 {
    Mant4 re;
    Mant4 im;
};

inline ConjQ4 conj_mult_q4(int32x4x2_t a, int32x4x2_t b) {
    // 1. c = -b.im; headroom sums of the factors of each part, the smaller of each pair.
    const V ar = a.val[0], ai = a.val[1], br = b.val[0];
    const V c = simd::neg_wrap32(b.val[1]);
    const V har = simd::hr32(ar), hai = simd::hr32(ai), hbr = simd::hr32(br), hc = simd::hr32(c);
    const V h_re = vminq_s32(vaddq_s32(har, hbr), vaddq_s32(hai, hc));
    const V h_im = vminq_s32(vaddq_s32(har, hc), vaddq_s32(hai, hbr));
    // 2. Products with 64-bit saturation: re = ar br - ai c, im = ar c + ai br.
    const int64x2_t re_lo = simd::sat_sub64(simd::mul_low(ar, br), simd::mul_low(ai, c));
    const int64x2_t re_hi = simd::sat_sub64(simd::mul_high(ar, br), simd::mul_high(ai, c));
    const int64x2_t im_lo = simd::sat_add64(simd::mul_low(ar, c), simd::mul_low(ai, br));
    const int64x2_t im_hi = simd::sat_add64(simd::mul_high(ar, c), simd::mul_high(ai, br));
    // 3. Scaled up by the headroom sums with saturation, rounded by 32 bits.
    return {{scale_rnd32(re_lo, re_hi, h_re), h_re}, {scale_rnd32(im_lo, im_hi, h_im), h_im}};
}

}  // namespace

// ---- The loops ----

int32_t smooth_dg_f(const int32_t *x, int32_t *y, const int16_t *qx, int16_t *qy, const int16_t *a,
                    int32_t count) {
    int32_t i = 0;
    for (; i + 4 <= count; i += 4) {
        const Mant4 m = smooth4(simd::load4(x + i), load_q4(qx + i), simd::load4(y + i),
                                load_q4(qy + i), load_q4(a + i));
        simd::store4(y + i, m.m);
        store_q4(qy + i, m.q);
    }
    return i;
}

int32_t energy_smooth_f(const int32_t *x, int32_t *y, int qoff, int16_t *qy, int32_t a,
                        int32_t bins) {
    const V f = vdupq_n_s32(a);
    const V off = vdupq_n_s32(qoff);
    int32_t k = 0;
    for (; k + 4 <= bins; k += 4) {
        const int32x4x2_t v = simd::load4c(x + 2 * k);
        const Power4 p = bin_power4(v.val[0], v.val[1]);
        const V qe = vaddq_s32(vshlq_n_s32(p.h, 1), off);
        const Mant4 m = smooth4(p.e, qe, simd::load4(y + k), load_q4(qy + k), f);
        simd::store4(y + k, m.m);
        store_q4(qy + k, m.q);
    }
    return k;
}

int32_t conj_mult_smooth_q(const int32_t *a, const int32_t *b, int32_t *y, int qoff, int16_t *qy,
                           int32_t s, int32_t words) {
    const V f = vdupq_n_s32(s);
    const V off = vdupq_n_s32(qoff);
    int32_t w = 0;
    for (; w + 8 <= words; w += 8) {
        const ConjQ4 c = conj_mult_q4(simd::load4c(a + w), simd::load4c(b + w));
        const int32x4x2_t yv = simd::load4c(y + w);
        const int16x4x2_t qv = vld2_s16(qy + w);
        const V qre = vaddq_s32(c.re.q, off);
        const V qim = vaddq_s32(c.im.q, off);
        const Mant4 re = smooth4(c.re.m, qre, yv.val[0], vmovl_s16(qv.val[0]), f);
        const Mant4 im = smooth4(c.im.m, qim, yv.val[1], vmovl_s16(qv.val[1]), f);
        simd::store4c(y + w, int32x4x2_t{{re.m, im.m}});
        vst2_s16(qy + w, int16x4x2_t{{vmovn_s32(re.q), vmovn_s32(im.q)}});
    }
    return w;
}

int32_t energy_f(const int32_t *x, int32_t *e, int qoff, int16_t *qe, int32_t bins) {
    const V off = vdupq_n_s32(qoff);
    int32_t k = 0;
    for (; k + 4 <= bins; k += 4) {
        const int32x4x2_t v = simd::load4c(x + 2 * k);
        const Power4 p = bin_power4(v.val[0], v.val[1]);
        const Mant4 m = normalise4(p.e, vaddq_s32(vshlq_n_s32(p.h, 1), off));
        simd::store4(e + k, m.m);
        store_q4(qe + k, m.q);
    }
    return k;
}

int32_t energy_dq_f(const int32_t *x, const int32_t *qx, int32_t *e, int32_t *qe, int32_t bins) {
    int32_t k = 0;
    for (; k + 4 <= bins; k += 4) {
        const int32x4x2_t v = simd::load4c(x + 2 * k);
        const int32x4x2_t q = simd::load4c(qx + 2 * k);
        // 1. The smaller Q of the bin; each part shifted right by twice its excess, at most 32
        // (the excess read as unsigned: it may pass 2^31).
        const V qm = vminq_s32(q.val[0], q.val[1]);
        const uint32x4_t sixteen = vdupq_n_u32(16);
        const uint32x4_t ex_re = vminq_u32(vreinterpretq_u32_s32(vsubq_s32(q.val[0], qm)), sixteen);
        const uint32x4_t ex_im = vminq_u32(vreinterpretq_u32_s32(vsubq_s32(q.val[1], qm)), sixteen);
        // 2. int(float(x)^2 * 2^-32) of each part, aligned, added with saturation.
        const float32x4_t r = simd::i2f(v.val[0]);
        const float32x4_t i = simd::i2f(v.val[1]);
        const V pr = simd::f2i(vmulq_n_f32(vmulq_f32(r, r), kTwoPowM32));
        const V pi = simd::f2i(vmulq_n_f32(vmulq_f32(i, i), kTwoPowM32));
        const V er = simd::shr_trunc32(pr, vreinterpretq_s32_u32(vshlq_n_u32(ex_re, 1)));
        const V ei = simd::shr_trunc32(pi, vreinterpretq_s32_u32(vshlq_n_u32(ex_im, 1)));
        simd::store4(e + k, simd::sat_add32(er, ei));
        // 3. Q value 2 qm - 32, wrapped.
        const V qsum = vreinterpretq_s32_u32(
            vsubq_u32(vshlq_n_u32(vreinterpretq_u32_s32(qm), 1), vdupq_n_u32(32)));
        simd::store4(qe + k, qsum);
    }
    return k;
}

int32_t far_power(const int32_t *x, int s, int32_t *p, int32_t bins) {
    const V scale = vdupq_n_s32(2 * (9 - s));
    int32_t k = 0;
    for (; k + 4 <= bins; k += 4) {
        const int32x4x2_t v = simd::load4c(x + 2 * k);
        const Power4 bp = bin_power4(v.val[0], v.val[1]);
        const V e = simd::shift_sat32(bp.e, vsubq_s32(scale, vshlq_n_s32(bp.h, 1)));
        const float32x4_t fresh = vmulq_n_f32(simd::i2f(e), 3277.0f);
        const float32x4_t old = vmulq_n_f32(simd::i2f(simd::load4(p + k)), 29490.0f);
        const float32x4_t sum = vaddq_f32(fresh, old);
        simd::store4(p + k, simd::f2i(vmulq_n_f32(sum, kTwoPowM15)));
    }
    return k;
}

}  // namespace sp::vec

#endif
