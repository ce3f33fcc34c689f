// Per-bin power kernels: |x|^2 of spectra whose parts carry their own Q values (exact integer and
// single-precision variants, brought to the smaller Q of the bin), the single-precision power
// normalised per bin with its Q value, and the smoothed far-end power. Where the caller's
// instance allows them, the lane loops do every bin from one whole step on (the last step
// overlapping the one before); the loops here are the definition and do shorter counts.
#include "sonvel_aec_spectral.h"

#include <algorithm>

#include "spectral/element_lanes.h"
#include "spectral/kernel_elements.h"
#include "spectral/kernels.h"
#include "spectral/lane_check.h"
#include "spectral/processor.h"
#include "state/aec_state.h"

namespace {

// Truncating right shift by 2 * (q - qm) for 32-bit Q values q >= qm (any size).
inline int32_t align_dq(int32_t e, int32_t q, int32_t qm) {
    const int64_t count = 2 * (static_cast<int64_t>(q) - qm);
    return fx::shr_trunc(e, static_cast<int>(std::min<int64_t>(count, 32)));
}

// 2 * qm - 32 in 32-bit two's complement.
inline int32_t energy_q_dq(int32_t qm) {
    return static_cast<int32_t>(2u * static_cast<uint32_t>(qm) - 32u);
}

// Shared loop of the two DQ kernels; PartPower gives the power of one part.
template <int32_t (*PartPower)(int32_t)>
inline void energy_dq(const int32_t *x, const int32_t *qx, int32_t *e, int32_t *qe, int32_t bins) {
    for (int32_t k = 0; k < bins; ++k) {
        const int32_t qre = qx[2 * k];
        const int32_t qim = qx[2 * k + 1];
        const int32_t qm = std::min(qre, qim);
        const int32_t ere = align_dq(PartPower(x[2 * k]), qre, qm);
        const int32_t eim = align_dq(PartPower(x[2 * k + 1]), qim, qm);
        e[k] = fx::sat_add(ere, eim);
        qe[k] = energy_q_dq(qm);
    }
}

int32_t part_power_t(int32_t x) { return sp::part_power_t(x); }

}  // namespace

namespace sp::lanes {
namespace {

#if SONVEL_HAS_LANES

using ln::I32;

// The lane loops return the bins done: all of them from one whole step on, the last step
// overlapping the one before (see fresh_only).

template <bool kTail>
SONVEL_LANES_TARGET inline void energy_dq_step(const int32_t *x, const int32_t *qx, int32_t *e,
                                               int32_t *qe, ln::Mask fresh) {
    using namespace ln;
    const Bins v = load_bins(x);
    const Bins q = load_bins(qx);
    // 1. The smaller Q of the bin; each part shifted right by twice its excess, at most 32
    // (the excess read as unsigned: it may pass 2^31).
    const I32 qm = min(q.re, q.im);
    const I32 ex_re = min_u(sub(q.re, qm), dup(16));
    const I32 ex_im = min_u(sub(q.im, qm), dup(16));
    // 2. int(float(x)^2 * 2^-32) of each part, aligned, added with saturation.
    const F32 r = i2f(v.re);
    const F32 i = i2f(v.im);
    const I32 pr = f2i_not_nan(fmul(fmul(r, r), dupf(sp::kTwoPowM32)));
    const I32 pi = f2i_not_nan(fmul(fmul(i, i), dupf(sp::kTwoPowM32)));
    const I32 sum = sat_add(shr_trunc(pr, shl_n<1>(ex_re)), shr_trunc(pi, shl_n<1>(ex_im)));
    // 3. Q value 2 qm - 32, wrapped.
    const I32 qsum = sub(shl_n<1>(qm), dup(32));
    if constexpr (kTail) {
        store(e, select(fresh, sum, load(e)));
        store(qe, select(fresh, qsum, load(qe)));
    } else {
        store(e, sum);
        store(qe, qsum);
    }
}

SONVEL_LANES_TARGET int32_t energy_dq_f(const int32_t *x, const int32_t *qx, int32_t *e,
                                        int32_t *qe, int32_t bins) {
    int32_t k = 0;
    for (; k + ln::kLanes <= bins; k += ln::kLanes) {
        energy_dq_step<false>(x + 2 * k, qx + 2 * k, e + k, qe + k, lanes_from(0));
    }
    if (k < bins && bins >= ln::kLanes) {
        const int32_t last = bins - ln::kLanes;
        energy_dq_step<true>(x + 2 * last, qx + 2 * last, e + last, qe + last,
                             lanes_from(k - last));
        k = bins;
    }
    return k;
}

template <bool kTail>
SONVEL_LANES_TARGET inline void energy_step(const int32_t *x, int32_t *e, I32 qoff, int16_t *qe,
                                            ln::Mask fresh) {
    const Power p = bin_power(ln::load_bins(x));
    const Mant m = normalise(p.e, ln::add(ln::shl_n<1>(p.h), qoff));
    if constexpr (kTail) {
        ln::store(e, ln::select(fresh, m.m, ln::load(e)));
        ln::store16(qe, ln::select(fresh, m.q, ln::load16(qe)));
    } else {
        ln::store(e, m.m);
        ln::store16(qe, m.q);
    }
}

SONVEL_LANES_TARGET int32_t energy_f(const int32_t *x, int32_t *e, int qoff, int16_t *qe,
                                     int32_t bins) {
    const I32 off = ln::dup(qoff);
    int32_t k = 0;
    for (; k + ln::kLanes <= bins; k += ln::kLanes) {
        energy_step<false>(x + 2 * k, e + k, off, qe + k, lanes_from(0));
    }
    if (k < bins && bins >= ln::kLanes) {
        const int32_t last = bins - ln::kLanes;
        energy_step<true>(x + 2 * last, e + last, off, qe + last, lanes_from(k - last));
        k = bins;
    }
    return k;
}

template <bool kTail>
SONVEL_LANES_TARGET inline void far_power_step(const int32_t *x, I32 scale, int32_t *p,
                                               ln::Mask fresh) {
    using namespace ln;
    const Power bp = bin_power(load_bins(x));
    const I32 e = shift_sat(bp.e, sub(scale, shl_n<1>(bp.h)));
    const I32 old = load(p);
    const F32 fresh_part = fmul(i2f(e), dupf(3277.0f));
    const F32 kept = fmul(i2f(old), dupf(29490.0f));
    const I32 v = f2i_not_nan(fmul(fadd(fresh_part, kept), dupf(sp::kTwoPowM15)));
    store(p, fresh_only<kTail>(v, old, fresh));
}

SONVEL_LANES_TARGET int32_t far_power(const int32_t *x, int s, int32_t *p, int32_t bins) {
    const I32 scale = ln::dup(2 * (9 - s));
    int32_t k = 0;
    for (; k + ln::kLanes <= bins; k += ln::kLanes) {
        far_power_step<false>(x + 2 * k, scale, p + k, lanes_from(0));
    }
    if (k < bins && bins >= ln::kLanes) {
        const int32_t last = bins - ln::kLanes;
        far_power_step<true>(x + 2 * last, scale, p + last, lanes_from(k - last));
        k = bins;
    }
    return k;
}

#else

int32_t energy_dq_f(const int32_t *, const int32_t *, int32_t *, int32_t *, int32_t) { return 0; }
int32_t energy_f(const int32_t *, int32_t *, int, int16_t *, int32_t) { return 0; }
int32_t far_power(const int32_t *, int, int32_t *, int32_t) { return 0; }

#endif

}  // namespace
}  // namespace sp::lanes

