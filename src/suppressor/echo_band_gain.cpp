// Echo-band gain: the far-end, echo-estimate and error powers smoothed with a per-bin factor that
// follows how steady the far end is, a peak hold of the far-end power after a long far-end
// silence, and the per-bin gain 1 - min(max(W * Asx - Asy, 0) / Ase, 1) of the coupling model of
// the residual echo (W = coupling gain per bin), taken over at once when it falls and almost at
// once when it rises.
#include "suppressor/echo_band_gain.h"

#include <algorithm>
#include <cstdint>

#include "sonvel_aec_stages.h"

#include "fixedpoint/basic_ops.h"
#include "fixedpoint/block_float.h"
#include "spectral/kernel_elements.h"
#include "spectral/kernels.h"
#include "spectral/lane_check.h"
#include "spectral/lanes.h"
#include "spectral/reciprocal.h"
#include "state/aec_state.h"

namespace {

constexpr int kBins = sonvel::kBinWords;
constexpr int16_t kMaxFactor = 24575;  // 0.75 in Q15
constexpr int32_t kOne15 = 32767;
constexpr int16_t kLatchQuietBlocks = 151;
constexpr int16_t kPeakHoldQuietLen = 201;
constexpr int16_t kClearLatchActive = 7;
constexpr int16_t kPeakHoldMaxActive = 5;
constexpr int32_t kRiseWeight = 17;  // of 16384
constexpr float kTwoPow31 = 2147483648.0f;
constexpr float kTwoPowM31 = 1.0f / 2147483648.0f;

// Instantaneous powers of one block: mantissas with headroom 0 and their Q values.
struct Powers {
    int32_t man[kBins];
    int16_t exp[kBins];
};

// Q31 quotient num / den of two non-negative mantissas (den > 0) in single precision:
// int(float(num) * recip(float(den)) * 2^31), truncating and saturating.
int32_t quotient_q31(int32_t num, int32_t den) {
    const float f = fx::i2f(num) * sp::recip(fx::i2f(den));
    return fx::f2i(f * kTwoPow31);
}

}  // namespace

namespace sup::echo_band {

// Smoothing factor of one bin from R = Px / ((Asx + Asy) / 2): 24575 - |R - 1| / 2 in Q15,
// within 8192..24575.
int16_t smoothing_factor(int32_t px, int qpx, int32_t asx, int qasx, int32_t asy, int qasy) {
    const int qm = std::min(qasx, qasy);
    const int32_t u = fx::shr_trunc(asx >> 1, qasx - qm);
    const int32_t v = fx::shr_trunc(asy >> 1, qasy - qm);
    const sp::Mant s = sp::normalise(std::max(fx::sat_add(u, v), int32_t{1}), qm);
    const int h = fx::hr(px);
    const int32_t p = fx::shift_wrap(px, h - 1);
    const int32_t q31 = quotient_q31(p, s.m);
    const int32_t r = fx::shift_sat(q31, s.q + 1 - h - 16 - qpx);
    const int16_t d = fx::sat16(fx::L_abs(fx::sat_sub(r, kOne15)));
    return fx::sub(kMaxFactor, static_cast<int16_t>(d >> 1));
}

// Instantaneous gain of one bin: 1 - min(max(W * Asx - Asy, 0) / Ase, 1) in Q15.
int16_t instant_gain(int32_t asx, int qasx, int32_t w, int32_t asy, int qasy, int32_t ase,
                     int qase) {
    // Asx * W / 32768, normalised.
    const float tw = fx::i2f(asx) * fx::i2f(w);
    const int32_t t = fx::f2i(tw * kTwoPowM31);
    const int g = fx::hr(t);
    const int32_t tn = sp::shl_low(t, g);
    const int qt = qasx + g - 16;

    // Residual echo power D = max(W * Asx - Asy, 0) at Q qm.
    const int qm = std::min(qt, qasy);
    const int32_t u = sp::align_to(tn, qt, qm);
    const int32_t v = sp::align_to(asy, qasy, qm);
    const int32_t d = std::max(fx::sat_sub(u, v), int32_t{0});

    // rho = min(D / Ase, 1) in Q31.
    const int32_t e = std::max(ase, int32_t{1});
    const int ge = fx::hr(e);
    const int32_t en = sp::shl_low(e, ge);
    const int gd = fx::hr(d);
    const int32_t dn = fx::shift_wrap(d, gd - 1);
    const int32_t q31 = quotient_q31(dn, en);
    const int32_t rho = fx::shift_sat(q31, 1 - gd - qm + qase + ge);

    return fx::sub(static_cast<int16_t>(kOne15), static_cast<int16_t>(rho >> 16));
}

// A falling gain is taken over at once, a rising one except for 17/16384 of the old value.
int16_t update_gain(int16_t h, int16_t g) {
    const int32_t c = g > h ? kRiseWeight : 0;
    const int32_t sum = fx::sat_add(c * h, (16384 - c) * g);
    return fx::sat16(sum >> 14);
}

// ---- Lane loops: the per-bin steps above, several bins per step, the same bits ----

#if SONVEL_HAS_LANES

}  // namespace sup::echo_band

