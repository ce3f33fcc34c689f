// Per-bin steps of the echo-band gain, reachable by the tests. Mantissas with Q values: m / 2^q.
#pragma once

#include <cstdint>

namespace sonvel::echo_band {

// Smoothing factor in Q15 from R = Px / ((Asx + Asy) / 2): 24575 - |R - 1| / 2, within
// 8192..24575.
int16_t smoothing_factor(int32_t px, int qpx, int32_t asx, int qasx, int32_t asy, int qasy);

// 1 - min(max(W * Asx - Asy, 0) / Ase, 1) in Q15, W the coupling gain in Q15 (32768 = 1.0).
int16_t instant_gain(int32_t asx, int qasx, int32_t w, int32_t asy, int qasy, int32_t ase,
                     int qase);

// New echo-band gain from the old one h and the instantaneous gain g.
int16_t update_gain(int16_t h, int16_t g);

}  // namespace sonvel::echo_band