extern "C" SONVEL_API void Sonvel_AEC_Complex_Energy_DQ_T(const int32_t *x, const int32_t *qx,
                                                          int32_t *e, int32_t *qe, int32_t n) {
    energy_dq<part_power_t>(x, qx, e, qe, sp::stepped_count(n, 2));
}

void sp::energy_dq_f(Isa isa, const int32_t *x, const int32_t *qx, int32_t *e, int32_t *qe,
                     int32_t n) {
    const int32_t bins = sp::stepped_count(n, 4);
    if (lanes_checked(isa, {{e, 4u * bins}, {qe, 4u * bins}},
                      [&](Isa i) { energy_dq_f(i, x, qx, e, qe, n); }))
        return;
    const int32_t k = lanes_on(isa) ? lanes::energy_dq_f(x, qx, e, qe, bins) : 0;
    energy_dq<part_power_f>(x + 2 * k, qx + 2 * k, e + k, qe + k, bins - k);
}

extern "C" SONVEL_API void Sonvel_AEC_Complex_Energy_DQ_F(const int32_t *x, const int32_t *qx,
                                                          int32_t *e, int32_t *qe, int32_t n) {
    sp::energy_dq_f(sp::kStatelessIsa, x, qx, e, qe, n);
}

void sp::energy_f(Isa isa, const int32_t *x, int32_t *e, int16_t q, int16_t *qe, int32_t n) {
    const int32_t bins = sp::stepped_count(n, 4);
    if (lanes_checked(isa, {{e, 4u * bins}, {qe, 2u * bins}},
                      [&](Isa i) { energy_f(i, x, e, q, qe, n); }))
        return;
    const int qoff = 2 * q - 32;
    const int32_t done = lanes_on(isa) ? lanes::energy_f(x, e, qoff, qe, bins) : 0;
    for (int32_t k = done; k < bins; ++k) {
        const sp::BinPower bp = sp::bin_power_f(x[2 * k], x[2 * k + 1]);
        const sp::Mant m = sp::normalise(bp.e, 2 * bp.h + qoff);
        e[k] = m.m;
        qe[k] = static_cast<int16_t>(m.q);
    }
}

extern "C" SONVEL_API void Sonvel_AEC_Complex_Energy_F(const int32_t *x, int32_t *e, int16_t q,
                                                       int16_t *qe, int32_t n) {
    sp::energy_f(sp::kStatelessIsa, x, e, q, qe, n);
}

namespace {

void far_power(sp::Isa isa, const int32_t *x, int s, int32_t *p, int32_t bins) {
    if (sp::lanes_checked(isa, {{p, 4u * bins}}, [&](sp::Isa i) { far_power(i, x, s, p, bins); }))
        return;
    const int32_t done = sp::lanes_on(isa) ? sp::lanes::far_power(x, s, p, bins) : 0;
    for (int32_t k = done; k < bins; ++k) {
        p[k] = sp::far_power_element(x[2 * k], x[2 * k + 1], s, p[k]);
    }
}

}  // namespace

extern "C" SONVEL_API void Sonvel_AEC_Energy(const AecState *state, const int32_t *x, int32_t *p) {
    far_power(sp::instance_isa(state), x, state->s16RateShift, p,
              sp::stepped_count(state->s16HalfFftLen + 4, 4));
}
