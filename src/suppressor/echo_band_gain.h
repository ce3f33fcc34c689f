// Per-bin steps of the echo-band gain, reachable by the tests, and the loops over bins that apply
// them on the portable or the vectorised path (the same bits on both). Mantissas with Q values:
// m / 2^q.
#pragma once

#include <cstdint>

#include "spectral/processor.h"

namespace sup::echo_band {

// Smoothing factor in Q15 from R = Px / ((Asx + Asy) / 2): 24575 - |R - 1| / 2, within
// 8192..24575.
int16_t smoothing_factor(int32_t px, int qpx, int32_t asx, int qasx, int32_t asy, int qasy);

// 1 - min(max(W * Asx - Asy, 0) / Ase, 1) in Q15, W the coupling gain in Q15 (32768 = 1.0).
int16_t instant_gain(int32_t asx, int qasx, int32_t w, int32_t asy, int qasy, int32_t ase,
                     int qase);

// New echo-band gain from the old one h and the instantaneous gain g.
int16_t update_gain(int16_t h, int16_t g);

// A per-bin array of mantissas with their Q values.
struct Bins {
    const int32_t *man;
    const int16_t *exp;
};

// a[k] = smoothing_factor(px[k], asx[k], asy[k]) for bins 0..n-1.
void smoothing_factors(sp::Isa isa, Bins px, Bins asx, Bins asy, int16_t *a, int n);

// h[k] = update_gain(h[k], instant_gain(asx[k], w[k], asy[k], ase[k])) for bins 0..n-1.
void update_gains(sp::Isa isa, Bins asx, const int32_t *w, Bins asy, Bins ase, int16_t *h, int n);

}  // namespace sup::echo_band