namespace sup::lanes {
namespace {

using echo_band::Bins;

using ln::I32;

// The per-bin steps are inlined into every loop step that uses them, so that their constants stay
// in registers across the loop.
#define SONVEL_STEP [[gnu::always_inline]] SONVEL_LANES_TARGET inline

// The headroom, shift and conversion steps below are those for non-negative operands or for
// quotients by a divisor in [2^30, 2^31) wherever the operands are so for all inputs.

// fx::shift_wrap(x, h - 1) for h = hr(x): left by h - 1, or right by one where h = 0.
SONVEL_STEP I32 to_headroom_one(I32 x, I32 h) { return ln::shift_wrap(x, ln::sub(h, ln::dup(1))); }

// int(float(num) * recip(float(den)) * 2^31) per lane for num >= 0 and den in [2^30, 2^31): the
// reciprocal needs no check and the quotient is no NaN.
SONVEL_STEP I32 quotient_q31(I32 num, I32 den) {
    const ln::F32 f = ln::fmul(ln::i2f(num), ln::recip_moderate(ln::i2f(den)));
    return ln::f2i_not_nan(ln::fmul(f, ln::dupf(2147483648.0f)));
}

SONVEL_STEP I32 smoothing_factor(I32 px, I32 qpx, I32 asx, I32 qasx, I32 asy, I32 qasy) {
    using namespace ln;
    const I32 qm = ln::min(qasx, qasy);
    const I32 u = shr_trunc(shr_all(asx, 1), sub(qasx, qm));
    const I32 v = shr_trunc(shr_all(asy, 1), sub(qasy, qm));
    const I32 sum = ln::max(sat_add(u, v), dup(1));
    const I32 hs = hr_nonneg(sum);
    // Px <= 0 gives a quotient r <= -1 and the smallest factor, 8192, as Px = 0 does.
    const I32 p = ln::max(px, zero());
    const I32 h = hr_nonneg(p);
    const I32 q31 = quotient_q31(to_headroom_one(p, h), shl(sum, hs));
    // Shift by (qm + hs) + 1 - h - 16 - qpx.
    const I32 r = shift_sat_nonneg(q31, sub(sub(add(qm, hs), h), add(qpx, dup(15))));
    // |r - 1| limited to 32767.
    const I32 d = ln::min(abs_sat(sat_sub(r, dup(32767))), dup(32767));
    return sub(dup(24575), shr_all(d, 1));
}

SONVEL_STEP I32 instant_gain(I32 asx, I32 qasx, I32 w, I32 asy, I32 qasy, I32 ase, I32 qase) {
    using namespace ln;
    // Asx * W / 32768, normalised.
    const F32 tw = fmul(i2f(asx), i2f(w));
    const I32 t = f2i_not_nan(fmul(tw, dupf(1.0f / 2147483648.0f)));
    const I32 g = hr(t);
    const I32 qt = sub(add(qasx, g), dup(16));

    // Residual echo power at Q qm.
    const I32 qm = ln::min(qt, qasy);
    const I32 u = shr_trunc(shl(t, g), sub(qt, qm));
    const I32 v = shr_trunc(asy, sub(qasy, qm));
    const I32 d = ln::max(sat_sub(u, v), zero());

    // rho = min(D / Ase, 1) in Q31.
    const I32 e = ln::max(ase, dup(1));
    const I32 ge = hr_nonneg(e);
    const I32 gd = hr_nonneg(d);
    const I32 q31 = quotient_q31(to_headroom_one(d, gd), shl(e, ge));
    const I32 rho = shift_sat_nonneg(q31, sub(add(qase, ge), sub(add(gd, qm), dup(1))));

    // 32767 - rho / 2^16, saturated above.
    return ln::min(sub(dup(32767), shr_all(rho, 16)), dup(32767));
}

// A falling gain at once, a rising one except for 17/16384 of the old value. The sum stays below
// 2^30 and the saturating store is the saturation to int16.
SONVEL_STEP I32 update_gain(I32 h, I32 g) {
    const I32 c = ln::mask_and(ln::gt(g, h), ln::dup(17));
    const I32 sum = ln::add(ln::mul_lo(c, h), ln::mul_lo(ln::sub(ln::dup(16384), c), g));
    return ln::shr_all(sum, 14);
}

// Bins k..k+L-1 of each loop.
SONVEL_STEP I32 smoothing_factor_at(Bins px, Bins asx, Bins asy, int k) {
    return smoothing_factor(ln::load(px.man + k), ln::load16(px.exp + k), ln::load(asx.man + k),
                            ln::load16(asx.exp + k), ln::load(asy.man + k),
                            ln::load16(asy.exp + k));
}

SONVEL_STEP I32 updated_gain_at(Bins asx, const int32_t *w, Bins asy, Bins ase, const int16_t *h,
                                int k) {
    const I32 g = instant_gain(ln::load(asx.man + k), ln::load16(asx.exp + k), ln::load(w + k),
                               ln::load(asy.man + k), ln::load16(asy.exp + k),
                               ln::load(ase.man + k), ln::load16(ase.exp + k));
    return update_gain(ln::load16(h + k), g);
}

}  // namespace

// A count that is no multiple of the step ends with a step over the last L bins, overlapping the
// one before it.
SONVEL_LANES_TARGET int smoothing_factors(Bins px, Bins asx, Bins asy, int16_t *a, int n) {
    if (n < ln::kLanes) return 0;
    for (int k = 0; k + ln::kLanes <= n; k += ln::kLanes) {
        ln::store16_sat(a + k, smoothing_factor_at(px, asx, asy, k));
    }
    if (n % ln::kLanes != 0) {
        ln::store16_sat(a + n - ln::kLanes, smoothing_factor_at(px, asx, asy, n - ln::kLanes));
    }
    return n;
}

// The gains update in place, so the overlapping last step is taken from the old gains first.
SONVEL_LANES_TARGET int update_gains(Bins asx, const int32_t *w, Bins asy, Bins ase, int16_t *h,
                                     int n) {
    if (n < ln::kLanes) return 0;
    const int last = n - ln::kLanes;
    const bool partial = n % ln::kLanes != 0;
    const I32 tail = partial ? updated_gain_at(asx, w, asy, ase, h, last) : ln::zero();
    for (int k = 0; k + ln::kLanes <= n; k += ln::kLanes) {
        ln::store16_sat(h + k, updated_gain_at(asx, w, asy, ase, h, k));
    }
    if (partial) ln::store16_sat(h + last, tail);
    return n;
}

#undef SONVEL_STEP

}  // namespace sup::lanes

