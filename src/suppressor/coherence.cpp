// Coherence analysis of the suppressor: the magnitude-squared coherences of error / near end and
// far end / near end from the smoothed spectra, the first per-bin suppression gains, the band gain,
// the near-end and echo states and the minimum trackers that steer the overdrive.
#include "sonvel_aec_spectral.h"
#include "sonvel_aec_stages.h"

#include <cstdint>

#include "fixedpoint/basic_ops.h"
#include "fixedpoint/block_float.h"
#include "spectral/reciprocal.h"
#include "spectral/reciprocal_vec.h"
#include "spectral/simd_avx2.h"
#include "spectral/simd_neon.h"
#include "spectral/kernel_elements.h"
#include "spectral/processor.h"
#include "state/aec_state.h"
#include "suppressor/coherence.h"

namespace {

constexpr int kMaxBins = sonvel::kBinWords;  // bins 0..L+3 at the highest rate
constexpr int kPrefBins = 52;                // bins of the preferred band
#if defined(__x86_64__)
constexpr int kVectorBins = 8;  // bins per vector
#else
constexpr int kVectorBins = 4;
#endif

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

// The smoothed spectra one coherence is formed from: Sa, Sd and the cross-spectrum Sc.
struct CohInputs {
    const int32_t *sa_man;
    const int16_t *sa_exp;
    const int32_t *sc_man;  // re, im interleaved
    const int16_t *sc_exp;  // one Q value per part
};

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

#if defined(__x86_64__)

// ---- Eight bins at a time with AVX2: the steps of coherence_bin on lanes. ----

using V = __m256i;
namespace simd = sp::simd;

SONVEL_LANES_TARGET inline V load8(const int32_t *p) { return simd::load8(p); }
SONVEL_LANES_TARGET inline V load8(const int16_t *p) {
    return _mm256_cvtepi16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p)));
}

// sp::part_power_f per lane; the results lie in 0..2^30, no saturation.
SONVEL_LANES_TARGET inline V part_power8(V x) {
    const __m256 f = simd::i2f(x);
    return _mm256_cvttps_epi32(_mm256_mul_ps(_mm256_mul_ps(f, f), _mm256_set1_ps(sp::kTwoPowM32)));
}

// Bins k..k+7.
SONVEL_LANES_TARGET inline void coherence8(const CohInputs &in, const AecState *st, int k, int16_t *out) {
    // 1. Power product plus 1: |product| <= 2^30, neither step saturates.
    const __m256 prod = _mm256_mul_ps(_mm256_mul_ps(simd::i2f(load8(in.sa_man + k)), simd::i2f(load8(st->ai32SdMan + k))),
                                      _mm256_set1_ps(sp::kTwoPowM32));
    const V den0 = _mm256_add_epi32(_mm256_cvttps_epi32(prod), _mm256_set1_epi32(1));

    // 2-3. Parts apart in bin order; the 32-bit lanes of the exponent pairs hold (re, im).
    const __m256 lo = _mm256_castsi256_ps(load8(in.sc_man + 2 * k));
    const __m256 hi = _mm256_castsi256_ps(load8(in.sc_man + 2 * k + 8));
    const V re = _mm256_permute4x64_epi64(_mm256_castps_si256(_mm256_shuffle_ps(lo, hi, 0x88)), 0xD8);
    const V im = _mm256_permute4x64_epi64(_mm256_castps_si256(_mm256_shuffle_ps(lo, hi, 0xDD)), 0xD8);
    const V pair = _mm256_loadu_si256(reinterpret_cast<const V *>(in.sc_exp + 2 * k));
    const V er = _mm256_srai_epi32(_mm256_slli_epi32(pair, 16), 16);
    const V ei = _mm256_srai_epi32(pair, 16);
    const V half_qm = _mm256_min_epi32(er, ei);
    const V r = _mm256_srav_epi32(part_power8(re), _mm256_slli_epi32(_mm256_sub_epi32(er, half_qm), 1));
    const V i = _mm256_srav_epi32(part_power8(im), _mm256_slli_epi32(_mm256_sub_epi32(ei, half_qm), 1));
    const V num0 = _mm256_min_epu32(_mm256_add_epi32(r, i), _mm256_set1_epi32(0x7FFFFFFF));

    // 4. Normalisation; num0 >= 0, so shifting fully and back by one keeps one bit of headroom.
    const V cd = simd::hr32(den0);
    const V den = _mm256_sllv_epi32(den0, cd);
    const V cn = simd::hr32(num0);
    const V num = _mm256_srai_epi32(_mm256_sllv_epi32(num0, cn), 1);

    // 5-6. Quotient.
    const __m256 q = _mm256_mul_ps(simd::i2f(num), sp::recip8(simd::i2f(den)));
    const V v = simd::f2i(_mm256_mul_ps(q, _mm256_set1_ps(0x1p31f)));

    // 7-8. Scale, rounding by 16 bits (cannot overflow from 32-bit values) and saturation to Q15.
    V e = _mm256_sub_epi32(_mm256_sub_epi32(_mm256_set1_epi32(1), _mm256_slli_epi32(half_qm, 1)), cn);
    e = _mm256_add_epi32(_mm256_add_epi32(e, load8(in.sa_exp + k)), _mm256_add_epi32(load8(st->as16SdExp + k), cd));
    const V x = simd::shift_sat32(v, e);
    const V rounded = _mm256_srai_epi32(_mm256_add_epi32(_mm256_srai_epi32(x, 15), _mm256_set1_epi32(1)), 1);
    const V packed = _mm256_permute4x64_epi64(_mm256_packs_epi32(rounded, rounded), 0x08);
    _mm_storeu_si128(reinterpret_cast<__m128i *>(out + k), _mm256_castsi256_si128(packed));
}

