// Complex multiply kernels over packed spectra: product (Q31 x Q31 -> Q30), multiply-accumulate
// (Q31 x Q31 -> Q31, saturating accumulator), conjugate product, and the conjugate product
// normalised per part with its Q value. Counts are bins, processed in pairs. The lane loops take
// whole steps of lanes first; the per-bin loops do the rest.
#include "sonvel_aec_spectral.h"

#include "spectral/kernel_elements.h"
#include "spectral/kernels.h"
#include "spectral/lane_check.h"
#include "spectral/lanes.h"

namespace sp::lanes {
namespace {

#if SONVEL_HAS_LANES

// rnd_31 of (a.re + j a.im)(b.re + j b.im) per bin. Each product lies in [-2^62 + 2^31, 2^62],
// so the difference of two never leaves the 64-bit range; the sum reaches 2^63 when all four
// operands are -2^31 and saturates.
SONVEL_LANES_TARGET inline ln::Bins cmul_rnd31(ln::Bins a, ln::Bins b) {
    using namespace ln;
    const W64 re = sub64(mul_wide(a.re, b.re), mul_wide(a.im, b.im));
    const W64 im = sat_add64(mul_wide(a.re, b.im), mul_wide(a.im, b.re));
    return {rnd_narrow<31>(re), rnd_narrow<31>(im)};
}

// acc += rnd_31(a b) per bin, saturating; returns the words done.
SONVEL_LANES_TARGET int32_t complex_mla(const int32_t *a, const int32_t *b, int32_t *acc,
                                        int32_t words) {
    int32_t w = 0;
    for (; w + 2 * ln::kLanes <= words; w += 2 * ln::kLanes) {
        const ln::Bins p = cmul_rnd31(ln::load_bins(a + w), ln::load_bins(b + w));
        const ln::Bins s = ln::load_bins(acc + w);
        ln::store_bins(acc + w, {ln::sat_add(s.re, p.re), ln::sat_add(s.im, p.im)});
    }
    return w;
}

// out = rnd_31(a conj(b)) per bin; out may be an operand.
SONVEL_LANES_TARGET int32_t complex_conj_mult(const int32_t *a, const int32_t *b, int32_t *out,
                                              int32_t words) {
    int32_t w = 0;
    for (; w + 2 * ln::kLanes <= words; w += 2 * ln::kLanes) {
        ln::Bins c = ln::load_bins(b + w);
        c.im = ln::neg_wrap(c.im);
        ln::store_bins(out + w, cmul_rnd31(ln::load_bins(a + w), c));
    }
    return w;
}

#else

int32_t complex_mla(const int32_t *, const int32_t *, int32_t *, int32_t) { return 0; }
int32_t complex_conj_mult(const int32_t *, const int32_t *, int32_t *, int32_t) { return 0; }

#endif

}  // namespace
}  // namespace sp::lanes

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
    if (lanes_checked(isa, {{acc, 4u * words}}, [&](Isa i) { complex_mla(i, a, b, acc, n); }))
        return;
    const int32_t done = lanes_on(isa) ? lanes::complex_mla(a, b, acc, words) : 0;
    for (int32_t w = done; w < words; w += 2) {
        const sp::Prod64 p = sp::cmul(a[w], a[w + 1], b[w], b[w + 1]);
        acc[w] = fx::sat_add(acc[w], fx::rnd(p.re, 31));
        acc[w + 1] = fx::sat_add(acc[w + 1], fx::rnd(p.im, 31));
    }
}

void sp::complex_conj_mult(Isa isa, const int32_t *a, const int32_t *b, int32_t *out, int32_t n) {
    const int32_t words = 2 * sp::stepped_count(n, 2);
    if (lanes_checked(isa, {{out, 4u * words}}, [&](Isa i) { complex_conj_mult(i, a, b, out, n); }))
        return;
    const int32_t done = lanes_on(isa) ? lanes::complex_conj_mult(a, b, out, words) : 0;
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
