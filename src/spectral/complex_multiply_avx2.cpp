// The complex multiply-accumulate and conjugate product loops for x86-64 with AVX2: four bins per
// step, the four exact 64-bit products of each bin formed from the even and odd lanes, summed
// with 64-bit saturation and rounded to int32 as the portable loops do.
#include "spectral/complex_multiply_vec.h"

#if defined(__x86_64__)

#include "spectral/simd_avx2.h"

namespace sp::vec {
namespace {

using simd::V;

// rnd_31 of (a.re + j a.im)(b.re + j b.im) for four interleaved bins, interleaved again. Each
// product lies in [-2^62 + 2^31, 2^62], so the difference of two never leaves the 64-bit range
// and needs no saturation; the sum reaches 2^63 when all four operands are -2^31 and saturates.
SONVEL_LANES_TARGET inline V cmul_rnd31(V a, V b) {
    const V bs = simd::swap_pairs32(b);
    const V re = _mm256_sub_epi64(simd::mul_even(a, b), simd::mul_odd(a, b));
    const V im = simd::sat_add64(simd::mul_even(a, bs), simd::mul_odd(a, bs));
    return simd::interleave_even(simd::rnd64(re, 31), simd::rnd64(im, 31));
}

}  // namespace

SONVEL_LANES_TARGET int32_t complex_mla(const int32_t *a, const int32_t *b, int32_t *acc, int32_t words) {
    int32_t w = 0;
    for (; w + 8 <= words; w += 8) {
        const V p = cmul_rnd31(simd::load8(a + w), simd::load8(b + w));
        simd::store8(acc + w, simd::sat_add32(simd::load8(acc + w), p));
    }
    return w;
}

SONVEL_LANES_TARGET int32_t complex_conj_mult(const int32_t *a, const int32_t *b, int32_t *out, int32_t words) {
    int32_t w = 0;
    for (; w + 8 <= words; w += 8)
        simd::store8(out + w, cmul_rnd31(simd::load8(a + w), simd::conj32(simd::load8(b + w))));
    return w;
}

}  // namespace sp::vec

#endif
