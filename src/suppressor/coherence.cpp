// Coherence analysis of the suppressor: the magnitude-squared coherences of error / near end and
// far end / near end from the smoothed spectra, the first per-bin suppression gains, the band gain,
// the near-end and echo states and the minimum trackers that steer the overdrive.
#include "sonvel_aec_spectral.h"
#include "sonvel_aec_stages.h"

#include <cstdint>

#include "fixedpoint/basic_ops.h"
#include "fixedpoint/block_float.h"
#include "spectral/kernel_elements.h"
#include "spectral/lane_check.h"
#include "spectral/reciprocal.h"
#include "state/aec_state.h"
#include "suppressor/coherence.h"
#include "suppressor/coherence_lanes.h"

namespace {

constexpr int kMaxBins = sonvel::kBinWords;  // bins 0..L+3 at the highest rate
using sup::lanes::CohInputs;
using sup::lanes::kPrefBins;  // bins of the preferred band

constexpr int16_t kNearOnDe = 32113;    // 0.98
constexpr int16_t kNearOnXd = 29491;    // 0.90
constexpr int16_t kNearOffDe = 31129;   // 0.95
constexpr int16_t kNearOffXd = 26213;   // 0.80
constexpr int16_t kXdMinAdmit = 24574;  // just below 0.75
constexpr int16_t kFbMinAdmit = 19659;  // just below 0.60
constexpr int16_t kNeverSeen = 32767;
constexpr int16_t kOvrdNeverSeen = 1536;  // 3.0 in Q9

// Power of a single-precision product of two mantissas, scaled by 2^-32.
inline int32_t float_product(int32_t a, int32_t b) {
    return fx::f2i(fx::i2f(a) * fx::i2f(b) * sp::kTwoPowM32);
}

CohInputs coh_inputs(const AecState *st, bool far) {
    if (far) return {st->ai32SxMan, st->as16SxExp, st->ai32SxdMan, st->as16SxdExp};
    return {st->ai32SeMan, st->as16SeExp, st->ai32SedMan, st->as16SedExp};
}

// |Sc|^2 / (Sa * Sd) of one bin in Q15.
int16_t coherence_bin(const CohInputs &in, const AecState *st, int k) {
    // 1. Power product, kept positive by the added 1.
    const int32_t den0 = fx::sat_add(float_product(in.sa_man[k], st->ai32SdMan[k]), 1);

    // 2-3. Squared parts of the cross-spectrum, aligned to the smaller doubled Q value.
    const int32_t re = in.sc_man[2 * k];
    const int32_t im = in.sc_man[2 * k + 1];
    const int qr = 2 * in.sc_exp[2 * k];
    const int qi = 2 * in.sc_exp[2 * k + 1];
    const int qm = qr < qi ? qr : qi;
    const int32_t r = fx::shr_trunc(sp::part_power_f(re), qr - qm);
    const int32_t i = fx::shr_trunc(sp::part_power_f(im), qi - qm);
    const int32_t num0 = fx::sat_add(r, i);

    // 4. Normalise the denominator fully and the numerator to one bit of headroom.
    const int cd = fx::hr(den0);
    const int32_t den = fx::shift_wrap(den0, cd);
    const int cn = fx::hr(num0);
    const int32_t num = cn == 0 ? fx::shr_trunc(num0, 1) : fx::shift_wrap(num0, cn - 1);

    // 5-6. Quotient in single precision through the refined reciprocal.
    const float q = fx::i2f(num) * sp::recip(fx::i2f(den));
    const int32_t v = fx::f2i(q * 0x1p31f);

    // 7-8. Back to the scale of the spectra, rounded to Q15.
    const int e = (1 - qm - cn) + in.sa_exp[k] + st->as16SdExp[k] + cd;
    return fx::sat16(fx::rnd(fx::shift_sat(v, e), 16));
}

void coherence_portable(const CohInputs &in, const AecState *st, int bins, int16_t *out) {
    for (int k = 0; k < bins; ++k) out[k] = coherence_bin(in, st, k);
}

}  // namespace

