// The linear canceller's loops for aarch64 (NEON): four bins, words or samples per step, the
// interleaved re / im words of four bins split into their own lanes by the structure loads. The
// saturating sums and shifts, rounding narrows and float conversions of NEON have exactly the
// roundings and saturation of the scalar helpers.
#include "linear/linear_loops_vec.h"

#if defined(__aarch64__)

#include "linear/linear_loops.h"
#include "spectral/reciprocal_vec.h"
#include "spectral/simd_neon.h"

namespace lin::vec {
namespace {

using V = int32x4_t;
namespace simd = sp::simd;

// Counts limited to [-32, 32]: the shift instructions read only the low byte of a count, and
// 32 already gives 0 to the left and the sign fill to the right.
inline V clamp_count(V c) { return vmaxq_s32(vminq_s32(c, vdupq_n_s32(32)), vdupq_n_s32(-32)); }

}  // namespace

int32_t reciprocal_far_power(const int32_t *pow, int32_t bins, int32_t s, int32_t *man,
                             int32_t *q) {
    const V qbase = vdupq_n_s32(s + 16);
    int32_t k = 0;
    for (; k + 4 <= bins; k += 4) {
        const V p = simd::load4(pow + k);
        const V t = simd::sat_add32(vsubq_s32(p, vshrq_n_s32(p, 2)), vdupq_n_s32(1));
        const float32x4_t inv = sp::recip4(simd::i2f(t));
        const V m = simd::f2i(vmulq_f32(inv, vdupq_n_f32(2147483648.0f)));
        const V c = simd::hr32(m);
        simd::store4(man + k, vshlq_s32(m, c));
        simd::store4(q + k, vaddq_s32(c, qbase));
    }
    return k;
}

int32_t normalised_error(const int32_t *e, const int32_t *man, const int32_t *q, int32_t bins,
                         int32_t *g, int32_t *qg) {
    int32_t k = 0;
    for (; k + 4 <= bins; k += 4) {
        const int32x4x2_t x = simd::load4c(e + 2 * k);
        const V m = simd::load4(man + k);
        const V qk = simd::load4(q + k);
        int32x4x2_t gv;
        int32x4x2_t qv;
        for (int part = 0; part < 2; ++part) {
            const V c = simd::hr32(x.val[part]);
            const V xn = vshlq_s32(x.val[part], c);
            gv.val[part] = simd::rnd64x2<32>(simd::mul_low(m, xn), simd::mul_high(m, xn));
            qv.val[part] = vaddq_s32(c, qk);
        }
        simd::store4c(g + 2 * k, gv);
        simd::store4c(qg + 2 * k, qv);
    }
    return k;
}

int32_t constant_magnitude_gain(int32_t *e2, const int32_t *qe2, int32_t bins) {
    const float32x4_t gain = vdupq_n_f32(static_cast<float>(kGain));
    int32_t k = 0;
    for (; k + 4 <= bins; k += 4) {
        const V m = vmaxq_s32(simd::load4(e2 + k), vdupq_n_s32(1));
        const V c = vandq_s32(simd::hr32(m), vdupq_n_s32(~1));
        const float32x4_t r = sp::rsqrt4(simd::i2f(vshlq_s32(m, c)));
        const float32x4_t kr = vmulq_f32(gain, r);
        const V v = simd::f2i(vmulq_f32(kr, vdupq_n_f32(16384.0f)));
        const V half_q = vshrq_n_s32(vaddq_s32(simd::load4(qe2 + k), c), 1);
        simd::store4(e2 + k, simd::shift_sat32(v, vsubq_s32(half_q, vdupq_n_s32(kGainShift))));
    }
    return k;
}

int32_t apply_gain(int32_t *g, const int32_t *gain, int32_t bins) {
    const float32x4_t scale = vdupq_n_f32(1.0f / 4294967296.0f);
    int32_t k = 0;
    for (; k + 4 <= bins; k += 4) {
        const float32x4_t gk = simd::i2f(simd::load4(gain + k));
        int32x4x2_t x = simd::load4c(g + 2 * k);
        for (int part = 0; part < 2; ++part) {
            const float32x4_t prod = vmulq_f32(simd::i2f(x.val[part]), gk);
            x.val[part] = simd::f2i(vmulq_f32(prod, scale));
        }
        simd::store4c(g + 2 * k, x);
    }
    return k;
}

int32_t common_q(const int32_t *g, const int32_t *qg, int32_t words, int32_t *q) {
    const V cap = vdupq_n_s32(*q);
    V low = cap;
    int32_t w = 0;
    for (; w + 4 <= words; w += 4) {
        const uint32x4_t zero = vceqq_s32(simd::load4(g + w), vdupq_n_s32(0));
        low = vminq_s32(low, vbslq_s32(zero, cap, simd::load4(qg + w)));
    }
    *q = vminvq_s32(low);
    return w;
}

int32_t align_to_q(int32_t *g, const int32_t *qg, int32_t words, int32_t q) {
    int32_t w = 0;
    for (; w + 4 <= words; w += 4) {
        const V c = clamp_count(vsubq_s32(vdupq_n_s32(q), simd::load4(qg + w)));
        simd::store4(g + w, vshlq_s32(simd::load4(g + w), c));
    }
    return w;
}

int32_t accumulate_right(int32_t *w, const int32_t *phi, int32_t words, int32_t r) {
    const V count = vdupq_n_s32(-r);
    int32_t i = 0;
    for (; i + 4 <= words; i += 4) {
        const V p = vshlq_s32(simd::load4(phi + i), count);
        simd::store4(w + i, simd::sat_add32(simd::load4(w + i), p));
    }
    return i;
}

int32_t accumulate_left(int32_t *w, const int32_t *phi, int32_t words, int32_t c) {
    const V count = vdupq_n_s32(c);
    int32_t i = 0;
    for (; i + 4 <= words; i += 4) {
        const V p = simd::shift_sat32(simd::load4(phi + i), count);
        simd::store4(w + i, simd::sat_add32(simd::load4(w + i), p));
    }
    return i;
}

int32_t estimate_and_error(int32_t *y, const int16_t *near, int32_t l, int32_t undo, int32_t s,
                           int32_t *est, int32_t *err) {
    const V undo_count = vdupq_n_s32(undo);
    const V near_count = vdupq_n_s32(s);
    int32_t i = 0;
    for (; i + 4 <= l; i += 4) {
        const V yhat = simd::shift_sat32(simd::load4(y + l + i), undo_count);
        const V d = simd::shift_sat32(vmovl_s16(vld1_s16(near + i)), near_count);
        const V e = simd::sat_sub32(d, yhat);
        simd::store4(est + i, yhat);
        simd::store4(err + i, e);
        simd::store4(y + i, vdupq_n_s32(0));
        simd::store4(y + l + i, e);
    }
    return i;
}

}  // namespace lin::vec

#endif
