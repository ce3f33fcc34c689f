// The complex multiply-accumulate and conjugate product loops for aarch64 (NEON): four bins per
// step with re and im in separate registers, the exact 64-bit products of each bin summed with
// 64-bit saturation and rounded to int32 as the portable loops do.
#include "spectral/complex_multiply_vec.h"

#if defined(__aarch64__)

#include "spectral/simd_neon.h"

namespace sp::vec {
namespace {

// rnd_31 of (a.re + j a.im)(b.re + j b.im) for four bins.
inline int32x4x2_t cmul_rnd31(int32x4x2_t a, int32x4x2_t b) {
    using namespace simd;
    const int32x4_t ar = a.val[0], ai = a.val[1], br = b.val[0], bi = b.val[1];
    const int64x2_t re_lo = sat_sub64(mul_low(ar, br), mul_low(ai, bi));
    const int64x2_t re_hi = sat_sub64(mul_high(ar, br), mul_high(ai, bi));
    const int64x2_t im_lo = sat_add64(mul_low(ar, bi), mul_low(ai, br));
    const int64x2_t im_hi = sat_add64(mul_high(ar, bi), mul_high(ai, br));
    return {{rnd64x2<31>(re_lo, re_hi), rnd64x2<31>(im_lo, im_hi)}};
}

}  // namespace

int32_t complex_mla(const int32_t *a, const int32_t *b, int32_t *acc, int32_t words) {
    int32_t w = 0;
    for (; w + 8 <= words; w += 8) {
        const int32x4x2_t p = cmul_rnd31(simd::load4c(a + w), simd::load4c(b + w));
        const int32x4x2_t s = simd::load4c(acc + w);
        simd::store4c(acc + w, {{simd::sat_add32(s.val[0], p.val[0]),
                                 simd::sat_add32(s.val[1], p.val[1])}});
    }
    return w;
}

int32_t complex_conj_mult(const int32_t *a, const int32_t *b, int32_t *out, int32_t words) {
    int32_t w = 0;
    for (; w + 8 <= words; w += 8) {
        int32x4x2_t c = simd::load4c(b + w);
        c.val[1] = simd::neg_wrap32(c.val[1]);
        simd::store4c(out + w, cmul_rnd31(simd::load4c(a + w), c));
    }
    return w;
}

}  // namespace sp::vec

#endif
