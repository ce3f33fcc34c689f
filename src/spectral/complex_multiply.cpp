// Complex multiply kernels over packed spectra: product (Q31 x Q31 -> Q30), multiply-accumulate
// (Q31 x Q31 -> Q31, saturating accumulator) of one or several partitions, conjugate product, and
// the conjugate product normalised per part with its Q value. Counts are bins, processed in pairs.
// The per-bin loops are the definition; from one whole step on, the lane loops (in the lanes'
// own complex word order) do every bin, their last step overlapping the one before.
#include "sonvel_aec_spectral.h"

#include "spectral/element_lanes.h"
#include "spectral/kernel_elements.h"
#include "spectral/kernels.h"
#include "spectral/lane_check.h"
#include "spectral/lanes.h"

namespace sp::lanes {
namespace {

#if SONVEL_HAS_LANES

using ln::Cplx;

// Words per step.
constexpr int32_t kStep = 2 * ln::kLanes;

SONVEL_LANES_TARGET inline Cplx sat_add(Cplx a, Cplx b) {
    return {{ln::sat_add(a.w[0], b.w[0]), ln::sat_add(a.w[1], b.w[1])}};
}

template <bool kTail>
SONVEL_LANES_TARGET inline void mla_sum_step(const int32_t *a, const int32_t *b, int32_t stride,
                                             int parts, int32_t *acc, ln::CplxMask fresh) {
    const Cplx old = ln::load_cplx(acc);
    Cplx s = old;
    for (int p = 0; p < parts; ++p) {
        const int64_t at = int64_t{p} * stride;
        s = sat_add(
            s, ln::rnd_narrow<31>(ln::cmul_wide(ln::load_cplx(a + at), ln::load_cplx(b + at))));
    }
    ln::store_cplx(acc, fresh_only<kTail>(s, old, fresh));
}

// acc += rnd_31(a_p b_p) per bin for p = 0..parts-1 in turn (a_p = a + p * stride), saturating; the
// partial sums stay in the lanes. The last step overlaps the one before (see fresh_only). Returns
// the words done: all of them, or none when they are fewer than one step.
SONVEL_LANES_TARGET int32_t complex_mla_sum(const int32_t *a, const int32_t *b, int32_t stride,
                                            int parts, int32_t *acc, int32_t words) {
    int32_t w = 0;
    for (; w + kStep <= words; w += kStep) {
        mla_sum_step<false>(a + w, b + w, stride, parts, acc + w, {});
    }
    if (w < words && words >= kStep) {
        const int32_t last = words - kStep;
        mla_sum_step<true>(a + last, b + last, stride, parts, acc + last,
                           ln::bins_from((w - last) / 2));
        w = words;
    }
    return w;
}

template <bool kTail>
SONVEL_LANES_TARGET inline void conj_mult_step(const int32_t *a, const int32_t *b, int32_t *out,
                                               ln::CplxMask fresh) {
    const Cplx p = ln::rnd_narrow<31>(ln::cmul_wide(ln::load_cplx(a), ln::conj(ln::load_cplx(b))));
    if constexpr (kTail) {
        ln::store_cplx(out, fresh_only<true>(p, ln::load_cplx(out), fresh));
    } else {
        ln::store_cplx(out, p);
    }
}

// out = rnd_31(a conj(b)) per bin; out may be an operand (the last step computes the words it
// keeps from operands already overwritten, and drops them).
SONVEL_LANES_TARGET int32_t complex_conj_mult(const int32_t *a, const int32_t *b, int32_t *out,
                                              int32_t words) {
    int32_t w = 0;
    for (; w + kStep <= words; w += kStep) conj_mult_step<false>(a + w, b + w, out + w, {});
    if (w < words && words >= kStep) {
        const int32_t last = words - kStep;
        conj_mult_step<true>(a + last, b + last, out + last, ln::bins_from((w - last) / 2));
        w = words;
    }
    return w;
}

#else

int32_t complex_mla_sum(const int32_t *, const int32_t *, int32_t, int, int32_t *, int32_t) {
    return 0;
}
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

void sp::complex_mla_sum(Isa isa, const int32_t *a, const int32_t *b, int32_t stride, int parts,
                         int32_t *acc, int32_t n) {
    const int32_t words = 2 * sp::stepped_count(n, 2);
    if (lanes_checked(isa, {{acc, 4u * words}},
                      [&](Isa i) { complex_mla_sum(i, a, b, stride, parts, acc, n); }))
        return;
    if (lanes_on(isa) && lanes::complex_mla_sum(a, b, stride, parts, acc, words) == words) return;
    for (int p = 0; p < parts; ++p) {
        const int32_t *ap = a + int64_t{p} * stride;
        const int32_t *bp = b + int64_t{p} * stride;
        for (int32_t w = 0; w < words; w += 2) {
            const sp::Prod64 prod = sp::cmul(ap[w], ap[w + 1], bp[w], bp[w + 1]);
            acc[w] = fx::sat_add(acc[w], fx::rnd(prod.re, 31));
            acc[w + 1] = fx::sat_add(acc[w + 1], fx::rnd(prod.im, 31));
        }
    }
}

void sp::complex_mla(Isa isa, const int32_t *a, const int32_t *b, int32_t *acc, int32_t n) {
    complex_mla_sum(isa, a, b, 0, 1, acc, n);
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
