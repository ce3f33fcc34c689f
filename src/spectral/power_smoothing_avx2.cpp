// Vectorised loops of the power and smoothing kernels for x86-64 with AVX2: eight elements, or
// eight bins (four for the cross-spectrum and the DQ power), per step. Lane by lane they compute
// the per-element definitions of kernel_elements.h: the same integer roundings, the same float
// products and sums in the same order, the same saturation.
#include "spectral/power_smoothing_vec.h"

#if defined(__x86_64__)

#include "spectral/kernel_elements.h"
#include "spectral/simd_avx2.h"

namespace sp::vec {
namespace {

using simd::V;

struct Mant8 {
    V m;
    V q;
};

// ---- Loads and stores ----

SONVEL_LANES_TARGET inline void store4(int32_t *p, __m128i v) {
    _mm_storeu_si128(reinterpret_cast<__m128i *>(p), v);
}

// ---- Lane versions of the per-element definitions ----

// sp::normalise.
SONVEL_LANES_TARGET inline Mant8 normalise8(V s, V q) {
    const V g = simd::hr32(s);
    return {_mm256_sllv_epi32(s, g), _mm256_add_epi32(q, g)};
}

// sp::smooth_element for factors a in 0..32767. The two weighted terms then stay below
// 2^31 * 32767/32768 + 1 in magnitude together, and truncating shifts only shrink them, so their
// sum never saturates.
SONVEL_LANES_TARGET inline Mant8 smooth8(V x, V qx, V y, V qy, V a) {
    const V ys = simd::mul_rnd15(y, a);
    const V xs = simd::mul_rnd15(x, _mm256_sub_epi32(_mm256_set1_epi32(kOne15), a));
    const V qm = _mm256_min_epi32(qx, qy);
    const V xa = simd::shr_trunc32(xs, _mm256_sub_epi32(qx, qm));
    const V ya = simd::shr_trunc32(ys, _mm256_sub_epi32(qy, qm));
    return normalise8(_mm256_add_epi32(xa, ya), qm);
}

// sp::conj_mult_q of four interleaved bins: the parts in their lanes (m) and the headroom sums
// that scaled them (h).
//
// Each product scaled by the headroom sum of its factors lies in [-2^62 + 2^31, 2^62], so the
// scaled sums t lie in [-2^63 + 2^32, 2^63]: the 64-bit saturations of the definition only ever
// turn t = 2^63 into 2^63 - 1, which rounds to the same saturated 2^31 - 1. The lanes compute t
// modulo 2^64 instead; the high half of t + 2^31 is then the rounded result, except that the
// results of 2^31 wrap to -2^31, a value no true result rounds to. Those are saturated at the end.
SONVEL_LANES_TARGET inline Mant8 conj_mult_q8(V a, V b) {
    // 1. c = conj(b); headroom sums of the factors of each part, the smaller of each pair.
    const V c = simd::conj32(b);
    const V ha = simd::hr32(a);
    const V hc = simd::hr32(c);
    const V s_re = _mm256_add_epi32(ha, hc);                     // har + hbr, hai + hc
    const V s_im = _mm256_add_epi32(ha, simd::swap_pairs32(hc));  // har + hc, hai + hbr
    const V h_re = _mm256_min_epi32(s_re, simd::swap_pairs32(s_re));
    const V h_im = _mm256_min_epi32(s_im, simd::swap_pairs32(s_im));

    // 2. Exact products: re = ar br - ai c, im = ar c + ai br (modulo 2^64).
    const V a_odd = _mm256_srli_epi64(a, 32);
    const V c_odd = _mm256_srli_epi64(c, 32);
    const V p_re = _mm256_sub_epi64(simd::mul_even(a, c), simd::mul_even(a_odd, c_odd));
    const V p_im = _mm256_add_epi64(simd::mul_even(a, c_odd), simd::mul_even(a_odd, c));

    // 3. Scaled by the headroom sums, rounded by 32 bits: the high halves.
    const V low_half = _mm256_set1_epi64x(0xFFFFFFFFll);
    const V t_re = _mm256_sllv_epi64(p_re, _mm256_and_si256(h_re, low_half));
    const V t_im = _mm256_sllv_epi64(p_im, _mm256_and_si256(h_im, low_half));
    const V bias = _mm256_set1_epi64x(int64_t{1} << 31);
    const V r = _mm256_blend_epi32(_mm256_srli_epi64(_mm256_add_epi64(t_re, bias), 32),
                                   _mm256_add_epi64(t_im, bias), 0xAA);

    // 4. -2^31 stands for 2^31: saturate (-2^31 ^ -1 = 2^31 - 1).
    const V m = _mm256_xor_si256(r, _mm256_cmpeq_epi32(r, _mm256_set1_epi32(fx::kMin32)));
    return {m, _mm256_blend_epi32(h_re, h_im, 0xAA)};
}

}  // namespace

// ---- The loops ----

SONVEL_LANES_TARGET int32_t smooth_dg_f(const int32_t *x, int32_t *y, const int16_t *qx, int16_t *qy,
                            const int16_t *a, int32_t count) {
    int32_t i = 0;
    for (; i + 8 <= count; i += 8) {
        const V f = simd::load16x8(a + i);
        if (_mm256_movemask_ps(_mm256_castsi256_ps(f)) != 0) break;
        const Mant8 m = smooth8(simd::load8(x + i), simd::load16x8(qx + i), simd::load8(y + i),
                                simd::load16x8(qy + i), f);
        simd::store8(y + i, m.m);
        simd::store16x8_wrap(qy + i, m.q);
    }
    return i;
}

SONVEL_LANES_TARGET int32_t energy_smooth_f(const int32_t *x, int32_t *y, int qoff, int16_t *qy, int32_t a,
                                int32_t bins) {
    if (a < 0) return 0;
    const V f = _mm256_set1_epi32(a);
    const V off = _mm256_set1_epi32(qoff);
    int32_t k = 0;
    for (; k + 8 <= bins; k += 8) {
        V re, im;
        simd::load_bins8(x + 2 * k, re, im);
        const simd::Power8 p = simd::bin_power8(re, im);
        const V qe = _mm256_add_epi32(_mm256_slli_epi32(p.h, 1), off);
        const Mant8 m = smooth8(p.e, qe, simd::load8(y + k), simd::load16x8(qy + k), f);
        simd::store8(y + k, m.m);
        simd::store16x8_wrap(qy + k, m.q);
    }
    return k;
}

SONVEL_LANES_TARGET int32_t conj_mult_smooth_q(const int32_t *a, const int32_t *b, int32_t *y, int qoff,
                                   int16_t *qy, int32_t s, int32_t words) {
    if (s < 0) return 0;
    const V f = _mm256_set1_epi32(s);
    const V off = _mm256_set1_epi32(qoff);
    int32_t w = 0;
    for (; w + 8 <= words; w += 8) {
        const Mant8 c = conj_mult_q8(simd::load8(a + w), simd::load8(b + w));
        const Mant8 m = smooth8(c.m, _mm256_add_epi32(c.q, off), simd::load8(y + w),
                                simd::load16x8(qy + w), f);
        simd::store8(y + w, m.m);
        simd::store16x8_wrap(qy + w, m.q);
    }
    return w;
}

SONVEL_LANES_TARGET int32_t energy_f(const int32_t *x, int32_t *e, int qoff, int16_t *qe, int32_t bins) {
    const V off = _mm256_set1_epi32(qoff);
    int32_t k = 0;
    for (; k + 8 <= bins; k += 8) {
        V re, im;
        simd::load_bins8(x + 2 * k, re, im);
        const simd::Power8 p = simd::bin_power8(re, im);
        const Mant8 m = normalise8(p.e, _mm256_add_epi32(_mm256_slli_epi32(p.h, 1), off));
        simd::store8(e + k, m.m);
        simd::store16x8_wrap(qe + k, m.q);
    }
    return k;
}

// Four bins per step on their interleaved parts; the bin's results end up in its even lane.
SONVEL_LANES_TARGET int32_t energy_dq_f(const int32_t *x, const int32_t *qx, int32_t *e, int32_t *qe,
                            int32_t bins) {
    int32_t k = 0;
    for (; k + 4 <= bins; k += 4) {
        // 1. int(float(x)^2 * 2^-32) of each part.
        const __m256 f = simd::i2f(simd::load8(x + 2 * k));
        const V pp = simd::f2i(_mm256_mul_ps(_mm256_mul_ps(f, f), _mm256_set1_ps(kTwoPowM32)));
        // 2. The smaller Q of the bin; each part shifted right by twice its excess, at most 32
        // (the excess read as unsigned: it may pass 2^31).
        const V q = simd::load8(qx + 2 * k);
        const V qm = _mm256_min_epi32(q, simd::swap_pairs32(q));
        const V excess = _mm256_min_epu32(_mm256_sub_epi32(q, qm), _mm256_set1_epi32(16));
        const V aligned = simd::shr_trunc32(pp, _mm256_slli_epi32(excess, 1));
        // 3. Saturating sum of the parts; Q value 2 qm - 32, wrapped.
        const V sum = simd::sat_add32(aligned, simd::swap_pairs32(aligned));
        const V qsum = _mm256_sub_epi32(_mm256_slli_epi32(qm, 1), _mm256_set1_epi32(32));
        store4(e + k, simd::narrow_even(sum));
        store4(qe + k, simd::narrow_even(qsum));
    }
    return k;
}

SONVEL_LANES_TARGET int32_t far_power(const int32_t *x, int s, int32_t *p, int32_t bins) {
    const V scale = _mm256_set1_epi32(2 * (9 - s));
    int32_t k = 0;
    for (; k + 8 <= bins; k += 8) {
        V re, im;
        simd::load_bins8(x + 2 * k, re, im);
        const simd::Power8 bp = simd::bin_power8(re, im);
        const V e = simd::shift_sat32(bp.e, _mm256_sub_epi32(scale, _mm256_slli_epi32(bp.h, 1)));
        const __m256 fresh = _mm256_mul_ps(simd::i2f(e), _mm256_set1_ps(3277.0f));
        const __m256 old = _mm256_mul_ps(simd::i2f(simd::load8(p + k)), _mm256_set1_ps(29490.0f));
        const __m256 sum = _mm256_add_ps(fresh, old);
        simd::store8(p + k, simd::f2i(_mm256_mul_ps(sum, _mm256_set1_ps(kTwoPowM15))));
    }
    return k;
}

}  // namespace sp::vec

#endif
