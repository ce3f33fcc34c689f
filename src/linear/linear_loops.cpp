// The loops of the filter update, the echo estimate and the far-end block. With the vector choice
// the lane loop of each (written once against the lane vocabulary) does every element from one
// whole step on, its last step overlapping the one before where the count is not a whole number
// of steps; the per-element loops are the definition and do what the lane loops leave.
#include "linear/linear_loops.h"

#include <algorithm>

#include "fixedpoint/block_float.h"
#include "spectral/element_lanes.h"
#include "spectral/lane_check.h"
#include "spectral/lanes.h"
#include "spectral/reciprocal.h"

namespace lin {

namespace {

constexpr float kTwoPow31 = 2147483648.0f;
constexpr float kTwoPow14 = 16384.0f;
constexpr float kTwoPowM32 = 1.0f / 4294967296.0f;

bool vector(sp::Isa isa) { return sp::lanes_on(isa); }

// Right-shift count of a non-positive signed count, at most 31.
int right_count(int c) { return c <= -31 ? 31 : -c; }

// fx::sat_add without a branch, so that the portable loop vectorises: the wrapped sum overflowed
// when it differs in sign from both operands, and then saturates toward the sign of a.
inline int32_t sat_add_select(int32_t a, int32_t b) {
    const auto r = static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
    const int32_t sat = (a >> 31) ^ fx::kMax32;
    return ((a ^ r) & (b ^ r)) < 0 ? sat : r;
}

}  // namespace

namespace lanes {
namespace {

#if SONVEL_HAS_LANES

using ln::I32;
using sp::lanes::fresh_only;
using sp::lanes::lanes_from;

// The lane loops return the bins, words or samples they did. Where a loop's count is not a whole
// number of steps, its last step ends at the last element and overlaps the one before: in place,
// it keeps the elements already done (fresh_only).

// Bins of the reciprocal of the far-end power.
SONVEL_LANES_TARGET inline void reciprocal_step(const int32_t *pow, I32 qbase, int32_t *man,
                                                int32_t *q) {
    const I32 p = ln::load(pow);
    const I32 t = ln::sat_add(ln::sub(p, ln::shr_all(p, 2)), ln::dup(1));
    const I32 m = ln::f2i_not_nan(ln::fmul(ln::recip(ln::i2f(t)), ln::dupf(kTwoPow31)));
    const I32 c = ln::hr(m);
    ln::store(man, ln::shl(m, c));
    ln::store(q, ln::add(c, qbase));
}

// The bins left after the whole steps are done by one more step that ends at the last bin and
// repeats a few bins (the outputs are separate from the input).
SONVEL_LANES_TARGET int reciprocal_far_power(const int32_t *pow, int bins, int s, int32_t *man,
                                             int32_t *q) {
    const I32 qbase = ln::dup(s + 16);
    int k = 0;
    for (; k + ln::kLanes <= bins; k += ln::kLanes) reciprocal_step(pow + k, qbase, man + k, q + k);
    if (k < bins && bins >= ln::kLanes) {
        const int last = bins - ln::kLanes;
        reciprocal_step(pow + last, qbase, man + last, q + last);
        k = bins;
    }
    return k;
}

template <bool kTail>
SONVEL_LANES_TARGET inline void normalised_error_step(const int32_t *e, const int32_t *man,
                                                      const int32_t *q, int32_t *g, int32_t *qg,
                                                      ln::Mask fresh) {
    const ln::Bins x = ln::load_bins(e);
    const I32 m = ln::load(man);
    const I32 qk = ln::load(q);
    const I32 c_re = ln::hr(x.re), c_im = ln::hr(x.im);
    ln::Bins gv{ln::mul_rnd32(m, ln::shl(x.re, c_re)), ln::mul_rnd32(m, ln::shl(x.im, c_im))};
    ln::Bins qv{ln::add(c_re, qk), ln::add(c_im, qk)};
    if constexpr (kTail) {
        const ln::Bins g_old = ln::load_bins(g), q_old = ln::load_bins(qg);
        gv = {ln::select(fresh, gv.re, g_old.re), ln::select(fresh, gv.im, g_old.im)};
        qv = {ln::select(fresh, qv.re, q_old.re), ln::select(fresh, qv.im, q_old.im)};
    }
    ln::store_bins(g, gv);
    ln::store_bins(qg, qv);
}

SONVEL_LANES_TARGET int normalised_error(const int32_t *e, const int32_t *man, const int32_t *q,
                                         int bins, int32_t *g, int32_t *qg) {
    int k = 0;
    for (; k + ln::kLanes <= bins; k += ln::kLanes) {
        normalised_error_step<false>(e + 2 * k, man + k, q + k, g + 2 * k, qg + 2 * k,
                                     lanes_from(0));
    }
    if (k < bins && bins >= ln::kLanes) {
        const int last = bins - ln::kLanes;
        normalised_error_step<true>(e + 2 * last, man + last, q + last, g + 2 * last, qg + 2 * last,
                                    lanes_from(k - last));
        k = bins;
    }
    return k;
}

// The gain of bins from their power and its Q value.
SONVEL_LANES_TARGET inline I32 gain_step(I32 e2, I32 qe2) {
    const I32 m = ln::max(e2, ln::dup(1));
    const I32 c = ln::shl_n<1>(ln::shr_all(ln::hr(m), 1));  // the headroom rounded down to even
    const ln::F32 kr =
        ln::fmul(ln::dupf(static_cast<float>(kGain)), ln::rsqrt(ln::i2f(ln::shl(m, c))));
    const I32 v = ln::f2i_not_nan(ln::fmul(kr, ln::dupf(kTwoPow14)));
    const I32 half_q = ln::shr_all(ln::add(qe2, c), 1);
    return ln::shift_sat(v, ln::sub(half_q, ln::dup(kGainShift)));
}

// In place: the bins left after the whole steps are done by one more step over the last bins,
// from their powers as they were before the whole steps overwrote some of them.
SONVEL_LANES_TARGET int constant_magnitude_gain(int32_t *e2, const int32_t *qe2, int bins) {
    const int last = bins - ln::kLanes;
    const bool tail = last >= 0 && bins % ln::kLanes != 0;
    const I32 last_e2 = tail ? ln::load(e2 + last) : ln::zero();
    int k = 0;
    for (; k + ln::kLanes <= bins; k += ln::kLanes) {
        ln::store(e2 + k, gain_step(ln::load(e2 + k), ln::load(qe2 + k)));
    }
    if (tail) {
        ln::store(e2 + last, gain_step(last_e2, ln::load(qe2 + last)));
        k = bins;
    }
    return k;
}

template <bool kTail>
SONVEL_LANES_TARGET inline void apply_gain_step(int32_t *g, const int32_t *gain, ln::Mask fresh) {
    const ln::F32 scale = ln::dupf(kTwoPowM32);
    const ln::F32 gk = ln::i2f(ln::load(gain));
    const ln::Bins x = ln::load_bins(g);
    const I32 re = ln::f2i_not_nan(ln::fmul(ln::fmul(ln::i2f(x.re), gk), scale));
    const I32 im = ln::f2i_not_nan(ln::fmul(ln::fmul(ln::i2f(x.im), gk), scale));
    ln::store_bins(g, {fresh_only<kTail>(re, x.re, fresh), fresh_only<kTail>(im, x.im, fresh)});
}

SONVEL_LANES_TARGET int apply_gain(int32_t *g, const int32_t *gain, int bins) {
    int k = 0;
    for (; k + ln::kLanes <= bins; k += ln::kLanes) {
        apply_gain_step<false>(g + 2 * k, gain + k, lanes_from(0));
    }
    if (k < bins && bins >= ln::kLanes) {
        const int last = bins - ln::kLanes;
        apply_gain_step<true>(g + 2 * last, gain + last, lanes_from(k - last));
        k = bins;
    }
    return k;
}

// *q becomes the smallest of *q and the Q values of the non-zero words done; the last step may
// overlap the one before, as a minimum does not change by taking a word twice.
SONVEL_LANES_TARGET int common_q(const int32_t *g, const int32_t *qg, int words, int *q) {
    if (words < ln::kLanes) return 0;
    const I32 cap = ln::dup(*q);
    I32 low = cap;
    int w = 0;
#pragma GCC unroll 4
    for (; w + ln::kLanes <= words; w += ln::kLanes) {
        low = ln::min(low, ln::if_zero(ln::load(g + w), cap, ln::load(qg + w)));
    }
    if (w < words) {
        const int last = words - ln::kLanes;
        low = ln::min(low, ln::if_zero(ln::load(g + last), cap, ln::load(qg + last)));
    }
    *q = ln::min_lanes(low);
    return words;
}

template <bool kTail>
SONVEL_LANES_TARGET inline void align_to_q_step(int32_t *g, const int32_t *qg, I32 q,
                                                ln::Mask fresh) {
    const I32 v = ln::load(g);
    ln::store(g, fresh_only<kTail>(ln::shift_wrap(v, ln::sub(q, ln::load(qg))), v, fresh));
}

SONVEL_LANES_TARGET int align_to_q(int32_t *g, const int32_t *qg, int words, int q) {
    const I32 qv = ln::dup(q);
    int w = 0;
#pragma GCC unroll 4
    for (; w + ln::kLanes <= words; w += ln::kLanes) {
        align_to_q_step<false>(g + w, qg + w, qv, lanes_from(0));
    }
    if (w < words && words >= ln::kLanes) {
        const int last = words - ln::kLanes;
        align_to_q_step<true>(g + last, qg + last, qv, lanes_from(w - last));
        w = words;
    }
    return w;
}

// W += Phi >> r (r in 0..31) or W += Phi << c (c >= 1, saturating shift), saturating.
template <bool kTail, bool kLeft>
SONVEL_LANES_TARGET inline void accumulate_step(int32_t *w, const int32_t *phi, int c,
                                                ln::Mask fresh) {
    const I32 old = ln::load(w), p = ln::load(phi);
    const I32 shifted = kLeft ? ln::shl_sat_all(p, c) : ln::shr_all(p, c);
    ln::store(w, fresh_only<kTail>(ln::sat_add(old, shifted), old, fresh));
}

template <bool kLeft>
SONVEL_LANES_TARGET int accumulate(int32_t *w, const int32_t *phi, int words, int c) {
    int i = 0;
#pragma GCC unroll 4
    for (; i + ln::kLanes <= words; i += ln::kLanes) {
        accumulate_step<false, kLeft>(w + i, phi + i, c, lanes_from(0));
    }
    if (i < words && words >= ln::kLanes) {
        const int last = words - ln::kLanes;
        accumulate_step<true, kLeft>(w + last, phi + last, c, lanes_from(i - last));
        i = words;
    }
    return i;
}

SONVEL_LANES_TARGET int accumulate_right(int32_t *w, const int32_t *phi, int words, int r) {
    return accumulate<false>(w, phi, words, r);
}

SONVEL_LANES_TARGET int accumulate_left(int32_t *w, const int32_t *phi, int words, int c) {
    return accumulate<true>(w, phi, words, c);
}

// fx::shift_sat of every lane by the one count c: truncating right for c <= 0 (the sign fill from
// 31 on), left with saturation otherwise; lanes of int16 values shifted left by up to 16 cannot
// saturate.
SONVEL_LANES_TARGET inline I32 shift_sat_by(I32 x, int c, bool int16_values) {
    if (c <= 0) return ln::shr_all(x, right_count(c));
    if (int16_values && c <= 16) return ln::shl_all(x, c);
    return ln::shl_sat_all(x, c);
}

SONVEL_LANES_TARGET int estimate_and_error(int32_t *y, const int16_t *near, int l, int undo, int s,
                                           int32_t *est, int32_t *err) {
    int i = 0;
    for (; i + ln::kLanes <= l; i += ln::kLanes) {
        const I32 yhat = shift_sat_by(ln::load(y + l + i), undo, false);
        const I32 e = ln::sat_sub(shift_sat_by(ln::load16(near + i), s, true), yhat);
        ln::store(est + i, yhat);
        ln::store(err + i, e);
        ln::store(y + i, ln::zero());
        ln::store(y + l + i, e);
    }
    return i;
}

SONVEL_LANES_TARGET int widen_shifted(const int16_t *x, int count, int s, int32_t *f) {
    const I32 c = ln::dup(s);
    int i = 0;
#pragma GCC unroll 4
    for (; i + ln::kLanes <= count; i += ln::kLanes) {
        ln::store(f + i, ln::shift_wrap(ln::load16(x + i), c));
    }
    return i;
}

// The squares of int16 samples fit in 31 bits; their sums are kept in 64 bits.
SONVEL_LANES_TARGET int sum_squares(const int16_t *x, int n, int64_t *sum) {
    ln::Acc64 acc = ln::acc64_zero();
    int i = 0;
#pragma GCC unroll 4
    for (; i + ln::kLanes <= n; i += ln::kLanes) {
        const I32 v = ln::load16(x + i);
        acc = ln::acc64_add(acc, ln::mul_lo(v, v));
    }
    *sum = ln::acc64_total(acc);
    return i;
}

#else

int widen_shifted(const int16_t *, int, int, int32_t *) { return 0; }
int sum_squares(const int16_t *, int, int64_t *sum) {
    *sum = 0;
    return 0;
}
int reciprocal_far_power(const int32_t *, int, int, int32_t *, int32_t *) { return 0; }
int normalised_error(const int32_t *, const int32_t *, const int32_t *, int, int32_t *, int32_t *) {
    return 0;
}
int constant_magnitude_gain(int32_t *, const int32_t *, int) { return 0; }
int apply_gain(int32_t *, const int32_t *, int) { return 0; }
int common_q(const int32_t *, const int32_t *, int, int *) { return 0; }
int align_to_q(int32_t *, const int32_t *, int, int) { return 0; }
int accumulate_right(int32_t *, const int32_t *, int, int) { return 0; }
int accumulate_left(int32_t *, const int32_t *, int, int) { return 0; }
int estimate_and_error(int32_t *, const int16_t *, int, int, int, int32_t *, int32_t *) {
    return 0;
}

#endif

}  // namespace
}  // namespace lanes

void reciprocal_far_power(sp::Isa isa, const int32_t *pow, int bins, int s, int32_t *man,
                          int32_t *q) {
    if (sp::lanes_checked(isa, {{man, 4u * bins}, {q, 4u * bins}},
                          [&](sp::Isa i) { reciprocal_far_power(i, pow, bins, s, man, q); }))
        return;
    int k = vector(isa) ? lanes::reciprocal_far_power(pow, bins, s, man, q) : 0;
    for (; k < bins; ++k) {
        const int32_t t = fx::sat_add(pow[k] - (pow[k] >> 2), 1);
        const float inv = sp::recip(fx::i2f(t));
        const int32_t m = fx::f2i(inv * kTwoPow31);
        const int c = fx::hr(m);
        man[k] = fx::shift_wrap(m, c);
        q[k] = c + s + 16;
    }
}

void normalised_error(sp::Isa isa, const int32_t *e, const int32_t *man, const int32_t *q, int bins,
                      int32_t *g, int32_t *qg) {
    if (sp::lanes_checked(isa, {{g, 8u * bins}, {qg, 8u * bins}},
                          [&](sp::Isa i) { normalised_error(i, e, man, q, bins, g, qg); }))
        return;
    int k = vector(isa) ? lanes::normalised_error(e, man, q, bins, g, qg) : 0;
    for (; k < bins; ++k) {
        for (int part = 0; part < 2; ++part) {
            const int32_t x = e[2 * k + part];
            const int c = fx::hr(x);
            const int64_t prod = static_cast<int64_t>(man[k]) * fx::shift_wrap(x, c);
            g[2 * k + part] = fx::rnd(prod, 32);
            qg[2 * k + part] = c + q[k];
        }
    }
}

void constant_magnitude_gain(sp::Isa isa, int32_t *e2, const int32_t *qe2, int bins) {
    if (sp::lanes_checked(isa, {{e2, 4u * bins}},
                          [&](sp::Isa i) { constant_magnitude_gain(i, e2, qe2, bins); }))
        return;
    int k = vector(isa) ? lanes::constant_magnitude_gain(e2, qe2, bins) : 0;
    for (; k < bins; ++k) {
        const int32_t m = std::max(e2[k], 1);
        const int c = fx::hr(m) & ~1;
        const int32_t mn = fx::shift_wrap(m, c);
        const float r = sp::rsqrt(fx::i2f(mn));
        const float kr = fx::i2f(kGain) * r;
        const int32_t v = fx::f2i(kr * kTwoPow14);
        e2[k] = fx::shift_sat(v, ((qe2[k] + c) >> 1) - kGainShift);
    }
}

void apply_gain(sp::Isa isa, int32_t *g, const int32_t *gain, int bins) {
    if (sp::lanes_checked(isa, {{g, 8u * bins}}, [&](sp::Isa i) { apply_gain(i, g, gain, bins); }))
        return;
    int k = vector(isa) ? lanes::apply_gain(g, gain, bins) : 0;
    for (; k < bins; ++k) {
        const float gk = fx::i2f(gain[k]);
        for (int part = 0; part < 2; ++part) {
            const float prod = fx::i2f(g[2 * k + part]) * gk;
            g[2 * k + part] = fx::f2i(prod * kTwoPowM32);
        }
    }
}

int common_q(sp::Isa isa, const int32_t *g, const int32_t *qg, int words) {
    int r = 0;
    if (sp::lanes_checked(isa, {{&r, sizeof r}}, [&](sp::Isa i) { r = common_q(i, g, qg, words); }))
        return r;
    int32_t q = kQCap;
    int w = vector(isa) ? lanes::common_q(g, qg, words, &q) : 0;
    for (; w < words; ++w) {
        if (g[w] != 0) q = std::min(q, qg[w]);
    }
    return q;
}

void align_to_q(sp::Isa isa, int32_t *g, const int32_t *qg, int words, int q) {
    if (sp::lanes_checked(isa, {{g, 4u * words}},
                          [&](sp::Isa i) { align_to_q(i, g, qg, words, q); }))
        return;
    int w = vector(isa) ? lanes::align_to_q(g, qg, words, q) : 0;
    for (; w < words; ++w) g[w] = fx::shift_wrap(g[w], q - qg[w]);
}

// The direction of the shift is decided once, so that each loop is a plain saturating sum.
void accumulate_into_filter(sp::Isa isa, int32_t *w, const int32_t *phi, int words, int shift) {
    if (sp::lanes_checked(isa, {{w, 4u * words}},
                          [&](sp::Isa i) { accumulate_into_filter(i, w, phi, words, shift); }))
        return;
    if (shift <= 0) {
        const int r = right_count(shift);
        int i = vector(isa) ? lanes::accumulate_right(w, phi, words, r) : 0;
        for (; i < words; ++i) w[i] = sat_add_select(w[i], phi[i] >> r);
    } else {
        int i = vector(isa) ? lanes::accumulate_left(w, phi, words, shift) : 0;
        for (; i < words; ++i) w[i] = fx::sat_add(w[i], fx::shift_sat(phi[i], shift));
    }
}

void estimate_and_error(sp::Isa isa, int32_t *y, const int16_t *near, int l, int undo, int s,
                        int32_t *est, int32_t *err) {
    if (sp::lanes_checked(isa, {{y, 8u * l}, {est, 4u * l}, {err, 4u * l}},
                          [&](sp::Isa i) { estimate_and_error(i, y, near, l, undo, s, est, err); }))
        return;
    int i = vector(isa) ? lanes::estimate_and_error(y, near, l, undo, s, est, err) : 0;
    for (; i < l; ++i) {
        const int32_t yhat = fx::shift_sat(y[l + i], undo);
        const int32_t d = fx::shift_sat(near[i], s);
        est[i] = yhat;
        const int32_t e = fx::sat_sub(d, yhat);
        err[i] = e;
        y[i] = 0;
        y[l + i] = e;
    }
}

void widen_shifted(sp::Isa isa, const int16_t *x, int count, int s, int32_t *f) {
    if (sp::lanes_checked(isa, {{f, 4u * static_cast<size_t>(std::max(count, 0))}},
                          [&](sp::Isa i) { widen_shifted(i, x, count, s, f); }))
        return;
    int i = vector(isa) ? lanes::widen_shifted(x, count, s, f) : 0;
    for (; i < count; ++i) f[i] = fx::shift_wrap(x[i], s);
}

int64_t sum_squares(sp::Isa isa, const int16_t *x, int n) {
    int64_t sum = 0;
    if (sp::lanes_checked(isa, {{&sum, sizeof sum}},
                          [&](sp::Isa i) { sum = sum_squares(i, x, n); }))
        return sum;
    int i = vector(isa) ? lanes::sum_squares(x, n, &sum) : 0;
    for (; i < n; ++i) sum += static_cast<int32_t>(x[i]) * x[i];
    return sum;
}

}  // namespace lin
