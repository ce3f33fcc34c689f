// The lane loops of the suppressor's frame step, gain shaping and synthesis, written once against
// the lane vocabulary. Lane by lane they compute the scalar definitions of their callers: the same
// integer roundings and saturations, the same float products in the same order.
#include "suppressor/suppressor_lanes.h"

#if SONVEL_HAS_LANES

#include "sonvel_aec_ops.h"
#include "spectral/element_lanes.h"

namespace sup::lanes {
namespace {

using ln::I32;

// (wc * min(g, fb) + (32767 - wc) * g) >> 15 for g and fb in the int16 range and wc in 0..32767:
// the sum lies in [-32767 * 32768, 32767^2], so neither the int32 sum nor the result saturates.
SONVEL_LANES_TARGET inline I32 weigh(I32 g, I32 fb, I32 wc) {
    const I32 toward = ln::mul_lo(wc, ln::min(g, fb));
    const I32 keep = ln::mul_lo(ln::sub(ln::dup(32767), wc), g);
    return ln::shr_all(ln::add(toward, keep), 15);
}

// g^(od / 512) as sup::shaping::overdrive_power, for g and od in the int16 range.
//  - log2 of g > 0: n = hr(g) in 16..30, y = g << n, table index (y >> 25) - 32 in 0..31, weight
//    (y >> 10) & 0x7FFF; the doubled product of the weight and the low half of the entry stays
//    inside the int32 range, the difference from the entry's high half saturates as L_sub.
//  - t = 15 - log2(g) in Q15 lies in 1..2^19 (491520 for g <= 0), so neither sum saturates and
//    t * od has at most 35 bits.
//  - u = t * od >> 16 lies in -2^18..2^18: its shift by 8 fits in int16 and is the shift count,
//    negative counts taken modulo 32; a count of 15 or more leaves the sign fill of the 16-bit
//    entry, which the 32-bit arithmetic shift by the count (saturating at 32) also gives.
SONVEL_LANES_TARGET inline I32 overdrive(I32 g, I32 od) {
    using namespace ln;
    const Mask positive = gt(g, zero());
    const I32 x = ln::max(g, dup(1));
    const I32 n = hr_nonneg(x);
    const I32 y = shl(x, n);
    const I32 i = sub(shr_all(y, 25), dup(32));
    const I32 a = band(shr_all(y, 10), dup(0x7FFF));
    const I32 e = lookup(Sonvel_AEC_gaiAecLog2Tab, i);
    const I32 top = band(e, dup(static_cast<int32_t>(0xFFFF0000u)));
    const I32 low = shr_all(shl_n<16>(e), 16);
    const I32 r = sat_sub(top, shl_n<1>(mul_lo(low, a)));
    const I32 log2 = add(shl_n<15>(sub(dup(30), n)), shr_all(r, 16));
    const I32 t = sub(dup(491520), mask_and(positive, log2));

    const I32 u = mpy_32_16(t, od);
    const I32 shift = shr_all(u, 8);
    const I32 count = select(gt(zero(), shift), band(shift, dup(31)), shift);
    const I32 j = shr_all(mul_lo(band(u, dup(255)), dup(200)), 9);
    return shr_trunc(lookup(Sonvel_AEC_gasAecpow2tab, j), count);
}

// The overdrive cap of each lane's bin; 32767 (no cap) outside both ranges.
SONVEL_LANES_TARGET inline I32 cap(I32 k, const OverdriveCaps &c) {
    I32 r = ln::select(ln::gt(k, ln::dup(c.hi_from - 1)), ln::dup(c.cap_hi), ln::dup(32767));
    r = ln::select(ln::gt(k, ln::dup(c.hi_to)), ln::dup(32767), r);
    return ln::select(ln::gt(ln::dup(c.lo + 1), k), ln::dup(c.cap_lo), r);
}

}  // namespace

SONVEL_LANES_TARGET int32_t window_pcm(const int16_t *w, const int16_t *pcm, int32_t *out,
                                       int shift, int32_t count) {
    int32_t i = 0;
#pragma GCC unroll 2
    for (; i + ln::kLanes <= count; i += ln::kLanes) {
        ln::store(out + i, ln::shr_all(ln::mul_lo(ln::load16(w + i), ln::load16(pcm + i)), shift));
    }
    return i;
}

SONVEL_LANES_TARGET int32_t window_q15(const int16_t *w, const int32_t *in, int32_t *out,
                                       int32_t count) {
    int32_t i = 0;
#pragma GCC unroll 2
    for (; i + ln::kLanes <= count; i += ln::kLanes) {
        ln::store(out + i, ln::mul_rnd15(ln::load(in + i), ln::load16(w + i)));
    }
    return i;
}

// The loops below end a count that is no multiple of the step with a step over the last lanes,
// overlapping the one before it: stores there repeat the same values, and the sums take only the
// lanes not summed before.
namespace {

// Zero words become 1: one is added where the word is zero.
[[gnu::always_inline]] SONVEL_LANES_TARGET inline void mark_zero_step(int32_t *x) {
    const I32 v = ln::load(x);
    ln::store(x, ln::count_set(v, ln::eq(v, ln::zero())));
}

// Lanes of v from index from of a step starting at k on, 0 in the others.
SONVEL_LANES_TARGET inline I32 from_lane(I32 v, int32_t k, int32_t from) {
    return ln::mask_and(ln::gt(ln::iota(k), ln::dup(from - 1)), v);
}

// The bin powers of bins k..k+L-1 (stored unless man is null) and their sum terms.
[[gnu::always_inline]] SONVEL_LANES_TARGET inline I32 bin_power_step(const int32_t *x, int32_t *man,
                                                                     int16_t *exp, int qoff,
                                                                     int toff, int32_t k) {
    const sp::lanes::Power p = sp::lanes::bin_power(ln::load_bins(x + 2 * k));
    const I32 h2 = ln::shl_n<1>(p.h);
    if (man != nullptr) {
        ln::store(man + k, p.e);
        ln::store16(exp + k, ln::add(h2, ln::dup(qoff)));
    }
    // The bin powers are never negative.
    return ln::shift_sat_nonneg(p.e, ln::sub(ln::dup(toff), h2));
}

[[gnu::always_inline]] SONVEL_LANES_TARGET inline I32 band_term(const int32_t *man,
                                                                const int16_t *exp, int c) {
    return ln::shr_trunc(ln::load(man), ln::sub(ln::load16(exp), ln::dup(c)));
}

}  // namespace

SONVEL_LANES_TARGET int32_t mark_zero_words(int32_t *x, int32_t words) {
    if (words < ln::kLanes) return 0;
    int32_t i = 0;
#pragma GCC unroll 2
    for (; i + ln::kLanes <= words; i += ln::kLanes) mark_zero_step(x + i);
    if (i < words) mark_zero_step(x + words - ln::kLanes);
    return words;
}

SONVEL_LANES_TARGET int32_t bin_powers(const int32_t *x, int32_t *man, int16_t *exp, int qoff,
                                       int toff, int64_t *sum, int32_t bins) {
    if (bins < ln::kLanes) return 0;
    ln::Acc64 acc = ln::acc64_zero();
    int32_t k = 0;
    for (; k + ln::kLanes <= bins; k += ln::kLanes) {
        acc = ln::acc64_add(acc, bin_power_step(x, man, exp, qoff, toff, k));
    }
    if (k < bins) {
        const int32_t last = bins - ln::kLanes;
        acc = ln::acc64_add(acc, from_lane(bin_power_step(x, man, exp, qoff, toff, last), last, k));
    }
    *sum += ln::acc64_total(acc);
    return bins;
}

SONVEL_LANES_TARGET int32_t min_q2(const int16_t *a, const int16_t *b, int16_t *lowest,
                                   int32_t count) {
    if (count < ln::kLanes16) return 0;
    ln::I16 m = ln::dup_i16(*lowest);
    int32_t i = 0;
    for (; i + ln::kLanes16 <= count; i += ln::kLanes16) {
        m = ln::min_i16(m, ln::min_i16(ln::load_i16(a + i), ln::load_i16(b + i)));
    }
    if (i < count) {
        i = count - ln::kLanes16;
        m = ln::min_i16(m, ln::min_i16(ln::load_i16(a + i), ln::load_i16(b + i)));
    }
    *lowest = ln::min_lanes_i16(m);
    return count;
}

SONVEL_LANES_TARGET int32_t band_sum(const int32_t *man, const int16_t *exp, int c, int64_t *sum,
                                     int32_t count) {
    if (count < ln::kLanes) return 0;
    ln::Acc64 acc = ln::acc64_zero();
    int32_t i = 0;
    for (; i + ln::kLanes <= count; i += ln::kLanes) {
        acc = ln::acc64_add(acc, band_term(man + i, exp + i, c));
    }
    if (i < count) {
        const int32_t last = count - ln::kLanes;
        acc = ln::acc64_add(acc, from_lane(band_term(man + last, exp + last, c), last, i));
    }
    *sum += ln::acc64_total(acc);
    return count;
}

namespace {

// Steps 1-3 of the gain shaping for bins k..k+L-1.
[[gnu::always_inline]] SONVEL_LANES_TARGET inline I32 shaped_gains(
    const int16_t *g, int32_t fb, const int16_t *wc, const int16_t *ovrd, const int16_t *oc,
    const OverdriveCaps &caps, int32_t k) {
    const I32 weighed = weigh(ln::load16(g + k), ln::dup(fb), ln::load16(wc + k));
    const I32 raw = ln::shr_all(ln::mul_lo(ln::load16(ovrd + k), ln::load16(oc + k)), 14);
    const I32 od = ln::max(ln::min(raw, ln::dup(32767)), ln::dup(-32768));
    return overdrive(weighed, ln::min(od, cap(ln::iota(k), caps)));
}

// E[w..w+2L-1] with the gains applied.
[[gnu::always_inline]] SONVEL_LANES_TARGET inline ln::Bins gained(const int16_t *g,
                                                                  const int32_t *E, int32_t w) {
    const ln::F32 scale = ln::dupf(sp::kTwoPowM15);
    const ln::F32 gf = ln::i2f(ln::load16(g + w / 2));
    const ln::Bins x = ln::load_bins(E + w);
    // Finite products: only the saturation at 2^31 remains.
    const I32 re = ln::f2i_not_nan(ln::fmul(ln::fmul(gf, ln::i2f(x.re)), scale));
    const I32 im = ln::f2i_not_nan(ln::fmul(ln::fmul(gf, ln::i2f(x.im)), scale));
    return {re, im};
}

}  // namespace

// The in-place loops below take a count that is no multiple of the step with a last step
// overlapping the one before it, computed from the old values before the loop.

SONVEL_LANES_TARGET int32_t shape_gains(int16_t *g, int32_t fb, const int16_t *wc,
                                        const int16_t *ovrd, const int16_t *oc,
                                        const OverdriveCaps &caps, int32_t count) {
    if (fb < -32768 || fb > 32767 || count < ln::kLanes) return 0;
    const int32_t last = count - ln::kLanes;
    const bool partial = count % ln::kLanes != 0;
    const I32 tail = partial ? shaped_gains(g, fb, wc, ovrd, oc, caps, last) : ln::zero();
    for (int32_t k = 0; k + ln::kLanes <= count; k += ln::kLanes) {
        ln::store16_sat(g + k, shaped_gains(g, fb, wc, ovrd, oc, caps, k));
    }
    if (partial) ln::store16_sat(g + last, tail);
    return count;
}

SONVEL_LANES_TARGET int32_t apply_gains(const int16_t *g, int32_t *E, int32_t words) {
    constexpr int32_t kStep = 2 * ln::kLanes;
    if (words < kStep || words % 2 != 0) return 0;
    const int32_t last = words - kStep;
    const bool partial = words % kStep != 0;
    const ln::Bins tail = partial ? gained(g, E, last) : ln::Bins{ln::zero(), ln::zero()};
    for (int32_t w = 0; w + kStep <= words; w += kStep) ln::store_bins(E + w, gained(g, E, w));
    if (partial) ln::store_bins(E + last, tail);
    return words;
}

SONVEL_LANES_TARGET int32_t pull_toward(int16_t *g, const int16_t *h, int32_t count) {
    int32_t k = 0;
    for (; k + ln::kLanes <= count; k += ln::kLanes) {
        const I32 gv = ln::load16(g + k);
        const I32 hv = ln::load16(h + k);
        // d = sat16(g - h) where h > g; g + (d >> 3) - d stays within 17 bits.
        const I32 d = ln::max(ln::sub(gv, hv), ln::dup(-32768));
        const I32 up = ln::add(ln::sub(gv, d), ln::shr_all(d, 3));
        ln::store16_sat(g + k, ln::select(ln::gt(hv, gv), up, gv));
    }
    return k;
}

// k = 16 - t in 1..62: the result is the product p (|p| <= 2^46) rounded by k bits, saturated; a
// left shift by t <= 15 never saturates and a right shift followed by the 16-bit rounding is one
// rounding by k bits.
SONVEL_LANES_TARGET int32_t unwindow(const int32_t *x, const int16_t *w, int t, int32_t *frame,
                                     int32_t count) {
    const int k = 16 - t;
    if (k < 1 || k > 62) return 0;
    int32_t i = 0;
#pragma GCC unroll 2
    for (; i + ln::kLanes <= count; i += ln::kLanes) {
        ln::store(frame + i,
                  ln::rnd_narrow_var(ln::mul_wide(ln::load(x + i), ln::load16(w + i)), k));
    }
    return i;
}

SONVEL_LANES_TARGET int32_t overlap_add(const int32_t *a, const int32_t *b, int16_t *out,
                                        int32_t count) {
    int32_t i = 0;
#pragma GCC unroll 2
    for (; i + ln::kLanes <= count; i += ln::kLanes) {
        ln::store16_sat(out + i, ln::sat_add(ln::load(a + i), ln::load(b + i)));
    }
    return i;
}

namespace {

[[gnu::always_inline]] SONVEL_LANES_TARGET inline void smooth_across_step(const int16_t *g,
                                                                          int16_t *t) {
    I32 sum = ln::load16(g - 2);
    I32 top = sum;
    for (int d = -1; d <= 2; ++d) {
        const I32 v = ln::load16(g + d);
        sum = ln::add(sum, v);
        top = ln::max(top, v);
    }
    ln::store16_sat(t, ln::shr_all(ln::add(ln::sub(sum, top), ln::dup(2)), 2));
}

}  // namespace

SONVEL_LANES_TARGET int32_t smooth_across(const int16_t *g, int16_t *t, int32_t from, int32_t to) {
    if (to - from < ln::kLanes) return from;
    int32_t j = from;
    for (; j + ln::kLanes <= to; j += ln::kLanes) smooth_across_step(g + j, t + j);
    if (j < to) smooth_across_step(g + to - ln::kLanes, t + to - ln::kLanes);
    return to;
}

}  // namespace sup::lanes

#endif
