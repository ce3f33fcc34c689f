// The lane loops of the suppressor's own per-bin and per-sample steps (suppressor_lanes.cpp): the
// windowed frames, the zero-word marking of the spectra, the bin powers and their sums, the common
// scale and band sums of the smoothed powers, the shaped gains, their smoothing across frequency
// and their application, and the synthesis' unwindowing and overlap-add. Each runs whole vector
// steps from the start of its arrays (those marked "All" end with a step overlapping the one before
// it and do every count of at least one step) and returns how many elements (or bins) it did; the
// caller's portable loop does the rest, so counts that are no multiple of the step and operands a
// loop does not take (see each) still give the portable results. Callers call them only for
// instances whose processor runs them (sp::Isa::kVector).
#pragma once

#include <cstdint>

#include "spectral/lanes.h"

namespace sup::lanes {

// Gain caps of the overdrive: cap_lo for bins 0..lo, cap_hi for bins hi_from..hi_to.
struct OverdriveCaps {
    int32_t lo;
    int32_t hi_from;
    int32_t hi_to;
    int16_t cap_lo;
    int16_t cap_hi;
};

#if SONVEL_HAS_LANES

// out[i] = (w[i] * pcm[i]) >> shift, shift in 0..31.
int32_t window_pcm(const int16_t *w, const int16_t *pcm, int32_t *out, int shift, int32_t count);

// out[i] = rnd_15(in[i] * w[i]) for window values in 0..32767 (the loop checks none of them).
int32_t window_q15(const int16_t *w, const int32_t *in, int32_t *out, int32_t count);

// Every zero word of x becomes 1. All.
int32_t mark_zero_words(int32_t *x, int32_t words);

// Bin powers e and headroom h of each bin of x (sp::bin_power_f): man = e, exp = 2h + qoff,
// *sum += shift_sat(e, toff - 2h). man and exp may be null for the sum alone. All.
int32_t bin_powers(const int32_t *x, int32_t *man, int16_t *exp, int qoff, int toff, int64_t *sum,
                   int32_t bins);

// *lowest = min(*lowest, a[i], b[i]) over count elements. All.
int32_t min_q2(const int16_t *a, const int16_t *b, int16_t *lowest, int32_t count);

// *sum += man[i] >> (exp[i] - c), counts exp[i] - c >= 0 (from 32 on the sign fill). All.
int32_t band_sum(const int32_t *man, const int16_t *exp, int c, int64_t *sum, int32_t count);

// Steps 1-3 of the gain shaping fused, per bin: the gain weighted toward fb by wc (values in
// 0..32767), the overdrive ovrd * oc >> 14 under its caps, and the gain raised to it. Does nothing
// for an fb outside the int16 range. All.
int32_t shape_gains(int16_t *g, int32_t fb, const int16_t *wc, const int16_t *ovrd,
                    const int16_t *oc, const OverdriveCaps &caps, int32_t count);

// E[w] = f2i(float(g[w / 2]) * float(E[w]) * 2^-15) over an even count of words (two per bin).
// All.
int32_t apply_gains(const int16_t *g, int32_t *E, int32_t words);

// g[k] climbs seven eighths of the way to h[k] where h[k] > g[k] (sup::shaping::pull_toward).
int32_t pull_toward(int16_t *g, const int16_t *h, int32_t count);

// frame[i] = rnd_16(shift_sat64(x[i] * w[i], t)). Does nothing for t outside -46..15.
int32_t unwindow(const int32_t *x, const int16_t *w, int t, int32_t *frame, int32_t count);

// out[i] = sat16(sat_add(a[i], b[i])).
int32_t overlap_add(const int32_t *a, const int32_t *b, int16_t *out, int32_t count);

// t[j] = sat16((sum - largest + 2) >> 2) of g[j-2..j+2] for j in from..to-1, reading g[from-2]
// up to g[to+1]; returns the j reached. All.
int32_t smooth_across(const int16_t *g, int16_t *t, int32_t from, int32_t to);

#else

inline int32_t window_pcm(const int16_t *, const int16_t *, int32_t *, int, int32_t) { return 0; }
inline int32_t window_q15(const int16_t *, const int32_t *, int32_t *, int32_t) { return 0; }
inline int32_t mark_zero_words(int32_t *, int32_t) { return 0; }
inline int32_t bin_powers(const int32_t *, int32_t *, int16_t *, int, int, int64_t *, int32_t) {
    return 0;
}
inline int32_t min_q2(const int16_t *, const int16_t *, int16_t *, int32_t) { return 0; }
inline int32_t band_sum(const int32_t *, const int16_t *, int, int64_t *, int32_t) { return 0; }
inline int32_t shape_gains(int16_t *, int32_t, const int16_t *, const int16_t *, const int16_t *,
                           const OverdriveCaps &, int32_t) {
    return 0;
}
inline int32_t apply_gains(const int16_t *, int32_t *, int32_t) { return 0; }
inline int32_t pull_toward(int16_t *, const int16_t *, int32_t) { return 0; }
inline int32_t unwindow(const int32_t *, const int16_t *, int, int32_t *, int32_t) { return 0; }
inline int32_t overlap_add(const int32_t *, const int32_t *, int16_t *, int32_t) { return 0; }
inline int32_t smooth_across(const int16_t *, int16_t *, int32_t from, int32_t) { return from; }

#endif

}  // namespace sup::lanes
