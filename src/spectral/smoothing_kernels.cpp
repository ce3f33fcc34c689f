// First-order smoothing kernels in block floating point: y = a*y + (32767 - a)*x per element with
// per-element or common factors, the smoothed single-precision power of a spectrum, and the
// smoothed, per-part normalised cross-spectrum a * conj(b). Where the caller's instance
// allows them, the lane loops do every element from one whole step on (the last step overlapping
// the one before); the loops here are the definition and do the rest.
#include "sonvel_aec_spectral.h"

#include "spectral/element_lanes.h"
#include "spectral/kernel_elements.h"
#include "spectral/kernels.h"
#include "spectral/lane_check.h"

namespace {

// Smooth x (Q qx) into y (Q qy) in place.
inline void smooth_into(int32_t x, int qx, int32_t &y, int16_t &qy, int32_t a) {
    const sp::Mant m = sp::smooth_element(x, qx, y, qy, a);
    y = m.m;
    qy = static_cast<int16_t>(m.q);
}

}  // namespace

namespace sp::lanes {
namespace {

#if SONVEL_HAS_LANES

using ln::Cplx;
using ln::I32;

// The lane loops return the elements (words or bins) done: all of them from one whole step on,
// the last step overlapping the one before (see fresh_only).

template <bool kTail>
SONVEL_LANES_TARGET inline void smooth_dg_step(const int32_t *x, int32_t *y, const int16_t *qx,
                                               int16_t *qy, I32 f, ln::Mask fresh) {
    const I32 yv = ln::load(y), qv = ln::load16(qy);
    const Mant m = smooth(ln::load(x), ln::load16(qx), yv, qv, f);
    ln::store(y, fresh_only<kTail>(m.m, yv, fresh));
    ln::store16(qy, fresh_only<kTail>(m.q, qv, fresh));
}

// Stops before a step with a negative factor.
SONVEL_LANES_TARGET int32_t smooth_dg_f(const int32_t *x, int32_t *y, const int16_t *qx,
                                        int16_t *qy, const int16_t *a, int32_t count) {
    int32_t i = 0;
    for (; i + ln::kLanes <= count; i += ln::kLanes) {
        const I32 f = ln::load16(a + i);
        if (ln::any_negative(f)) return i;
        smooth_dg_step<false>(x + i, y + i, qx + i, qy + i, f, lanes_from(0));
    }
    if (i < count && count >= ln::kLanes) {
        const int32_t last = count - ln::kLanes;
        const I32 f = ln::load16(a + last);
        if (ln::any_negative(f)) return i;
        smooth_dg_step<true>(x + last, y + last, qx + last, qy + last, f, lanes_from(i - last));
        i = count;
    }
    return i;
}

template <bool kTail>
SONVEL_LANES_TARGET inline void energy_smooth_step(const int32_t *x, int32_t *y, I32 qoff,
                                                   int16_t *qy, I32 a, ln::Mask fresh) {
    const Power p = bin_power(ln::load_bins(x));
    const I32 qe = ln::add(ln::shl_n<1>(p.h), qoff);
    const I32 yv = ln::load(y), qv = ln::load16(qy);
    const Mant m = smooth(p.e, qe, yv, qv, a);
    ln::store(y, fresh_only<kTail>(m.m, yv, fresh));
    ln::store16(qy, fresh_only<kTail>(m.q, qv, fresh));
}

SONVEL_LANES_TARGET int32_t energy_smooth_f(const int32_t *x, int32_t *y, int qoff, int16_t *qy,
                                            int32_t a, int32_t bins) {
    if (a < 0) return 0;
    const I32 off = ln::dup(qoff), f = ln::dup(a);
    int32_t k = 0;
    for (; k + ln::kLanes <= bins; k += ln::kLanes) {
        energy_smooth_step<false>(x + 2 * k, y + k, off, qy + k, f, lanes_from(0));
    }
    if (k < bins && bins >= ln::kLanes) {
        const int32_t last = bins - ln::kLanes;
        energy_smooth_step<true>(x + 2 * last, y + last, off, qy + last, f, lanes_from(k - last));
        k = bins;
    }
    return k;
}

template <bool kTail>
SONVEL_LANES_TARGET inline void conj_mult_smooth_step(const int32_t *a, const int32_t *b,
                                                      int32_t *y, I32 off, int16_t *qy, I32 f,
                                                      ln::CplxMask fresh) {
    const ConjQ c = conj_mult_q(ln::load_cplx(a), ln::load_cplx(b));
    const Cplx yv = ln::load_cplx(y), qv = ln::load16_cplx(qy);
    Cplx ny, nq;
    for (int h = 0; h < 2; ++h) {
        const Mant m = smooth(c.m.w[h], ln::add(c.q.w[h], off), yv.w[h], qv.w[h], f);
        ny.w[h] = m.m;
        nq.w[h] = m.q;
    }
    ln::store_cplx(y, fresh_only<kTail>(ny, yv, fresh));
    ln::store16_cplx(qy, fresh_only<kTail>(nq, qv, fresh));
}

SONVEL_LANES_TARGET int32_t conj_mult_smooth_q(const int32_t *a, const int32_t *b, int32_t *y,
                                               int qoff, int16_t *qy, int32_t s, int32_t words) {
    if (s < 0) return 0;
    constexpr int32_t kStep = 2 * ln::kLanes;
    const I32 f = ln::dup(s), off = ln::dup(qoff);
    int32_t w = 0;
    for (; w + kStep <= words; w += kStep) {
        conj_mult_smooth_step<false>(a + w, b + w, y + w, off, qy + w, f, {});
    }
    if (w < words && words >= kStep) {
        const int32_t last = words - kStep;
        conj_mult_smooth_step<true>(a + last, b + last, y + last, off, qy + last, f,
                                    ln::bins_from((w - last) / 2));
        w = words;
    }
    return w;
}

#else

int32_t smooth_dg_f(const int32_t *, int32_t *, const int16_t *, int16_t *, const int16_t *,
                    int32_t) {
    return 0;
}
int32_t energy_smooth_f(const int32_t *, int32_t *, int, int16_t *, int32_t, int32_t) { return 0; }
int32_t conj_mult_smooth_q(const int32_t *, const int32_t *, int32_t *, int, int16_t *, int32_t,
                           int32_t) {
    return 0;
}

#endif

}  // namespace
}  // namespace sp::lanes