namespace sup::echo_band {

#endif

// The vectorised loops do every bin of at least one step; the per-bin steps do the portable path
// and counts below one step.
void smoothing_factors(sp::Isa isa, Bins px, Bins asx, Bins asy, int16_t *a, int n) {
    if (sp::lanes_checked(isa, {{a, 2u * n}},
                          [&](sp::Isa i) { smoothing_factors(i, px, asx, asy, a, n); }))
        return;
    int k = 0;
#if SONVEL_HAS_LANES
    if (sp::lanes_on(isa)) k = lanes::smoothing_factors(px, asx, asy, a, n);
#endif
    for (; k < n; ++k) {
        a[k] =
            smoothing_factor(px.man[k], px.exp[k], asx.man[k], asx.exp[k], asy.man[k], asy.exp[k]);
    }
}

void update_gains(sp::Isa isa, Bins asx, const int32_t *w, Bins asy, Bins ase, int16_t *h, int n) {
    if (sp::lanes_checked(isa, {{h, 2u * n}},
                          [&](sp::Isa i) { update_gains(i, asx, w, asy, ase, h, n); }))
        return;
    int k = 0;
#if SONVEL_HAS_LANES
    if (sp::lanes_on(isa)) k = lanes::update_gains(asx, w, asy, ase, h, n);
#endif
    for (; k < n; ++k) {
        const int16_t g = instant_gain(asx.man[k], asx.exp[k], w[k], asy.man[k], asy.exp[k],
                                       ase.man[k], ase.exp[k]);
        h[k] = update_gain(h[k], g);
    }
}

}  // namespace sup::echo_band

