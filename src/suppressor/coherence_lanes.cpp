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
SONVEL_LANES_TARGET inline I32 part_power(I32 x) {
    const ln::F32 f = ln::i2f(x);
    return ln::f2i(ln::fmul(ln::fmul(f, f), ln::dupf(sp::kTwoPowM32)));
}

// Bins k..k+L-1.
SONVEL_LANES_TARGET inline void coherence_step(const CohInputs &in, const AecState *st, int k,
                                               int16_t *out) {
    using namespace ln;
    // 1. Power product plus 1: |product| <= 2^30, neither step saturates.
    const F32 prod = fmul(i2f(load(in.sa_man + k)), i2f(load(st->ai32SdMan + k)));
    const I32 den0 = add(f2i(fmul(prod, dupf(sp::kTwoPowM32))), dup(1));

    // 2-3. Squared parts aligned to the smaller doubled Q value, added with saturation.
    const Bins sc = load_bins(in.sc_man + 2 * k);
    const Bins q = load16_bins(in.sc_exp + 2 * k);
    const I32 half_qm = ln::min(q.re, q.im);
    const I32 r = shr_trunc(part_power(sc.re), shl_n<1>(sub(q.re, half_qm)));
    const I32 i = shr_trunc(part_power(sc.im), shl_n<1>(sub(q.im, half_qm)));
    const I32 num0 = sat_add(r, i);

    // 4. Normalisation; num0 >= 0, so shifting fully and back by one keeps one bit of headroom.
    const I32 cd = hr(den0);
    const I32 den = shl(den0, cd);
    const I32 cn = hr(num0);
    const I32 num = shr_all(shl(num0, cn), 1);

    // 5-6. Quotient.
    const F32 quot = fmul(i2f(num), recip(i2f(den)));
    const I32 v = f2i(fmul(quot, dupf(0x1p31f)));

    // 7-8. Saturating scale, rounding by 16 bits and saturation to Q15.
    I32 e = sub(sub(dup(1), shl_n<1>(half_qm)), cn);
    e = add(add(e, load16(in.sa_exp + k)), add(load16(st->as16SdExp + k), cd));
    store16_sat(out + k, rnd_shr_n<16>(shift_sat(v, e)));
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

// With the keys 64 v[j] + j all distinct, the number of keys below key j is the place of v[j],
// and the order is the one any ascending sort gives. All keys and counts stay in registers while
// each key in turn is compared with all of them; the lanes beyond the values hold keys above
// every other (ranked, never placed).
SONVEL_LANES_TARGET void rank_sort(const int16_t *v, int n, int16_t *sorted) {
    constexpr int kRegs = kRankLanes / ln::kLanes;
    alignas(32) int32_t key[kRankLanes];
    for (int j = 0; j < n; ++j) key[j] = v[j] * 64 + j;
    for (int j = n; j < kRankLanes; ++j) key[j] = INT32_MAX;
    I32 k[kRegs], below[kRegs];
    for (int r = 0; r < kRegs; ++r) {
        k[r] = ln::load(key + ln::kLanes * r);
        below[r] = ln::zero();
    }
    for (int i = 0; i < n; ++i) {
        const I32 b = ln::dup(key[i]);
#pragma GCC unroll 14
        for (int r = 0; r < kRegs; ++r) below[r] = ln::count_set(below[r], ln::gt(k[r], b));
    }
    alignas(32) int32_t rank[kRankLanes];
    for (int r = 0; r < kRegs; ++r) ln::store(rank + ln::kLanes * r, below[r]);
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