void sp::smooth_dg_f(Isa isa, const int32_t *x, int32_t *y, const int16_t *qx, int16_t *qy,
                     const int16_t *a, int16_t n) {
    const int32_t count = sp::stepped_count(n, 4);
    if (lanes_checked(isa, {{y, 4u * count}, {qy, 2u * count}},
                      [&](Isa i) { smooth_dg_f(i, x, y, qx, qy, a, n); }))
        return;
    const int32_t done = lanes_on(isa) ? lanes::smooth_dg_f(x, y, qx, qy, a, count) : 0;
    for (int32_t i = done; i < count; ++i) smooth_into(x[i], qx[i], y[i], qy[i], a[i]);
}

extern "C" SONVEL_API void Sonvel_AEC_Smooth_F(const int32_t *x, int32_t *y, const int16_t *qx,
                                               int16_t *qy, int16_t a, int16_t n) {
    const int32_t count = sp::stepped_count(n, 4);
    for (int32_t i = 0; i < count; ++i) smooth_into(x[i], qx[i], y[i], qy[i], a);
}

void sp::energy_smooth_f(Isa isa, const int32_t *x, int32_t *y, int16_t q, int16_t *qy, int16_t a,
                         int32_t n) {
    const int32_t bins = sp::stepped_count(n, 4);
    if (lanes_checked(isa, {{y, 4u * bins}, {qy, 2u * bins}},
                      [&](Isa i) { energy_smooth_f(i, x, y, q, qy, a, n); }))
        return;
    const int qoff = 2 * q - 32;
    const int32_t done = lanes_on(isa) ? lanes::energy_smooth_f(x, y, qoff, qy, a, bins) : 0;
    for (int32_t k = done; k < bins; ++k) {
        const sp::BinPower bp = sp::bin_power_f(x[2 * k], x[2 * k + 1]);
        smooth_into(bp.e, 2 * bp.h + qoff, y[k], qy[k], a);
    }
}

void sp::conj_mult_smooth_q(Isa isa, const int32_t *a, const int32_t *b, int32_t *y, int16_t q,
                            int16_t *qy, int16_t s, int32_t n) {
    const int32_t words = 2 * sp::stepped_count(n, 2);
    if (lanes_checked(isa, {{y, 4u * words}, {qy, 2u * words}},
                      [&](Isa i) { conj_mult_smooth_q(i, a, b, y, q, qy, s, n); }))
        return;
    const int qoff = 2 * q - 32;
    const int32_t done = lanes_on(isa) ? lanes::conj_mult_smooth_q(a, b, y, qoff, qy, s, words) : 0;
    for (int32_t w = done; w < words; w += 2) {
        const sp::ConjQ c = sp::conj_mult_q(a[w], a[w + 1], b[w], b[w + 1]);
        smooth_into(c.re, c.hr_re + qoff, y[w], qy[w], s);
        smooth_into(c.im, c.hr_im + qoff, y[w + 1], qy[w + 1], s);
    }
}

extern "C" SONVEL_API void Sonvel_AEC_Smooth_DG_F(const int32_t *x, int32_t *y, const int16_t *qx,
                                                  int16_t *qy, const int16_t *a, int16_t n) {
    sp::smooth_dg_f(sp::kStatelessIsa, x, y, qx, qy, a, n);
}

extern "C" SONVEL_API void Sonvel_AEC_Complex_Energy_Smooth_F(const int32_t *x, int32_t *y,
                                                              int16_t q, int16_t *qy, int16_t a,
                                                              int32_t n) {
    sp::energy_smooth_f(sp::kStatelessIsa, x, y, q, qy, a, n);
}

extern "C" SONVEL_API void Sonvel_AEC_Complex_ConjMult_Smooth_Q(const int32_t *a, const int32_t *b,
                                                                int32_t *y, int16_t q, int16_t *qy,
                                                                int16_t s, int32_t n) {
    sp::conj_mult_smooth_q(sp::kStatelessIsa, a, b, y, q, qy, s, n);
}