namespace {

// Px[k] is larger than Asx[k]: a smaller Q value, or the same Q value and a larger mantissa.
bool larger(int32_t m1, int q1, int32_t m2, int q2) { return q1 < q2 || (q1 == q2 && m1 > m2); }

// Latches the length of a long far-end silence; after one of at least 201 blocks, lets Asx jump
// up to Px (bins 0..L) during the first 5 far-end active blocks while the near end is active.
void silence_latch_and_peak_hold(AecState *st, const Powers &px, int last) {
    if (st->as16FarVadSt[0] >= kLatchQuietBlocks) st->s16FarQuietLen = st->as16FarVadSt[0];
    if (st->as16FarVadSt[3] >= kClearLatchActive) {
        st->s16FarQuietLen = 0;
        return;
    }
    if (st->s16FarQuietLen < kPeakHoldQuietLen || st->s16NearActive != 1 ||
        st->as16FarVadSt[3] > kPeakHoldMaxActive) {
        return;
    }
    for (int k = 0; k <= last; ++k) {
        if (larger(px.man[k], px.exp[k], st->ai32AsxMan[k], st->as16AsxExp[k])) {
            st->ai32AsxMan[k] = px.man[k];
            st->as16AsxExp[k] = px.exp[k];
        }
    }
}

}  // namespace

extern "C" SONVEL_API void Sonvel_AEC_HnlmGain(AecState *state, const void * /*unused*/,
                                               const int32_t *E, const int32_t *X,
                                               const int32_t *Y) {
    using namespace sup::echo_band;
    AecState *st = state;
    const int last = st->s16HalfFftLen;
    const int bins = last + 4;
    const auto s = static_cast<int16_t>(st->s16RateShift);
    const sp::Isa isa = sp::instance_isa(st);

    // 1. Instantaneous powers of the delayed far end, the error and the echo estimate.
    Powers px, pe, py;
    sp::energy_f(isa, X, px.man, s, px.exp, bins);
    sp::energy_f(isa, E, pe.man, s, pe.exp, bins);
    sp::energy_f(isa, Y, py.man, s, py.exp, bins);

    // 2. Per-bin smoothing factors from the previous block's Asx and Asy.
    const Bins asx{st->ai32AsxMan, st->as16AsxExp};
    const Bins asy{st->ai32AsyMan, st->as16AsyExp};
    const Bins ase{st->ai32AseMan, st->as16AseExp};
    int16_t a[kBins];
    smoothing_factors(isa, {px.man, px.exp}, asx, asy, a, bins);

    // 3. Smoothing: error, far end, echo estimate.
    const auto n = static_cast<int16_t>(bins);
    sp::smooth_dg_f(isa, pe.man, st->ai32AseMan, pe.exp, st->as16AseExp, a, n);
    sp::smooth_dg_f(isa, px.man, st->ai32AsxMan, px.exp, st->as16AsxExp, a, n);
    sp::smooth_dg_f(isa, py.man, st->ai32AsyMan, py.exp, st->as16AsyExp, a, n);

    // 4. Far-end silence latch and peak hold.
    silence_latch_and_peak_hold(st, px, last);

    // 5.-6. Instantaneous gain and its update into the echo-band gain.
    update_gains(isa, asx, st->ai32BandCoupling, asy, ase, st->as16EchoBandGain, bins);
}
