// Vectorised loops of the suppressor's frame step, gain shaping and synthesis for aarch64 (NEON):
// four elements (or bins) per step, eight for the 16-bit minimum. Lane by lane they compute the
// scalar definitions of their callers: the same integer roundings and saturations, the same float
// products in the same order. The table look-ups of the overdrive power are done per lane.
#include "suppressor/suppressor_lanes.h"

#if defined(__aarch64__)

#include "sonvel_aec_ops.h"
#include "spectral/kernel_elements.h"
#include "spectral/simd_neon.h"

namespace sup::lanes {
namespace {

using V = int32x4_t;
namespace simd = sp::simd;

// Four int16 values widened to int32 lanes.
inline V load16x4(const int16_t *p) { return vmovl_s16(vld1_s16(p)); }

// Adds the four int32 lanes of v to the two int64 lanes of acc.
inline int64x2_t add_wide(int64x2_t acc, V v) {
    return vaddw_high_s32(vaddw_s32(acc, vget_low_s32(v)), v);
}

// The entries of table at the indices of idx, widened to int32.
template <typename T>
inline V lookup4(const T *table, V idx) {
    alignas(16) int32_t i[4];
    vst1q_s32(i, idx);
    const int32_t e[4] = {table[i[0]], table[i[1]], table[i[2]], table[i[3]]};
    return vld1q_s32(e);
}

// (wc * min(g, fb) + (32767 - wc) * g) >> 15; the int32 sum never overflows (see the AVX2 twin).
inline V weigh4(V g, V fb, V wc) {
    const V toward = vmulq_s32(wc, vminq_s32(g, fb));
    const V keep = vmulq_s32(vsubq_s32(vdupq_n_s32(32767), wc), g);
    return vshrq_n_s32(vaddq_s32(toward, keep), 15);
}

// g^(od / 512) as sonvel::shaping::overdrive_power, for g and od in the int16 range: log2 of g from
// its table, t = 15 - log2(g) in Q15, u = t * od >> 16 (low 32 bits), the power table entry at the
// fraction of u shifted right by its integer part, negative counts taken modulo 32.
inline V overdrive4(V g, V od) {
    const uint32x4_t positive = vcgtzq_s32(g);
    const V x = vmaxq_s32(g, vdupq_n_s32(1));
    const V n = simd::hr32(x);
    const V y = vshlq_s32(x, n);
    const V i = vsubq_s32(vshrq_n_s32(y, 25), vdupq_n_s32(32));
    const V a = vandq_s32(vshrq_n_s32(y, 10), vdupq_n_s32(0x7FFF));
    const V e = lookup4(Sonvel_AEC_gaiAecLog2Tab, i);
    const V top = vandq_s32(e, vdupq_n_s32(static_cast<int32_t>(0xFFFF0000u)));
    const V low = vshrq_n_s32(vshlq_n_s32(e, 16), 16);
    const V r = simd::sat_sub32(top, vshlq_n_s32(vmulq_s32(low, a), 1));
    const V exponent = vsubq_s32(vdupq_n_s32(30), n);
    const V log2 = vaddq_s32(vshlq_n_s32(exponent, 15), vshrq_n_s32(r, 16));
    const V t = vsubq_s32(vdupq_n_s32(491520), vandq_s32(log2, vreinterpretq_s32_u32(positive)));

    const V u = vshrn_high_n_s64(vshrn_n_s64(simd::mul_low(t, od), 16), simd::mul_high(t, od), 16);
    const V shift = vshrq_n_s32(u, 8);
    const V count = vbslq_s32(vcltzq_s32(shift), vandq_s32(shift, vdupq_n_s32(31)), shift);
    const V j = vshrq_n_s32(vmulq_n_s32(vandq_s32(u, vdupq_n_s32(255)), 200), 9);
    return simd::shr_trunc32(lookup4(Sonvel_AEC_gasAecpow2tab, j), count);
}

// The overdrive cap of bins k..k+3; 32767 (no cap) outside both ranges.
inline V cap4(int32_t k, const OverdriveCaps &c) {
    const V idx = vaddq_s32(vdupq_n_s32(k), V{0, 1, 2, 3});
    const uint32x4_t in_lo = vcleq_s32(idx, vdupq_n_s32(c.lo));
    const uint32x4_t in_hi = vandq_u32(vcgeq_s32(idx, vdupq_n_s32(c.hi_from)),
                                       vcleq_s32(idx, vdupq_n_s32(c.hi_to)));
    const V cap = vbslq_s32(in_hi, vdupq_n_s32(c.cap_hi), vdupq_n_s32(32767));
    return vbslq_s32(in_lo, vdupq_n_s32(c.cap_lo), cap);
}

}  // namespace

// ---- The loops ----

int32_t window_pcm(const int16_t *w, const int16_t *pcm, int32_t *out, int shift, int32_t count) {
    const V s = vdupq_n_s32(-shift);
    int32_t i = 0;
    for (; i + 4 <= count; i += 4) {
        simd::store4(out + i, vshlq_s32(vmull_s16(vld1_s16(w + i), vld1_s16(pcm + i)), s));
    }
    return i;
}

int32_t window_q15(const int16_t *w, const int32_t *in, int32_t *out, int32_t count) {
    int32_t i = 0;
    for (; i + 4 <= count; i += 4) {
        simd::store4(out + i, simd::mul_rnd15(simd::load4(in + i), load16x4(w + i)));
    }
    return i;
}

int32_t mark_zero_words(int32_t *x, int32_t words) {
    int32_t i = 0;
    for (; i + 4 <= words; i += 4) {
        const V v = simd::load4(x + i);
        simd::store4(x + i, vorrq_s32(v, vreinterpretq_s32_u32(vshrq_n_u32(vceqzq_s32(v), 31))));
    }
    return i;
}

int32_t bin_powers(const int32_t *x, int32_t *man, int16_t *exp, int qoff, int toff, int64_t *sum,
                   int32_t bins) {
    int64x2_t acc = vdupq_n_s64(0);
    int32_t k = 0;
    for (; k + 4 <= bins; k += 4) {
        const int32x4x2_t v = simd::load4c(x + 2 * k);
        const simd::Power4 p = simd::bin_power4(v.val[0], v.val[1]);
        const V h2 = vshlq_n_s32(p.h, 1);
        if (man != nullptr) {
            simd::store4(man + k, p.e);
            vst1_s16(exp + k, vmovn_s32(vaddq_s32(h2, vdupq_n_s32(qoff))));
        }
        acc = add_wide(acc, simd::shift_sat32(p.e, vsubq_s32(vdupq_n_s32(toff), h2)));
    }
    *sum += vaddvq_s64(acc);
    return k;
}

int32_t min_q2(const int16_t *a, const int16_t *b, int16_t *lowest, int32_t count) {
    int16x8_t m = vdupq_n_s16(*lowest);
    int32_t i = 0;
    for (; i + 8 <= count; i += 8) m = vminq_s16(m, vminq_s16(vld1q_s16(a + i), vld1q_s16(b + i)));
    *lowest = vminvq_s16(m);
    return i;
}

int32_t band_sum(const int32_t *man, const int16_t *exp, int c, int64_t *sum, int32_t count) {
    int64x2_t acc = vdupq_n_s64(0);
    int32_t i = 0;
    for (; i + 4 <= count; i += 4) {
        const V shift = vsubq_s32(load16x4(exp + i), vdupq_n_s32(c));
        acc = add_wide(acc, simd::shr_trunc32(simd::load4(man + i), shift));
    }
    *sum += vaddvq_s64(acc);
    return i;
}

int32_t shape_gains(int16_t *g, int32_t fb, const int16_t *wc, const int16_t *ovrd,
                    const int16_t *oc, const OverdriveCaps &caps, int32_t count) {
    if (fb < -32768 || fb > 32767) return 0;
    int32_t k = 0;
    for (; k + 4 <= count; k += 4) {
        const V weighed = weigh4(load16x4(g + k), vdupq_n_s32(fb), load16x4(wc + k));
        const V raw = vshrq_n_s32(vmull_s16(vld1_s16(ovrd + k), vld1_s16(oc + k)), 14);
        const V od = vmaxq_s32(vminq_s32(raw, vdupq_n_s32(32767)), vdupq_n_s32(-32768));
        vst1_s16(g + k, vqmovn_s32(overdrive4(weighed, vminq_s32(od, cap4(k, caps)))));
    }
    return k;
}

int32_t apply_gains(const int16_t *g, int32_t *E, int32_t words) {
    int32_t w = 0;
    for (; w + 4 <= words; w += 4) {
        const V gv = {g[w / 2], g[w / 2], g[w / 2 + 1], g[w / 2 + 1]};
        const float32x4_t prod = vmulq_f32(simd::i2f(gv), simd::i2f(simd::load4(E + w)));
        simd::store4(E + w, simd::f2i(vmulq_n_f32(prod, sp::kTwoPowM15)));
    }
    return w;
}

// k = 16 - t in 1..62: the result is the product p (|p| <= 2^46) rounded by k bits, saturated;
// a left shift by t <= 15 never saturates and a right shift followed by the 16-bit rounding is
// one rounding by k bits.
int32_t unwindow(const int32_t *x, const int16_t *w, int t, int32_t *frame, int32_t count) {
    const int k = 16 - t;
    if (k < 1 || k > 62) return 0;
    int32_t i = 0;
    for (; i + 4 <= count; i += 4) {
        const V xv = simd::load4(x + i);
        const V wv = load16x4(w + i);
        simd::store4(frame + i, vcombine_s32(simd::rnd64(simd::mul_low(xv, wv), k),
                                             simd::rnd64(simd::mul_high(xv, wv), k)));
    }
    return i;
}

int32_t overlap_add(const int32_t *a, const int32_t *b, int16_t *out, int32_t count) {
    int32_t i = 0;
    for (; i + 4 <= count; i += 4) {
        vst1_s16(out + i, vqmovn_s32(simd::sat_add32(simd::load4(a + i), simd::load4(b + i))));
    }
    return i;
}

}  // namespace sup::lanes

#endif
