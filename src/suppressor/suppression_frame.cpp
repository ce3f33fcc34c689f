// Suppression frame step of one processing block: windowing and transforms of the near-end,
// far-end, error and echo frames, the delayed far-end spectrum, the smoothed auto- and
// cross-spectra, the fixed order of the analysis, control, gain and comfort-noise steps, the
// output-power mute, the pass-through while the far end is quiet, and the synthesis.
#include <cstring>

#include "sonvel_aec_spectral.h"
#include "sonvel_aec_stages.h"

#include "fixedpoint/basic_ops.h"
#include "fixedpoint/block_float.h"
#include "spectral/kernel_elements.h"
#include "spectral/kernels.h"
#include "spectral/lane_check.h"
#include "state/aec_state.h"
#include "suppressor/spectrum_power.h"
#include "suppressor/suppressor_lanes.h"
#include "suppressor/synthesis.h"

namespace {

constexpr int kMaxFft = 256;
constexpr int kSpecWords = kMaxFft + 8;  // bins 0..N/2 plus six guard words
constexpr int16_t kSmooth = 29490;       // 0.9 in Q15
constexpr int16_t kQuietBlocks = 477;    // 3.816 s of quiet far end before pass-through
constexpr int32_t kQuietLevel = 5152;    // far-end level threshold at the lowest setting
constexpr int32_t kQuietStep = 2048;     // 10 dB per setting

struct Spectra {
    alignas(16) int32_t x[kSpecWords];  // far end (delayed from step 7 on)
    alignas(16) int32_t d[kSpecWords];  // near end
    alignas(16) int32_t e[kSpecWords];  // error
    alignas(16) int32_t y[kSpecWords];  // echo estimate
};

// Step 1: periodic sine window of length N from its rising half.
void build_window(const AecState *st, int16_t *w) {
    const int16_t *table =
        st->u16SampleRate == 0 ? Sonvel_AEC_gasAecWindow_65 : Sonvel_AEC_gasAecWindow_129;
    const int n = st->s16FftLen2;
    const int half = st->s16BlockLen;
    for (int i = 0; i < half; ++i) w[i] = table[i];
    for (int i = half; i < n; ++i) w[i] = table[n - i];
}

// A frame of 16-bit samples, windowed and brought to the scale shifted left by s.
void window_pcm(sp::Isa isa, const int16_t *w, const int16_t *pcm, int32_t *frame, int shift,
                int n) {
    if (sp::lanes_checked(isa, {{frame, 4u * n}},
                          [&](sp::Isa i) { window_pcm(i, w, pcm, frame, shift, n); }))
        return;
    int i = sp::lanes_on(isa) ? sup::lanes::window_pcm(w, pcm, frame, shift, n) : 0;
    for (; i < n; ++i) frame[i] = (w[i] * pcm[i]) >> shift;
}

// A block of 32-bit samples windowed by the part of the window that starts at w.
void window_q15(sp::Isa isa, const int16_t *w, const int32_t *in, int32_t *frame, int count) {
    if (sp::lanes_checked(isa, {{frame, 4u * count}},
                          [&](sp::Isa i) { window_q15(i, w, in, frame, count); }))
        return;
    int i = sp::lanes_on(isa) ? sup::lanes::window_q15(w, in, frame, count) : 0;
    for (; i < count; ++i) frame[i] = fx::rnd(static_cast<int64_t>(in[i]) * w[i], 15);
}

// The previous and current block of a 32-bit signal as one windowed frame; the current block
// becomes the previous.
void window_blocks(sp::Isa isa, const int16_t *w, int32_t *prev, const int32_t *cur, int32_t *frame,
                   int half) {
    window_q15(isa, w, prev, frame, half);
    window_q15(isa, w + half, cur, frame + half, half);
    std::memcpy(prev, cur, sizeof(int32_t) * static_cast<size_t>(half));
}

// Step 2: the four windowed frames at the scale of 16-bit samples shifted left by s.
void build_frames(AecState *st, const int16_t *w, Spectra &f) {
    const sp::Isa isa = sp::instance_isa(st);
    const int half = st->s16BlockLen;
    const int n = st->s16FftLen2;
    const int shift = 15 - st->s16RateShift;
    window_pcm(isa, w, st->as16NearTimeBuf, f.d, shift, n);
    window_pcm(isa, w, st->as16FarTimeBuf, f.x, shift, n);
    window_blocks(isa, w, st->ai32ErrPrev, st->ai32ErrBlk, f.e, half);
    window_blocks(isa, w, st->ai32EchoPrev, st->ai32EchoEst, f.y, half);
    for (int i = n; i < n + 8; ++i) f.d[i] = f.x[i] = f.e[i] = f.y[i] = 0;
}

// Step 4: no word of bins 0..N/2 stays zero; the guard words are cleared again.
void zero_guard(sp::Isa isa, int32_t *spectrum, int n) {
    if (sp::lanes_checked(isa, {{spectrum, 4u * (n + 8)}},
                          [&](sp::Isa i) { zero_guard(i, spectrum, n); }))
        return;
    int i = sp::lanes_on(isa) ? sup::lanes::mark_zero_words(spectrum, n + 2) : 0;
    for (; i < n + 2; ++i) spectrum[i] |= static_cast<int32_t>(spectrum[i] == 0);
    for (int i = n + 2; i < n + 8; ++i) spectrum[i] = 0;
}

// Step 5: instantaneous near-end power per bin (twice the power on the scale of Sd) and its sum.
int64_t near_power(sp::Isa isa, AecState *st, const int32_t *d) {
    const int s = st->s16RateShift;
    const int bins = st->s16HalfFftLen + 4;
    int64_t sum = 0;
    if (sp::lanes_checked(
            isa, {{st->ai32DPowMan, 4u * bins}, {st->as16DPowExp, 2u * bins}, {&sum, sizeof sum}},
            [&](sp::Isa i) { sum = near_power(i, st, d); }))
        return sum;
    int k = 0;
    if (sp::lanes_on(isa)) {
        k = sup::lanes::bin_powers(d, st->ai32DPowMan, st->as16DPowExp, 2 * s - 33, 17 - 2 * s,
                                   &sum, bins);
    }
    for (; k < bins; ++k) {
        const sp::BinPower b = sp::bin_power_f(d[2 * k], d[2 * k + 1]);
        st->ai32DPowMan[k] = b.e;
        st->as16DPowExp[k] = static_cast<int16_t>(2 * b.h + 2 * s - 33);
        sum += sup::power_sum_term(b, s);
    }
    return sum;
}

// Step 6: counts quiet far-end blocks; true once the pass-through is due.
bool far_quiet(AecState *st) {
    int16_t level = 0;
    for (int16_t v : st->as16FarLevelHist) level = v > level ? v : level;
    if (level >= kQuietLevel + kQuietStep * st->u16NlpLevel) {
        st->s16FarQuietCnt = 0;
        return false;
    }
    ++st->s16FarQuietCnt;
    if (st->s16FarQuietCnt < kQuietBlocks) return false;
    st->s16FarQuietCnt = kQuietBlocks;
    return true;
}

// Step 7: keep the far-end spectrum in the history and take the one of the strongest partition.
void delay_far(AecState *st, int32_t *x) {
    const int words = st->s16FftLen + 4;
    int32_t idx = st->s32MaxPartIdx;
    idx = idx < 0 ? 0 : (idx >= sonvel::kSpecSlots ? sonvel::kSpecSlots - 1 : idx);
    const size_t bytes = sizeof(int32_t) * static_cast<size_t>(words);
    std::memcpy(st->aiNlpSpecHist[0], x, bytes);
    if (idx != 0) std::memcpy(x, st->aiNlpSpecHist[idx], bytes);
}

// Step 8: smoothed powers of error, near end and delayed far end.
void smooth_powers(AecState *st, const Spectra &f) {
    const int16_t s = st->s16RateShift;
    const int32_t bins = st->s16HalfFftLen + 4;
    const sp::Isa isa = sp::instance_isa(st);
    sp::energy_smooth_f(isa, f.e, st->ai32SeMan, s, st->as16SeExp, kSmooth, bins);
    sp::energy_smooth_f(isa, f.d, st->ai32SdMan, s, st->as16SdExp, kSmooth, bins);
    sp::energy_smooth_f(isa, f.x, st->ai32SxMan, s, st->as16SxExp, kSmooth, bins);
}

// Step 9: sum of a smoothed power over bins 0..L at the common scale 2^c, divided by 2^8.
int32_t band_sum(sp::Isa isa, const int32_t *man, const int16_t *exp, int bins, int c) {
    int32_t r = 0;
    if (sp::lanes_checked(isa, {{&r, sizeof r}},
                          [&](sp::Isa i) { r = band_sum(i, man, exp, bins, c); }))
        return r;
    int64_t sum = 0;
    int k = sp::lanes_on(isa) ? sup::lanes::band_sum(man, exp, c, &sum, bins) : 0;
    for (; k < bins; ++k) sum += fx::shr_trunc(man[k], exp[k] - c);
    return sup::scaled_sum(sum);
}

// The common scale: one below the smallest Q value of both powers.
int common_scale(sp::Isa isa, const int16_t *a, const int16_t *b, int bins) {
    int r = 0;
    if (sp::lanes_checked(isa, {{&r, sizeof r}},
                          [&](sp::Isa i) { r = common_scale(i, a, b, bins); }))
        return r;
    int16_t lowest = INT16_MAX;
    int k = sp::lanes_on(isa) ? sup::lanes::min_q2(a, b, &lowest, bins) : 0;
    for (; k < bins; ++k) {
        lowest = a[k] < lowest ? a[k] : lowest;
        lowest = b[k] < lowest ? b[k] : lowest;
    }
    return lowest - 1;
}

// Step 10: smoothed cross-spectra Sxd = X conj(D) and Sed = E conj(D).
void smooth_cross(AecState *st, const Spectra &f) {
    const int16_t s = st->s16RateShift;
    const int32_t bins = st->s16HalfFftLen + 2;
    const sp::Isa isa = sp::instance_isa(st);
    sp::conj_mult_smooth_q(isa, f.x, f.d, st->ai32SxdMan, s, st->as16SxdExp, kSmooth, bins);
    sp::conj_mult_smooth_q(isa, f.e, f.d, st->ai32SedMan, s, st->as16SedExp, kSmooth, bins);
}

// Sum of the output's bin powers over bins 0..bins-1.
int64_t output_power(sp::Isa isa, const int32_t *e, int bins, int s) {
    int64_t sum = 0;
    if (sp::lanes_checked(isa, {{&sum, sizeof sum}},
                          [&](sp::Isa i) { sum = output_power(i, e, bins, s); }))
        return sum;
    const int k = sp::lanes_on(isa)
                      ? sup::lanes::bin_powers(e, nullptr, nullptr, 0, 17 - 2 * s, &sum, bins)
                      : 0;
    return sum + sup::power_sum(e + 2 * k, bins - k, s);
}

// Step 12: mute the block when the suppressed output keeps less than 1/64 of the near-end power.
void mute_if_quiet(const AecState *st, int64_t sum_d, int32_t *e, int16_t *hnl) {
    const int half = st->s16HalfFftLen;
    const int64_t sum_out = output_power(sp::instance_isa(st), e, half + 4, st->s16RateShift);
    if (!sup::output_too_quiet(sum_d, sum_out)) return;
    for (int i = 0; i < 2 * half + 2; ++i) e[i] = 0;
    for (int k = 0; k <= half; ++k) hnl[k] = 0;
}

}  // namespace

