// Vectorised comfort-noise generator for x86-64 with AVX2 and FMA: the noise components of eight
// bins per step, added to the interleaved error spectrum.
#include "suppressor/comfort_noise_lanes.h"

#if defined(__x86_64__)

#include "spectral/reciprocal_vec.h"
#include "spectral/simd_avx2.h"

namespace sonvel::comfort_noise::lanes {
namespace {

using sp::simd::V;

SONVEL_LANES_TARGET inline V load16(const int16_t *p) {
    return _mm256_cvtepi16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p)));
}

SONVEL_LANES_TARGET inline V set1(int32_t v) { return _mm256_set1_epi32(v); }

// sp::sqrt per lane; zero lanes (empty floors) give +0 without sending the whole step to the
// lane-by-lane path of the vector square root.
SONVEL_LANES_TARGET inline __m256 sqrt_or_zero(__m256 x) {
    const __m256 zero = _mm256_cmp_ps(x, _mm256_setzero_ps(), _CMP_EQ_OQ);
    const __m256 root = sp::sqrt8(_mm256_blendv_ps(x, _mm256_set1_ps(1.0f), zero));
    return _mm256_andnot_ps(zero, root);
}

// Noise components of eight bins as separate re and im lanes.
struct Noise8 {
    V re;
    V im;
};

SONVEL_LANES_TARGET Noise8 noise8(V m, V q, V g, V cs, V sn, V s) {
    // F = m' / 4^e2 with m' a non-negative 31-bit value.
    const V n = sp::simd::hr32(m);
    const V e = _mm256_add_epi32(q, n);
    const V odd = _mm256_and_si256(e, set1(1));
    const V mm = _mm256_srav_epi32(_mm256_sllv_epi32(m, n), odd);
    const V e2 = _mm256_srai_epi32(_mm256_sub_epi32(e, odd), 1);

    const __m256 root = sqrt_or_zero(sp::simd::i2f(mm));
    const __m256 gf = sp::simd::i2f(g);
    const __m256 g2 = _mm256_mul_ps(gf, gf);
    const __m256 amp = sp::sqrt8(_mm256_sub_ps(_mm256_set1_ps(1073741824.0f), g2));

    const __m256 nr1 = _mm256_mul_ps(_mm256_mul_ps(root, sp::simd::i2f(cs)), amp);
    const __m256 ni1 = _mm256_mul_ps(_mm256_mul_ps(root, sp::simd::i2f(sn)), amp);
    const V nr = sp::simd::f2i(_mm256_mul_ps(nr1, _mm256_set1_ps(1.0f / 32768.0f)));
    const V ni = sp::simd::f2i(_mm256_mul_ps(ni1, _mm256_set1_ps(-1.0f / 32768.0f)));

    const V sh = _mm256_sub_epi32(_mm256_sub_epi32(s, set1(15)), e2);
    return {sp::simd::shift_sat32(nr, sh), sp::simd::shift_sat32(ni, sh)};
}

}  // namespace

SONVEL_LANES_TARGET int add_noise(const Bins &b, const int32_t *e, int32_t *out, int n) {
    const V s = set1(b.s);
    int k = 0;
    for (; k + 8 <= n; k += 8) {
        const Noise8 c = noise8(sp::simd::load8(b.floor_man + k), load16(b.floor_exp + k),
                                load16(b.gain + k), load16(b.cos + k), load16(b.sin + k), s);
        // Interleave: bins 0, 1 | 4, 5 and 2, 3 | 6, 7, then halves regrouped in order.
        const V lo = _mm256_unpacklo_epi32(c.re, c.im);
        const V hi = _mm256_unpackhi_epi32(c.re, c.im);
        const V first = _mm256_permute2x128_si256(lo, hi, 0x20);
        const V second = _mm256_permute2x128_si256(lo, hi, 0x31);
        sp::simd::store8(out + 2 * k, sp::simd::sat_add32(sp::simd::load8(e + 2 * k), first));
        sp::simd::store8(out + 2 * k + 8,
                         sp::simd::sat_add32(sp::simd::load8(e + 2 * k + 8), second));
    }
    return k;
}

}  // namespace sonvel::comfort_noise::lanes

#endif