namespace sup {

void coherence(sp::Isa isa, const AecState *st, bool far, int16_t *out) {
    const CohInputs in = coh_inputs(st, far);
    const int bins = st->s16HalfFftLen + 4;
    if (sp::lanes_checked(isa, {{out, 2u * bins}}, [&](sp::Isa i) { coherence(i, st, far, out); }))
        return;
#if SONVEL_HAS_LANES
    if (sp::lanes_on(isa) && bins >= ln::kLanes) {
        lanes::coherence(in, st, bins, out);
        return;
    }
#endif
    coherence_portable(in, st, bins, out);
}

}  // namespace sup

namespace {

// The refined reciprocal of a count of values (shifted fully left by cd), shared by the means of
// sums over the same values.
struct CountReciprocal {
    int16_t count;
    int cd;
    float r;
};

CountReciprocal count_reciprocal(int16_t count) {
    if (count <= 0) return {count, 0, 0.0f};
    const int cd = fx::hr(count);
    return {count, cd, sp::recip(fx::i2f(fx::shift_wrap(count, cd)))};
}

// Quotient of a sum of Q15 values by their count, rounded down, through the refined reciprocal.
int16_t mean_of_sum(int32_t sum, const CountReciprocal &c) {
    if (c.count <= 0) return 0;
    const int cn = fx::hr(sum);
    const int32_t s = cn == 0 ? fx::shr_trunc(sum, 1) : fx::shift_wrap(sum, cn - 1);
    const float q = fx::i2f(s) * c.r;
    const int32_t v = fx::shift_sat(fx::f2i(q * 0x1p31f), (1 - cn) + c.cd - 15);
    return fx::sat16(fx::shr_trunc(v, 16));
}

// Saturating sum of v over [lo, hi). Up to 65536 int16 values no partial sum leaves the int32
// range, and the plain sum is the same.
int32_t band_sum(const int16_t *v, int lo, int hi) {
    int32_t sum = 0;
    if (hi - lo <= 65536) {
        for (int k = lo; k < hi; ++k) sum += v[k];
        return sum;
    }
    for (int k = lo; k < hi; ++k) sum = fx::L_add(sum, v[k]);
    return sum;
}

}  // namespace

namespace sup {

// The preferred band's gains in ascending order.
void sort_band(sp::Isa isa, const int16_t *v, int n, int16_t *sorted) {
    if (sp::lanes_checked(isa, {{sorted, 2u * n}}, [&](sp::Isa i) { sort_band(i, v, n, sorted); }))
        return;
#if SONVEL_HAS_LANES
    if (sp::lanes_on(isa)) {
        lanes::rank_sort(v, n, sorted);
        return;
    }
#endif
    for (int j = 0; j < n; ++j) sorted[j] = v[j];
    Sonvel_AEC_Qsort(sorted, static_cast<int16_t>(n));
}

int16_t band_mean(const int16_t *v, int lo, int hi, int bins) {
    lo = lo < 0 ? 0 : (lo > bins ? bins : lo);
    hi = hi < 0 ? 0 : (hi > bins ? bins : hi);
    return mean_of_sum(band_sum(v, lo, hi), count_reciprocal(static_cast<int16_t>(hi - lo)));
}

PrefBand preferred_band(const AecState *st, const int16_t *coh_ed, const int16_t *xd,
                        const int16_t *hnl, int bins) {
    int lo = st->s16PrefBandLo < 0 ? 0 : (st->s16PrefBandLo > bins ? bins : st->s16PrefBandLo);
    int hi = st->s16PrefBandHi < lo ? lo : (st->s16PrefBandHi > bins ? bins : st->s16PrefBandHi);
    if (hi - lo > kPrefBins) hi = lo + kPrefBins;
    const int16_t n = static_cast<int16_t>(hi - lo);

    const int32_t sum_de = band_sum(coh_ed, lo, hi);
    const int32_t sum_xd = band_sum(xd, lo, hi);
    int16_t sorted[kPrefBins];
    sort_band(sp::instance_isa(st), hnl + lo, n, sorted);

    const int i75 = fx::L_shr(fx::L_mult(24575, static_cast<int16_t>(n - 1)), 16);
    const int i50 = fx::L_shr(fx::L_mult(16384, static_cast<int16_t>(n - 1)), 16);
    const auto at = [&](int i) { return i >= 0 && i < n ? sorted[i] : int16_t{0}; };
    const CountReciprocal rn = count_reciprocal(n);
    return {mean_of_sum(sum_de, rn), mean_of_sum(sum_xd, rn), at(i75), at(i50)};
}

}  // namespace sup

