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

constexpr int kRankLanes = 56;  // kPrefBins rounded up to whole steps
static_assert(kPrefBins <= 64 && kRankLanes >= kPrefBins && kRankLanes % ln::kLanes == 0,
              "keys hold the index in 6 bits");

}  // namespace

SONVEL_LANES_TARGET void coherence(const CohInputs &in, const AecState *st, int bins,
                                   int16_t *out) {
    for (int k = 0; k + ln::kLanes <= bins; k += ln::kLanes) coherence_step(in, st, k, out);
    if (bins % ln::kLanes != 0) coherence_step(in, st, bins - ln::kLanes, out);
}

namespace {

// The ranks of the keys in registers first..first+count-1 among the first n keys; the keys and
// counts of a part stay in registers while each key in turn is compared with all of them.
template <int kFirst, int kCount>
SONVEL_LANES_TARGET inline void rank_part(const int32_t *key, int n, int32_t *rank) {
    I32 k[kCount], below[kCount];
    for (int r = 0; r < kCount; ++r) {
        k[r] = ln::load(key + ln::kLanes * (kFirst + r));
        below[r] = ln::zero();
    }
#pragma GCC unroll 2
    for (int i = 0; i < n; ++i) {
        const I32 b = ln::dup(key[i]);
        for (int r = 0; r < kCount; ++r) below[r] = ln::count_set(below[r], ln::gt(k[r], b));
    }
    for (int r = 0; r < kCount; ++r) ln::store(rank + ln::kLanes * (kFirst + r), below[r]);
}

}  // namespace

// With the keys 64 v[j] + j all distinct, the number of keys below key j is the place of v[j],
// and the order is the one any ascending sort gives. The keys are ranked in two parts, each small
// enough to stay in registers; the lanes beyond the values hold keys above every other (ranked,
// never placed).
SONVEL_LANES_TARGET void rank_sort(const int16_t *v, int n, int16_t *sorted) {
    constexpr int kRegs = kRankLanes / ln::kLanes;
    constexpr int kHalf = (kRegs + 1) / 2;
    alignas(32) int32_t key[kRankLanes];
    for (int j = 0; j < n; ++j) key[j] = v[j] * 64 + j;
    for (int j = n; j < kRankLanes; ++j) key[j] = INT32_MAX;
    alignas(32) int32_t rank[kRankLanes];
    rank_part<0, kHalf>(key, n, rank);
    rank_part<kHalf, kRegs - kHalf>(key, n, rank);
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