// All bins from 8 on; the last vector overlaps the one before it.
SONVEL_LANES_TARGET void coherence_vector(const CohInputs &in, const AecState *st, int bins, int16_t *out) {
    for (int k = 0; k + 8 <= bins; k += 8) coherence8(in, st, k, out);
    if (bins % 8 != 0) coherence8(in, st, bins - 8, out);
}

#elif defined(__aarch64__)

// ---- Four bins at a time with NEON: the steps of coherence_bin on lanes. ----

// A shift count bounded to -32..32: NEON shifts read only the count's low byte, and from 32 on
// either way the result no longer changes.
inline int32x4_t bounded_count(int32x4_t c) {
    return vmaxq_s32(vminq_s32(c, vdupq_n_s32(32)), vdupq_n_s32(-32));
}

// sp::part_power_f per lane; the results lie in 0..2^30.
inline int32x4_t part_power4(int32x4_t x) {
    const float32x4_t f = vcvtq_f32_s32(x);
    return vcvtq_s32_f32(vmulq_n_f32(vmulq_f32(f, f), sp::kTwoPowM32));
}

// Bins k..k+3.
inline void coherence4(const CohInputs &in, const AecState *st, int k, int16_t *out) {
    // 1. Power product plus 1 (|product| <= 2^30, no saturation).
    const float32x4_t prod = vmulq_f32(vcvtq_f32_s32(vld1q_s32(in.sa_man + k)), vcvtq_f32_s32(vld1q_s32(st->ai32SdMan + k)));
    const int32x4_t den0 = vaddq_s32(vcvtq_s32_f32(vmulq_n_f32(prod, sp::kTwoPowM32)), vdupq_n_s32(1));

    // 2-3. Squared parts aligned to the smaller doubled Q value, added with saturation.
    const int32x4x2_t sc = vld2q_s32(in.sc_man + 2 * k);
    const int16x4x2_t pair = vld2_s16(in.sc_exp + 2 * k);
    const int32x4_t er = vmovl_s16(pair.val[0]);
    const int32x4_t ei = vmovl_s16(pair.val[1]);
    const int32x4_t half_qm = vminq_s32(er, ei);
    const int32x4_t r = vshlq_s32(part_power4(sc.val[0]), vnegq_s32(bounded_count(vshlq_n_s32(vsubq_s32(er, half_qm), 1))));
    const int32x4_t i = vshlq_s32(part_power4(sc.val[1]), vnegq_s32(bounded_count(vshlq_n_s32(vsubq_s32(ei, half_qm), 1))));
    const int32x4_t num0 = vqaddq_s32(r, i);

    // 4. Normalisation; num0 >= 0, so shifting fully and back by one keeps one bit of headroom.
    const int32x4_t cd = vclsq_s32(den0);
    const int32x4_t den = vshlq_s32(den0, cd);
    const int32x4_t cn = vclsq_s32(num0);
    const int32x4_t num = vshrq_n_s32(vshlq_s32(num0, cn), 1);

    // 5-6. Quotient.
    const float32x4_t q = vmulq_f32(vcvtq_f32_s32(num), sp::recip4(vcvtq_f32_s32(den)));
    const int32x4_t v = vcvtq_s32_f32(vmulq_n_f32(q, 0x1p31f));

    // 7-8. Saturating scale, rounding by 16 bits and saturation to Q15.
    int32x4_t e = vsubq_s32(vsubq_s32(vdupq_n_s32(1), vshlq_n_s32(half_qm, 1)), cn);
    e = vaddq_s32(vaddq_s32(e, vmovl_s16(vld1_s16(in.sa_exp + k))), vaddq_s32(vmovl_s16(vld1_s16(st->as16SdExp + k)), cd));
    const int32x4_t x = vqshlq_s32(v, bounded_count(e));
    vst1_s16(out + k, vqmovn_s32(vrshrq_n_s32(x, 16)));
}