namespace {

// Near-end state with hysteresis: on when both means are high, off when either falls.
void update_near_state(AecState *st, const sup::PrefBand &b) {
    if (b.de_avg >= kNearOnDe && b.xd_avg >= kNearOnXd) {
        st->s32NearState = 1;
        st->s32NotNearState = 0;
    } else if (b.de_avg < kNearOffDe || b.xd_avg <= kNearOffXd) {
        st->s32NearState = 0;
        st->s32NotNearState = 1;
    }
}

void copy_bins(int16_t *dst, const int16_t *src, int count) {
    for (int k = 0; k < count; ++k) dst[k] = src[k];
}

}  // namespace

namespace sup {

int16_t decide(AecState *st, const PrefBand &pref, const int16_t *coh_ed, const int16_t *xd,
               int16_t *hnl) {
    const int gains = st->s16HalfFftLen + 1;

    // Near-end state.
    update_near_state(st, pref);

    // Smallest incoherence mean seen, for means below 0.75 only.
    if (pref.xd_avg <= kXdMinAdmit && pref.xd_avg < st->s16XdAvgMin) st->s16XdAvgMin = pref.xd_avg;

    // Gains and echo state of the regime.
    int16_t band_gain;
    int16_t low_gain;
    if (st->s16XdAvgMin == kNeverSeen) {
        st->s32EchoState = 0;
        st->s16Ovrd = kOvrdNeverSeen;
        const bool near = st->s32NearState == 1;
        copy_bins(hnl, near ? coh_ed : xd, gains);
        band_gain = low_gain = near ? pref.de_avg : pref.xd_avg;
    } else if (st->s32NearState == 1) {
        st->s32EchoState = 0;
        copy_bins(hnl, coh_ed, gains);
        band_gain = low_gain = pref.de_avg;
    } else {
        st->s32EchoState = 1;
        band_gain = pref.fb_high;
        low_gain = pref.fb_low;
    }

    // New minimum of the low band gain, for gains below 0.6 only.
    if (low_gain <= kFbMinAdmit && low_gain < st->s16FbMin) {
        st->s16FbMin = low_gain;
        st->s16FbLocalMin = low_gain;
        st->s32MinHoldCnt = 0;
        st->s32NewMin = 1;
    }
    return band_gain;
}

void incoherence_and_gains(sp::Isa isa, const int16_t *coh_ed, int16_t *xd, int16_t *hnl,
                           int bins) {
    if (sp::lanes_checked(isa, {{xd, 2u * bins}, {hnl, 2u * bins}},
                          [&](sp::Isa i) { incoherence_and_gains(i, coh_ed, xd, hnl, bins); }))
        return;
    int k = 0;
#if SONVEL_HAS_LANES
    if (sp::lanes_on(isa)) k = sup::lanes::incoherence(coh_ed, xd, hnl, bins);
#endif
    for (; k < bins; ++k) {
        xd[k] = fx::sub(32767, xd[k]);
        hnl[k] = coh_ed[k] < xd[k] ? coh_ed[k] : xd[k];
    }
}

}  // namespace sup

extern "C" SONVEL_API void Sonvel_AEC_CrossCoh(const AecState *state, int16_t *out, int16_t sel) {
    sup::coherence(sp::instance_isa(state), state, sel != 0, out);
}

extern "C" SONVEL_API void Sonvel_AEC_HnledCalc(AecState *state, int16_t *hnl, int16_t *fb) {
    const int bins = state->s16HalfFftLen + 4;
    int16_t coh_ed[kMaxBins];
    int16_t xd[kMaxBins];

    // 1. Both coherences.
    const sp::Isa isa = sp::instance_isa(state);
    sup::coherence(isa, state, false, coh_ed);
    sup::coherence(isa, state, true, xd);

    // 2. Far/near incoherence; the first gains are the smaller of it and coh_ed.
    sup::incoherence_and_gains(isa, coh_ed, xd, hnl, bins);

    // 3. Mean incoherence over the configured band.
    state->s16XdAvg = sup::band_mean(xd, state->s16CohBinLo, state->s16CohBinHi, bins);

    // 4-5. Means and order statistics of the preferred band.
    const sup::PrefBand pref = sup::preferred_band(state, coh_ed, xd, hnl, bins);

    // 6-10. States, minimum trackers, regime gains and the band gain.
    *fb = sup::decide(state, pref, coh_ed, xd, hnl);
}
