// Complex multiply kernels over packed spectra: product (Q31 x Q31 -> Q30), multiply-accumulate
// (Q31 x Q31 -> Q31, saturating accumulator), conjugate product, and the conjugate product
// normalised per part with its Q value. Counts are bins, processed in pairs. The vectorised
// loops take whole steps of four bins first; the loops here do the rest.
#include "sonvel_aec_spectral.h"

#include "spectral/complex_multiply_vec.h"
#include "spectral/kernel_elements.h"
#include "spectral/kernels.h"

extern "C" SONVEL_API void Sonvel_AEC_Complex_Mult(const int32_t *a, const int32_t *b, int32_t *out,
                                                   int32_t n) {
    const int32_t words = 2 * sp::stepped_count(n, 2);
    for (int32_t w = 0; w < words; w += 2) {
        const sp::Prod64 p = sp::cmul(a[w], a[w + 1], b[w], b[w + 1]);
        out[w] = fx::rnd(p.re, 32);
        out[w + 1] = fx::rnd(p.im, 32);
    }
}

void sp::complex_mla(Isa isa, const int32_t *a, const int32_t *b, int32_t *acc, int32_t n) {
    const int32_t words = 2 * sp::stepped_count(n, 2);
    const int32_t done = isa == Isa::kVector ? vec::complex_mla(a, b, acc, words) : 0;
    for (int32_t w = done; w < words; w += 2) {
        const sp::Prod64 p = sp::cmul(a[w], a[w + 1], b[w], b[w + 1]);
        acc[w] = fx::sat_add(acc[w], fx::rnd(p.re, 31));
        acc[w + 1] = fx::sat_add(acc[w + 1], fx::rnd(p.im, 31));
    }
}

void sp::complex_conj_mult(Isa isa, const int32_t *a, const int32_t *b, int32_t *out,
                           int32_t n) {
    const int32_t words = 2 * sp::stepped_count(n, 2);
    const int32_t done = isa == Isa::kVector ? vec::complex_conj_mult(a, b, out, words) : 0;
    for (int32_t w = done; w < words; w += 2) {
        const sp::Prod64 p = sp::cmul_conj(a[w], a[w + 1], b[w], b[w + 1]);
        out[w] = fx::rnd(p.re, 31);
        out[w + 1] = fx::rnd(p.im, 31);
    }
}

extern "C" SONVEL_API void Sonvel_AEC_Complex_Mla(const int32_t *a, const int32_t *b, int32_t *acc,
                                                  int32_t n) {
    sp::complex_mla(sp::kStatelessIsa, a, b, acc, n);
}

extern "C" SONVEL_API void Sonvel_AEC_Complex_ConjMult(const int32_t *a, const int32_t *b,
                                                       int32_t *out, int32_t n) {
    sp::complex_conj_mult(sp::kStatelessIsa, a, b, out, n);
}

extern "C" SONVEL_API void Sonvel_AEC_Complex_ConjMult_Q(const int32_t *a, const int32_t *b,
                                                         int32_t *out, int16_t q, int16_t *qout,
                                                         int32_t n) {
    const int32_t words = 2 * sp::stepped_count(n, 2);
    const int qoff = 2 * q - 32;
    for (int32_t w = 0; w < words; w += 2) {
        const sp::ConjQ c = sp::conj_mult_q(a[w], a[w + 1], b[w], b[w + 1]);
        out[w] = c.re;
        out[w + 1] = c.im;
        qout[w] = static_cast<int16_t>(c.hr_re + qoff);
        qout[w + 1] = static_cast<int16_t>(c.hr_im + qoff);
    }
}