// All bins from 4 on; the last vector overlaps the one before it.
void coherence_vector(const CohInputs &in, const AecState *st, int bins, int16_t *out) {
    for (int k = 0; k + 4 <= bins; k += 4) coherence4(in, st, k, out);
    if (bins % 4 != 0) coherence4(in, st, bins - 4, out);
}

#endif

void coherence_portable(const CohInputs &in, const AecState *st, int bins, int16_t *out) {
    for (int k = 0; k < bins; ++k) out[k] = coherence_bin(in, st, k);
}

}  // namespace

namespace sup {

void coherence(sp::Isa isa, const AecState *st, bool far, int16_t *out) {
    const CohInputs in = coh_inputs(st, far);
    const int bins = st->s16HalfFftLen + 4;
#if defined(__x86_64__) || defined(__aarch64__)
    if (sp::lanes_on(isa) && bins >= kVectorBins) {
        coherence_vector(in, st, bins, out);
        return;
    }
#else
    (void)isa;
#endif
    coherence_portable(in, st, bins, out);
}

}  // namespace sup

namespace {

// Quotient of a sum of Q15 values by their count, rounded down, through the refined reciprocal.
int16_t mean_of_sum(int32_t sum, int16_t count) {
    if (count <= 0) return 0;
    const int cn = fx::hr(sum);
    const int32_t s = cn == 0 ? fx::shr_trunc(sum, 1) : fx::shift_wrap(sum, cn - 1);
    const int cd = fx::hr(count);
    const int32_t n = fx::shift_wrap(count, cd);
    const float q = fx::i2f(s) * sp::recip(fx::i2f(n));
    const int32_t v = fx::shift_sat(fx::f2i(q * 0x1p31f), (1 - cn) + cd - 15);
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

// The preferred band's gains in ascending order. The vector path ranks them: with the keys
// 64 v[j] + j all distinct, the number of keys below key j is the place of v[j], and the order is
// the one any ascending sort gives.
#if defined(__x86_64__) || defined(__aarch64__)

constexpr int kRankLanes = 56;  // kPrefBins rounded up to whole vectors
static_assert(kPrefBins <= 64 && kRankLanes >= kPrefBins && kRankLanes % 8 == 0, "keys hold the index in 6 bits");

// Keys of the n values, the lanes beyond them above every key (ranked, never placed).
void rank_keys(const int16_t *v, int n, int32_t *key) {
    for (int j = 0; j < n; ++j) key[j] = v[j] * 64 + j;
    for (int j = n; j < kRankLanes; ++j) key[j] = INT32_MAX;
}

#if defined(__x86_64__)

// All keys and counts stay in registers while each key in turn is compared with all of them.
SONVEL_LANES_TARGET void rank_sort_vector(const int16_t *v, int n, int16_t *sorted) {
    constexpr int kRegs = kRankLanes / 8;
    alignas(32) int32_t key[kRankLanes];
    rank_keys(v, n, key);
    V k[kRegs], below[kRegs];
    for (int r = 0; r < kRegs; ++r) {
        k[r] = _mm256_load_si256(reinterpret_cast<const V *>(key + 8 * r));
        below[r] = _mm256_setzero_si256();
    }
    for (int i = 0; i < n; ++i) {
        const V b = _mm256_set1_epi32(key[i]);
#pragma GCC unroll 7
        for (int r = 0; r < kRegs; ++r) below[r] = _mm256_sub_epi32(below[r], _mm256_cmpgt_epi32(k[r], b));
    }
    alignas(32) int32_t rank[kRankLanes];
    for (int r = 0; r < kRegs; ++r) _mm256_store_si256(reinterpret_cast<V *>(rank + 8 * r), below[r]);
    for (int j = 0; j < n; ++j) sorted[rank[j]] = v[j];
}

#elif defined(__aarch64__)

void rank_sort_vector(const int16_t *v, int n, int16_t *sorted) {
    constexpr int kRegs = kRankLanes / 4;
    int32_t key[kRankLanes];
    rank_keys(v, n, key);
    int32x4_t k[kRegs];
    uint32x4_t below[kRegs];
    for (int r = 0; r < kRegs; ++r) {
        k[r] = vld1q_s32(key + 4 * r);
        below[r] = vdupq_n_u32(0);
    }
    for (int i = 0; i < n; ++i) {
        const int32x4_t b = vdupq_n_s32(key[i]);
#pragma GCC unroll 14
        for (int r = 0; r < kRegs; ++r) below[r] = vsubq_u32(below[r], vcgtq_s32(k[r], b));
    }
    int32_t rank[kRankLanes];
    for (int r = 0; r < kRegs; ++r) vst1q_s32(rank + 4 * r, vreinterpretq_s32_u32(below[r]));
    for (int j = 0; j < n; ++j) sorted[rank[j]] = v[j];
}

#endif

#endif


}  // namespace

namespace sup {

void sort_band(sp::Isa isa, const int16_t *v, int n, int16_t *sorted) {
#if defined(__x86_64__) || defined(__aarch64__)
    if (sp::lanes_on(isa)) {
        rank_sort_vector(v, n, sorted);
        return;
    }
#else
    (void)isa;
#endif
    for (int j = 0; j < n; ++j) sorted[j] = v[j];
    Sonvel_AEC_Qsort(sorted, static_cast<int16_t>(n));
}

int16_t band_mean(const int16_t *v, int lo, int hi, int bins) {
    lo = lo < 0 ? 0 : (lo > bins ? bins : lo);
    hi = hi < 0 ? 0 : (hi > bins ? bins : hi);
    return mean_of_sum(band_sum(v, lo, hi), static_cast<int16_t>(hi - lo));
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
    return {mean_of_sum(sum_de, n), mean_of_sum(sum_xd, n), at(i75), at(i50)};
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

}  // namespace sup

namespace {

// Far/near incoherence xd <- 32767 - xd (saturated) and the first gains hnl = min(coh_ed, xd),
// 16 (x86-64) or 8 (aarch64) bins at a time; returns the bins done.
#if defined(__x86_64__)

SONVEL_LANES_TARGET int incoherence_vector(const int16_t *coh_ed, int16_t *xd, int16_t *hnl, int bins) {
    const V one = _mm256_set1_epi16(32767);
    int k = 0;
    for (; k + 16 <= bins; k += 16) {
        const V x = _mm256_subs_epi16(one, _mm256_loadu_si256(reinterpret_cast<const V *>(xd + k)));
        const V c = _mm256_loadu_si256(reinterpret_cast<const V *>(coh_ed + k));
        _mm256_storeu_si256(reinterpret_cast<V *>(xd + k), x);
        _mm256_storeu_si256(reinterpret_cast<V *>(hnl + k), _mm256_min_epi16(c, x));
    }
    return k;
}

#elif defined(__aarch64__)

int incoherence_vector(const int16_t *coh_ed, int16_t *xd, int16_t *hnl, int bins) {
    const int16x8_t one = vdupq_n_s16(32767);
    int k = 0;
    for (; k + 8 <= bins; k += 8) {
        const int16x8_t x = vqsubq_s16(one, vld1q_s16(xd + k));
        vst1q_s16(xd + k, x);
        vst1q_s16(hnl + k, vminq_s16(vld1q_s16(coh_ed + k), x));
    }
    return k;
}

#endif

void incoherence_and_gains(sp::Isa isa, const int16_t *coh_ed, int16_t *xd, int16_t *hnl, int bins) {
    int k = 0;
#if defined(__x86_64__) || defined(__aarch64__)
    if (sp::lanes_on(isa)) k = incoherence_vector(coh_ed, xd, hnl, bins);
#else
    (void)isa;
#endif
    for (; k < bins; ++k) {
        xd[k] = fx::sub(32767, xd[k]);
        hnl[k] = coh_ed[k] < xd[k] ? coh_ed[k] : xd[k];
    }
}

}  // namespace

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
    incoherence_and_gains(isa, coh_ed, xd, hnl, bins);

    // 3. Mean incoherence over the configured band.
    state->s16XdAvg = sup::band_mean(xd, state->s16CohBinLo, state->s16CohBinHi, bins);

    // 4-5. Means and order statistics of the preferred band.
    const sup::PrefBand pref = sup::preferred_band(state, coh_ed, xd, hnl, bins);

    // 6-10. States, minimum trackers, regime gains and the band gain.
    *fb = sup::decide(state, pref, coh_ed, xd, hnl);
}
