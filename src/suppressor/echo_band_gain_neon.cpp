// Vectorised loops of the echo-band gain for aarch64 (NEON): four bins per step, each lane
// computing what smoothing_factor, instant_gain and update_gain compute for one bin.
#include "suppressor/echo_band_lanes.h"

#if defined(__aarch64__)

#include <arm_neon.h>

#include "spectral/reciprocal_vec.h"
#include "spectral/simd_neon.h"

namespace sonvel::echo_band::lanes {
namespace {

using V = int32x4_t;

inline V load_exp(const int16_t *p) { return vmovl_s16(vld1_s16(p)); }

// Lanes within the int16 range, stored as four int16 values.
inline void store16(int16_t *p, V v) { vst1_s16(p, vqmovn_s32(v)); }

inline V set1(int32_t v) { return vdupq_n_s32(v); }

// fx::shift_wrap(x, h - 1) for h = hr(x): the register shift by a count of -1 is the truncating
// right shift by one.
inline V to_headroom_one(V x, V h) { return vshlq_s32(x, vsubq_s32(h, set1(1))); }

// sp::normalise: the mantissa shifted left by its headroom h.
inline V normalised(V x, V h) { return vshlq_s32(x, h); }

// int(float(num) * recip(float(den)) * 2^31) per lane.
inline V quotient_q31(V num, V den) {
    const float32x4_t f = vmulq_f32(sp::simd::i2f(num), sp::recip4(sp::simd::i2f(den)));
    return sp::simd::f2i(vmulq_f32(f, vdupq_n_f32(2147483648.0f)));
}

V smoothing_factor4(V px, V qpx, V asx, V qasx, V asy, V qasy) {
    const V qm = vminq_s32(qasx, qasy);
    const V u = sp::simd::shr_trunc32(vshrq_n_s32(asx, 1), vsubq_s32(qasx, qm));
    const V v = sp::simd::shr_trunc32(vshrq_n_s32(asy, 1), vsubq_s32(qasy, qm));
    const V sum = vmaxq_s32(vqaddq_s32(u, v), set1(1));
    const V hs = vclsq_s32(sum);
    const V h = vclsq_s32(px);
    const V q31 = quotient_q31(to_headroom_one(px, h), normalised(sum, hs));
    // Shift by (qm + hs) + 1 - h - 16 - qpx.
    const V count = vsubq_s32(vsubq_s32(vaddq_s32(qm, hs), h), vaddq_s32(qpx, set1(15)));
    const V r = sp::simd::shift_sat32(q31, count);
    // |r - 1| limited to 32767 (the saturating absolute value keeps 2^31 - 1).
    const V d = vminq_s32(vqabsq_s32(vqsubq_s32(r, set1(32767))), set1(32767));
    return vsubq_s32(set1(24575), vshrq_n_s32(d, 1));
}

V instant_gain4(V asx, V qasx, V w, V asy, V qasy, V ase, V qase) {
    // Asx * W / 32768, normalised.
    const float32x4_t tw = vmulq_f32(sp::simd::i2f(asx), sp::simd::i2f(w));
    const V t = sp::simd::f2i(vmulq_f32(tw, vdupq_n_f32(1.0f / 2147483648.0f)));
    const V g = vclsq_s32(t);
    const V qt = vsubq_s32(vaddq_s32(qasx, g), set1(16));

    // Residual echo power at Q qm.
    const V qm = vminq_s32(qt, qasy);
    const V u = sp::simd::shr_trunc32(normalised(t, g), vsubq_s32(qt, qm));
    const V v = sp::simd::shr_trunc32(asy, vsubq_s32(qasy, qm));
    const V d = vmaxq_s32(vqsubq_s32(u, v), set1(0));

    // rho = min(D / Ase, 1) in Q31.
    const V e = vmaxq_s32(ase, set1(1));
    const V ge = vclsq_s32(e);
    const V gd = vclsq_s32(d);
    const V q31 = quotient_q31(to_headroom_one(d, gd), normalised(e, ge));
    const V count = vsubq_s32(vaddq_s32(qase, ge), vsubq_s32(vaddq_s32(gd, qm), set1(1)));
    const V rho = sp::simd::shift_sat32(q31, count);

    // 32767 - rho / 2^16, saturated above.
    return vminq_s32(vsubq_s32(set1(32767), vshrq_n_s32(rho, 16)), set1(32767));
}

// A falling gain at once, a rising one except for 17/16384 of the old value. The sum stays below
// 2^30 and the saturating narrowing of the store is the saturation to int16.
V update_gain4(V h, V g) {
    const V c = vandq_s32(vreinterpretq_s32_u32(vcgtq_s32(g, h)), set1(17));
    const V sum = vmlaq_s32(vmulq_s32(c, h), vsubq_s32(set1(16384), c), g);
    return vshrq_n_s32(sum, 14);
}

}  // namespace

int smoothing_factors(Bins px, Bins asx, Bins asy, int16_t *a, int n) {
    int k = 0;
    for (; k + 4 <= n; k += 4) {
        const V f = smoothing_factor4(vld1q_s32(px.man + k), load_exp(px.exp + k),
                                      vld1q_s32(asx.man + k), load_exp(asx.exp + k),
                                      vld1q_s32(asy.man + k), load_exp(asy.exp + k));
        store16(a + k, f);
    }
    return k;
}

int update_gains(Bins asx, const int32_t *w, Bins asy, Bins ase, int16_t *h, int n) {
    int k = 0;
    for (; k + 4 <= n; k += 4) {
        const V g = instant_gain4(vld1q_s32(asx.man + k), load_exp(asx.exp + k), vld1q_s32(w + k),
                                  vld1q_s32(asy.man + k), load_exp(asy.exp + k),
                                  vld1q_s32(ase.man + k), load_exp(ase.exp + k));
        store16(h + k, update_gain4(load_exp(h + k), g));
    }
    return k;
}

}  // namespace sonvel::echo_band::lanes

#endif
