// Gain shaping: the raw suppression gains are weighted toward the band gain, raised to the
// frequency-shaped overdrive, capped by the echo-band gain during the first far-end active blocks,
// treated per high-frequency mode (upper-band cut-off, pull toward the echo-band gain, smoothing
// and taper) and applied to the error spectrum in place.
#include "suppressor/gain_shaping.h"

#include <algorithm>
#include <cstdint>

#include "sonvel_aec_ops.h"
#include "sonvel_aec_stages.h"

#include "fixedpoint/basic_ops.h"
#include "fixedpoint/block_float.h"
#include "fixedpoint/extended_ops.h"
#include "spectral/lane_check.h"
#include "spectral/processor.h"
#include "state/aec_state.h"
#include "suppressor/suppressor_lanes.h"

namespace sup::shaping {

namespace {

constexpr int kBins = sonvel::kBinWords;
constexpr int32_t kOne15 = 32767;
constexpr int32_t kLog2Of32768 = 491520;  // 15 in Q15
constexpr int16_t kPow2Steps = 100;       // entries per octave of the power table
constexpr int32_t kGainCapBlocks = 200;
constexpr float kTwoPowM15 = 1.0f / 32768.0f;

}  // namespace

int16_t weigh_toward_band(int16_t g, int32_t fb, int16_t wc) {
    const int64_t toward = int64_t{wc} * std::min<int32_t>(g, fb);
    const int64_t keep = int64_t{kOne15 - wc} * g;
    return fx::sat16(fx::sat32(toward + keep) >> 15);
}

int16_t overdrive_power(int16_t g, int16_t od) {
    // -log2(g / 32768) in Q15, then scaled by od / 512 into Q8.
    int16_t e = 0, f = 0;
    fx::Log2(g, &e, &f);
    const int32_t t = fx::L_sub(kLog2Of32768, fx::L_add(fx::L_shl(e, 15), f));
    const int32_t u = fx::Mpy_32_16_opt2(t, od);
    // 2^-(u / 256): integer part as a shift, fraction quantised down to hundredths.
    const int32_t i = fx::L_shr_opt(u, 8);
    const int32_t j = fx::L_shr_opt(fx::L_mult(static_cast<int16_t>(u & 255), kPow2Steps), 9);
    return fx::shr_opt2(Sonvel_AEC_gasAecpow2tab[j], static_cast<int16_t>(i));
}

void pull_toward(sp::Isa isa, int16_t *g, const int16_t *h, int b, int last) {
    const int end = b < last ? b : std::min(b | 3, kBins - 1);
    const int count = end < 0 ? 0 : end + 1;
    if (sp::lanes_checked(isa, {{g, 2u * count}},
                          [&](sp::Isa i) { pull_toward(i, g, h, b, last); }))
        return;
    for (int k = sp::lanes_on(isa) ? sup::lanes::pull_toward(g, h, count) : 0; k <= end; ++k) {
        if (h[k] > g[k]) {
            const int16_t d = fx::sub(g[k], h[k]);
            g[k] = fx::sat16(int32_t{g[k]} + (d >> 3) - d);
        }
    }
}

void pull_toward(int16_t *g, const int16_t *h, int b, int last) {
    pull_toward(sp::Isa::kPortable, g, h, b, last);
}

namespace {

// Caps of the shaped overdrive: 2.0 up to the low clamp bin, 3.0 above it up to the high clamp
// bin while echo is present and the control did not boost; never past bin last.
void cap_overdrive(const AecState *st, int16_t *od, int last) {
    const int lo = st->s16ClampBinLo;
    const int hi = st->s16ClampBinHi;
    for (int k = 0; k <= std::min(lo, last); ++k) od[k] = std::min(od[k], st->s16OvrdCapLo);
    if (st->s32OvrdBoost == 0 && st->s32EchoState == 1 && lo < hi) {
        for (int k = lo + 1; k <= std::min(hi, last); ++k) {
            od[k] = std::min(od[k], st->s16OvrdCapHi);
        }
    }
}

// During the first 200 far-end active blocks the gains may not exceed the echo-band gain.
void cap_at_far_activity(AecState *st, int16_t *g, int last) {
    if (st->s16FarActive != 1 || st->s32GainCapCnt >= kGainCapBlocks) return;
    ++st->s32GainCapCnt;
    for (int k = 0; k <= last; ++k) g[k] = std::min(g[k], st->as16EchoBandGain[k]);
}

// Band treatment per high-frequency mode. The band limits are bounded to last - 2 so that the
// cut-off scan, the pull and the spectral smoothing stay inside the gain arrays.
void treat_bands(AecState *st, int16_t *g, int last) {
    const auto bound = [last](int b) { return static_cast<int16_t>(std::min(b, last - 2)); };
    const int16_t hfHi = bound(st->s16HfBinHi);
    if (st->u16HighFreqMode == 0) {
        Sonvel_AEC_HighFreqProc(g, g, st->s16HfBinLo, hfHi, last);
        pull_toward(sp::instance_isa(st), g, st->as16EchoBandGain, hfHi, last);
        Sonvel_AEC_HnledSm(st, g, hfHi, last);
    } else if (st->s32OvrdBoost == 1) {
        Sonvel_AEC_HighFreqProc(g, g, st->s16HfBinLo, hfHi, last);
        Sonvel_AEC_HnledSm(st, g, hfHi, last);
    } else {
        const int16_t edge = bound(st->as16BandEdge[5]);
        pull_toward(sp::instance_isa(st), g, st->as16EchoBandGain, edge, last);
        Sonvel_AEC_HnledSm(st, g, edge, last);
    }
}

// Caps of the overdrive as the vectorised loop takes them.
sup::lanes::OverdriveCaps lane_caps(const AecState *st) {
    const int lo = st->s16ClampBinLo;
    const int hi = st->s16ClampBinHi;
    const bool high = st->s32OvrdBoost == 0 && st->s32EchoState == 1 && lo < hi;
    return {lo, high ? lo + 1 : 1, high ? hi : 0, st->s16OvrdCapLo, st->s16OvrdCapHi};
}

// E[k] = int(float(g[k]) * float(E[k]) * 2^-15) per part, for bins 0..bins-1.
void apply_gains(sp::Isa isa, const int16_t *g, int32_t *E, int bins) {
    if (sp::lanes_checked(isa, {{E, 8u * bins}}, [&](sp::Isa i) { apply_gains(i, g, E, bins); }))
        return;
    const int applied = sp::lanes_on(isa) ? sup::lanes::apply_gains(g, E, 2 * bins) : 0;
    for (int k = applied / 2; k < bins; ++k) {
        const float gf = fx::i2f(g[k]);
        for (int p = 0; p < 2; ++p) {
            const float prod = gf * fx::i2f(E[2 * k + p]);
            E[2 * k + p] = fx::f2i(prod * kTwoPowM15);
        }
    }
}

// Steps 1-3 on bins 0..last: weighting toward the band gain fb, overdrive shaped by frequency
// (curves wc, oc) and capped, power.
void shape_gains(sp::Isa isa, const AecState *st, int16_t *g, int32_t fb, const int16_t *wc,
                 const int16_t *oc, int last) {
    if (sp::lanes_checked(isa, {{g, 2u * (last + 1)}},
                          [&](sp::Isa i) { shape_gains(i, st, g, fb, wc, oc, last); }))
        return;
    // Bins 0..done-1 in vector steps, the rest below.
    const int done = sp::lanes_on(isa) ? sup::lanes::shape_gains(g, fb, wc, st->as16BinOvrd, oc,
                                                                 lane_caps(st), last + 1)
                                       : 0;
    if (done > last) return;

    // 1. Weighting toward the band gain; overdrive shaped by frequency.
    int16_t od[sonvel::kBinWords] = {};
    for (int k = done; k <= last; ++k) {
        g[k] = weigh_toward_band(g[k], fb, wc[k]);
        od[k] = fx::sat16((int32_t{st->as16BinOvrd[k]} * oc[k]) >> 14);
    }

    // 2. Overdrive caps.
    cap_overdrive(st, od, last);

    // 3. Power.
    for (int k = done; k <= last; ++k) g[k] = overdrive_power(g[k], od[k]);
}

}  // namespace
}  // namespace sup::shaping

extern "C" SONVEL_API void Sonvel_AEC_NlpPro(AecState *state, int16_t *g, int32_t fb, int32_t *E) {
    using namespace sup::shaping;
    const int last = state->s16HalfFftLen;
    const bool narrow = last == 64;
    const int16_t *wc = narrow ? Sonvel_AEC_gasAecWeightCurve_65 : Sonvel_AEC_gasAecWeightCurve_129;
    const int16_t *oc =
        narrow ? Sonvel_AEC_gasAecOverDriveCurve_65 : Sonvel_AEC_gasAecOverDriveCurve_129;

    const sp::Isa isa = sp::instance_isa(state);
    shape_gains(isa, state, g, fb, wc, oc, last);

    // 4. Cap by the echo-band gain at far-end activity.
    cap_at_far_activity(state, g, last);

    // 5. Band treatment.
    treat_bands(state, g, last);

    // 6. Application to the error spectrum, bins 0..L+3.
    apply_gains(isa, g, E, last + 4);
}