extern "C" SONVEL_API int32_t Sonvel_AEC_Nlp(AecState *state, int16_t *out) {
    const int n = state->s16FftLen;
    const int half = state->s16HalfFftLen;
    const void *plan = state->au8FftPlan;
    alignas(16) int16_t w[kMaxFft];
    Spectra f;
    alignas(16) int32_t spec_out[kSpecWords];  // words 0..N+1 from step 13 on
    alignas(16) int32_t frame[kMaxFft];
    int16_t hnl[sonvel::kBinWords] = {};
    int16_t hnl_fb = 0;

    // 1-2. Window and windowed frames.
    build_window(state, w);
    build_frames(state, w, f);

    // 3-4. Transforms, with no zero word left in the spectra.
    Sonvel_AEC_Realfft(f.x, n, plan);
    Sonvel_AEC_Realfft(f.d, n, plan);
    Sonvel_AEC_Realfft(f.e, n, plan);
    Sonvel_AEC_Realfft(f.y, n, plan);
    const sp::Isa isa = sp::instance_isa(state);
    for (int32_t *spectrum : {f.x, f.d, f.e, f.y}) zero_guard(isa, spectrum, n);

    // 5-7. Near-end power, far-end quiet detector, delayed far end.
    const int64_t sum_d = near_power(sp::instance_isa(state), state, f.d);
    const bool pass_through = far_quiet(state);
    delay_far(state, f.x);

    // 8-10. Smoothed powers, band sums for the divergence guard, smoothed cross-spectra.
    smooth_powers(state, f);
    const int c = common_scale(isa, state->as16SeExp, state->as16SdExp, half + 1);
    const int32_t se_sum = band_sum(isa, state->ai32SeMan, state->as16SeExp, half + 1, c);
    const int32_t sd_sum = band_sum(isa, state->ai32SdMan, state->as16SdExp, half + 1, c);
    smooth_cross(state, f);

    // 11. Analysis, control and gains.
    Sonvel_AEC_HnledCalc(state, hnl, &hnl_fb);
    Sonvel_AEC_ComfortNoiseEstimate(state);
    Sonvel_AEC_DivergeRistrict(state, f.e, f.d, f.y, se_sum, sd_sum);
    Sonvel_AEC_HnlCtrl(state);
    Sonvel_AEC_HnlCtrl1(state);
    Sonvel_AEC_HnlmGain(state, nullptr, f.e, f.x, f.y);
    Sonvel_AEC_NlpPro(state, hnl, hnl_fb, f.e);

    // 12-14. Output power check, comfort noise, pass-through; the guard words stay zero.
    mute_if_quiet(state, sum_d, f.e, hnl);
    Sonvel_AEC_ComfortNoise(state, hnl, f.e, spec_out);
    for (int i = n + 2; i < kSpecWords; ++i) spec_out[i] = 0;
    if (pass_through) {
        for (int i = 0; i < n + 2; ++i) spec_out[i] = f.d[i];
    }

    // 15. Synthesis by windowed overlap-add.
    sup::synthesize(state, spec_out, w, frame, out);
    return 0;
}
