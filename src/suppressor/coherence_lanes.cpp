// The coherence analysis' lane loops, written once against the lane vocabulary: the steps of
// coherence_bin (coherence.cpp) on lanes, the rank sort of the preferred band, and the
// incoherence with the first gains.
#include "suppressor/coherence_lanes.h"

#if SONVEL_HAS_LANES

#include "spectral/kernel_elements.h"

namespace sup::lanes {
namespace {

using ln::I32;

// sp::part_power_f per lane; the results lie in 0..2^30.
[[gnu::always_inline]] SONVEL_LANES_TARGET inline I32 part_power(I32 x) {
    const ln::F32 f = ln::i2f(x);
    return ln::f2i_in_range(ln::fmul(ln::fmul(f, f), ln::dupf(sp::kTwoPowM32)));
}

// Steps 4-8 from the power product plus 1 (den0), the sum of the squared parts (num0 >= 0) and
// the scale without the headroom counts (e0). With every den0 >= 1 (powers are never negative),
// den lies in [2^30, 2^31): its reciprocal needs no check and the scaled quotient v is no NaN and
// not negative. Other lanes take the general steps.
template <bool kPositive>
[[gnu::always_inline]] SONVEL_LANES_TARGET inline I32 scaled_quotient(I32 den0, I32 num0, I32 e0) {
    using namespace ln;
    // 4. Normalisation; num0 >= 0, so shifting fully and back by one keeps one bit of headroom.
    const I32 cd = kPositive ? hr_nonneg(den0) : hr(den0);
    const I32 den = shl(den0, cd);
    const I32 cn = hr_nonneg(num0);
    const I32 num = shr_all(shl(num0, cn), 1);
    const I32 e = add(sub(e0, cn), cd);

    // 5-8. Quotient, saturating scale and rounding by 16 bits.
    if constexpr (kPositive) {
        const F32 quot = fmul(i2f(num), recip_moderate(i2f(den)));
        return rnd_shr_n<16>(shift_sat_nonneg(f2i_not_nan(fmul(quot, dupf(0x1p31f))), e));
    } else {
        const F32 quot = fmul(i2f(num), recip(i2f(den)));
        return rnd_shr_n<16>(shift_sat(f2i(fmul(quot, dupf(0x1p31f))), e));
    }
}

[[gnu::noinline]] SONVEL_LANES_TARGET I32 scaled_quotient_any(I32 den0, I32 num0, I32 e0) {
    return scaled_quotient<false>(den0, num0, e0);
}

// Bins k..k+L-1.
[[gnu::always_inline]] SONVEL_LANES_TARGET inline void coherence_step(const CohInputs &in,
                                                                      const AecState *st, int k,
                                                                      int16_t *out) {
    using namespace ln;
    // 1. Power product plus 1: |product| <= 2^30, neither step saturates.
    const F32 prod = fmul(i2f(load(in.sa_man + k)), i2f(load(st->ai32SdMan + k)));
    const I32 den0 = add(f2i_in_range(fmul(prod, dupf(sp::kTwoPowM32))), dup(1));

    // 2-3. Squared parts aligned to the smaller doubled Q value, added with saturation.
    const Bins sc = load_bins(in.sc_man + 2 * k);
    const Bins q = load16_bins(in.sc_exp + 2 * k);
    const I32 half_qm = ln::min(q.re, q.im);
    const I32 r = shr_trunc(part_power(sc.re), shl_n<1>(sub(q.re, half_qm)));
    const I32 i = shr_trunc(part_power(sc.im), shl_n<1>(sub(q.im, half_qm)));
    const I32 num0 = sat_add(r, i);

    // 4-8. Quotient at the scale of the spectra, rounded and saturated to Q15.
    const I32 e0 =
        add(sub(dup(1), shl_n<1>(half_qm)), add(load16(in.sa_exp + k), load16(st->as16SdExp + k)));
    const I32 c = any_negative(sub(den0, dup(1))) ? scaled_quotient_any(den0, num0, e0)
                                                  : scaled_quotient<true>(den0, num0, e0);
    store16_sat(out + k, c);
}

constexpr int kRankLanes = 64;  // kPrefBins rounded up to whole steps of int16 lanes
static_assert(kRankLanes >= kPrefBins && kRankLanes % ln::kLanes16 == 0);

}  // namespace

SONVEL_LANES_TARGET void coherence(const CohInputs &in, const AecState *st, int bins,
                                   int16_t *out) {
    for (int k = 0; k + ln::kLanes <= bins; k += ln::kLanes) coherence_step(in, st, k, out);
    if (bins % ln::kLanes != 0) coherence_step(in, st, bins - ln::kLanes, out);
}

// The place of v[j] in an ascending sort that keeps equal values in index order is the number of
// values before it: v[i] < v[j], or v[i] = v[j] with i < j. Values sit in int16 lanes by index,
// the counts of a register (indices lo..lo+S-1) start at the number of indices below lo; each
// value v[i] in turn then takes one off the counts of registers above it where v[i] > v[j], adds
// one to those below it where v[j] > v[i], and within its own register where v[j] > v[i] or
// v[j] = v[i] at j > i. Lanes beyond the values are ranked, never placed.
SONVEL_LANES_TARGET void rank_sort(const int16_t *v, int n, int16_t *sorted) {
    constexpr int kS = ln::kLanes16;
    constexpr int kRegs = kRankLanes / kS;
    alignas(32) int16_t padded[kRankLanes] = {};
    alignas(32) int16_t index[kRankLanes];
    for (int j = 0; j < n; ++j) padded[j] = v[j];
    for (int j = 0; j < kRankLanes; ++j) index[j] = static_cast<int16_t>(j);
    ln::I16 val[kRegs], at[kRegs];
#pragma GCC unroll 8
    for (int r = 0; r < kRegs; ++r) {
        val[r] = ln::load_i16(padded + kS * r);
        at[r] = ln::dup_i16(static_cast<int16_t>(kS * r < n ? kS * r : n));
    }
#pragma GCC unroll 8
    for (int s = 0; s < kRegs; ++s) {
        const ln::I16 idx = ln::load_i16(index + kS * s);
        const int end = kS * (s + 1) < n ? kS * (s + 1) : n;
#pragma GCC unroll 4
        for (int i = kS * s; i < end; ++i) {
            const ln::I16 b = ln::dup_i16(v[i]);
#pragma GCC unroll 8
            for (int r = 0; r < s; ++r) at[r] = ln::count_set_i16(at[r], ln::gt_i16(val[r], b));
            const ln::Mask16 tie = ln::mask16_and(
                ln::eq_i16(val[s], b), ln::gt_i16(idx, ln::dup_i16(static_cast<int16_t>(i))));
            at[s] = ln::count_set_i16(ln::count_set_i16(at[s], ln::gt_i16(val[s], b)), tie);
#pragma GCC unroll 8
            for (int r = s + 1; r < kRegs; ++r)
                at[r] = ln::discount_i16(at[r], ln::gt_i16(b, val[r]));
        }
    }
    alignas(32) int16_t rank[kRankLanes];
#pragma GCC unroll 8
    for (int r = 0; r < kRegs; ++r) ln::store_i16(rank + kS * r, at[r]);
    for (int j = 0; j < n; ++j) sorted[rank[j]] = v[j];
}

SONVEL_LANES_TARGET int incoherence(const int16_t *coh_ed, int16_t *xd, int16_t *hnl, int bins) {
    const ln::I16 one = ln::dup_i16(32767);
    int k = 0;
    for (; k + ln::kLanes16 <= bins; k += ln::kLanes16) {
        const ln::I16 x = ln::sub_sat_i16(one, ln::load_i16(xd + k));
        ln::store_i16(xd + k, x);
        ln::store_i16(hnl + k, ln::min_i16(ln::load_i16(coh_ed + k), x));
    }
    return k;
}

}  // namespace sup::lanes

#endif
