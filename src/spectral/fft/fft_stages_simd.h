// Vectorised stages of the FFT service (AVX2 on x86-64, NEON on aarch64), used for inputs with
// log2 N bits of headroom. They compute exactly what the portable stages compute, several
// butterflies at a time; on other processors available() is false and they are never called.
#pragma once

#include <cstdint>

#include "spectral/fft/fft_plan.h"

namespace sonvel::fft::simd {

// True when this processor runs the vectorised stages (on x86-64: AVX2 and FMA, which the per-bin
// loops of the stages use too). Asked once, when a plan is prepared, and
// recorded in the plan: the library keeps no global state, not even a cached processor check.
bool available();

// Common headroom of the 2n words of x.
int headroom(const int32_t *x, int n);

// First stage from src (re / im exchanged with swap) into dst with guard >= 0 guard bits.
void first_stage(const int32_t *src, int32_t *dst, const Plan &p, int guard, bool swap);

// Radix-4 stage s (1 or 2) in place; results rounded by 2^-(kProductBits + 2), not clamped
// (with the headroom they fit).
void middle_stage(int32_t *d, const Plan &p, int s);

// The last stage in place; results rounded by 2^-shift (shift 1..31), clamped, re / im
// exchanged with swap.
void last_stage(int32_t *d, const Plan &p, int shift, bool swap);

}  // namespace sonvel::fft::simd
