// Vectorised loops of the echo-band gain for x86-64 with AVX2 and FMA: eight bins per step, each
// lane computing what smoothing_factor, instant_gain and update_gain compute for one bin.
#include "suppressor/echo_band_lanes.h"

#if defined(__x86_64__)

#include "spectral/reciprocal_vec.h"
#include "spectral/simd_avx2.h"

namespace sonvel::echo_band::lanes {
namespace {

using sp::simd::V;

SONVEL_LANES_TARGET inline V load_exp(const int16_t *p) {
    return _mm256_cvtepi16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p)));
}

// Lanes within the int16 range, stored as eight int16 values.
SONVEL_LANES_TARGET inline void store16(int16_t *p, V v) {
    const __m128i packed =
        _mm_packs_epi32(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
    _mm_storeu_si128(reinterpret_cast<__m128i *>(p), packed);
}

SONVEL_LANES_TARGET inline V set1(int32_t v) { return _mm256_set1_epi32(v); }

// fx::shift_wrap(x, h - 1) for h = hr(x): left by h - 1, or right by one where h = 0.
SONVEL_LANES_TARGET inline V to_headroom_one(V x, V h) {
    const V left = _mm256_sllv_epi32(x, _mm256_sub_epi32(h, set1(1)));  // count -1 gives 0
    return sp::simd::select32(left, _mm256_srai_epi32(x, 1), _mm256_cmpeq_epi32(h, set1(0)));
}

// sp::normalise: the mantissa shifted left by its headroom h.
SONVEL_LANES_TARGET inline V normalised(V x, V h) { return _mm256_sllv_epi32(x, h); }

// int(float(num) * recip(float(den)) * 2^31) per lane.
SONVEL_LANES_TARGET inline V quotient_q31(V num, V den) {
    const __m256 f = _mm256_mul_ps(sp::simd::i2f(num), sp::recip8(sp::simd::i2f(den)));
    return sp::simd::f2i(_mm256_mul_ps(f, _mm256_set1_ps(2147483648.0f)));
}

SONVEL_LANES_TARGET V smoothing_factor8(V px, V qpx, V asx, V qasx, V asy, V qasy) {
    const V qm = _mm256_min_epi32(qasx, qasy);
    const V u = _mm256_srav_epi32(_mm256_srai_epi32(asx, 1), _mm256_sub_epi32(qasx, qm));
    const V v = _mm256_srav_epi32(_mm256_srai_epi32(asy, 1), _mm256_sub_epi32(qasy, qm));
    const V sum = _mm256_max_epi32(sp::simd::sat_add32(u, v), set1(1));
    const V hs = sp::simd::hr32(sum);
    const V h = sp::simd::hr32(px);
    const V q31 = quotient_q31(to_headroom_one(px, h), normalised(sum, hs));
    // Shift by (qm + hs) + 1 - h - 16 - qpx.
    const V count = _mm256_sub_epi32(_mm256_sub_epi32(_mm256_add_epi32(qm, hs), h),
                                     _mm256_add_epi32(qpx, set1(15)));
    const V r = sp::simd::shift_sat32(q31, count);
    // |r - 1| limited to 32767 (the absolute value of -2^31 reads as 2^31 unsigned).
    const V d = _mm256_min_epu32(_mm256_abs_epi32(sp::simd::sat_sub32(r, set1(32767))),
                                 set1(32767));
    return _mm256_sub_epi32(set1(24575), _mm256_srai_epi32(d, 1));
}

SONVEL_LANES_TARGET V instant_gain8(V asx, V qasx, V w, V asy, V qasy, V ase, V qase) {
    // Asx * W / 32768, normalised.
    const __m256 tw = _mm256_mul_ps(sp::simd::i2f(asx), sp::simd::i2f(w));
    const V t = sp::simd::f2i(_mm256_mul_ps(tw, _mm256_set1_ps(1.0f / 2147483648.0f)));
    const V g = sp::simd::hr32(t);
    const V qt = _mm256_sub_epi32(_mm256_add_epi32(qasx, g), set1(16));

    // Residual echo power at Q qm.
    const V qm = _mm256_min_epi32(qt, qasy);
    const V u = _mm256_srav_epi32(normalised(t, g), _mm256_sub_epi32(qt, qm));
    const V v = _mm256_srav_epi32(asy, _mm256_sub_epi32(qasy, qm));
    const V d = _mm256_max_epi32(sp::simd::sat_sub32(u, v), _mm256_setzero_si256());

    // rho = min(D / Ase, 1) in Q31.
    const V e = _mm256_max_epi32(ase, set1(1));
    const V ge = sp::simd::hr32(e);
    const V gd = sp::simd::hr32(d);
    const V q31 = quotient_q31(to_headroom_one(d, gd), normalised(e, ge));
    const V count = _mm256_sub_epi32(_mm256_add_epi32(qase, ge),
                                     _mm256_sub_epi32(_mm256_add_epi32(gd, qm), set1(1)));
    const V rho = sp::simd::shift_sat32(q31, count);

    // 32767 - rho / 2^16, saturated above.
    return _mm256_min_epi32(_mm256_sub_epi32(set1(32767), _mm256_srai_epi32(rho, 16)),
                            set1(32767));
}

// A falling gain at once, a rising one except for 17/16384 of the old value. The sum stays below
// 2^30 and the saturating pack of the store is the saturation to int16.
SONVEL_LANES_TARGET V update_gain8(V h, V g) {
    const V c = _mm256_and_si256(_mm256_cmpgt_epi32(g, h), set1(17));
    const V sum = _mm256_add_epi32(_mm256_mullo_epi32(c, h),
                                   _mm256_mullo_epi32(_mm256_sub_epi32(set1(16384), c), g));
    return _mm256_srai_epi32(sum, 14);
}

}  // namespace

SONVEL_LANES_TARGET int smoothing_factors(Bins px, Bins asx, Bins asy, int16_t *a, int n) {
    int k = 0;
    for (; k + 8 <= n; k += 8) {
        const V f = smoothing_factor8(sp::simd::load8(px.man + k), load_exp(px.exp + k),
                                      sp::simd::load8(asx.man + k), load_exp(asx.exp + k),
                                      sp::simd::load8(asy.man + k), load_exp(asy.exp + k));
        store16(a + k, f);
    }
    return k;
}

SONVEL_LANES_TARGET int update_gains(Bins asx, const int32_t *w, Bins asy, Bins ase, int16_t *h, int n) {
    int k = 0;
    for (; k + 8 <= n; k += 8) {
        const V g = instant_gain8(sp::simd::load8(asx.man + k), load_exp(asx.exp + k),
                                  sp::simd::load8(w + k), sp::simd::load8(asy.man + k),
                                  load_exp(asy.exp + k), sp::simd::load8(ase.man + k),
                                  load_exp(ase.exp + k));
        store16(h + k, update_gain8(load_exp(h + k), g));
    }
    return k;
}

}  // namespace sonvel::echo_band::lanes

#endif
