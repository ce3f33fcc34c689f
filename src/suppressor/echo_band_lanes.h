// Vectorised loops of the echo-band gain (AVX2 with FMA on x86-64, NEON on aarch64): the smoothing
// factors and the gain update, several bins per step, with exactly the bits of the per-bin steps.
// Each does the leading bins that fill whole steps and returns how many; the caller does the rest
// bin by bin. Only for instances whose path is sp::Isa::kVector.
#pragma once

#include "suppressor/echo_band_gain.h"

namespace sonvel::echo_band::lanes {

int smoothing_factors(Bins px, Bins asx, Bins asy, int16_t *a, int n);

int update_gains(Bins asx, const int32_t *w, Bins asy, Bins ase, int16_t *h, int n);

}  // namespace sonvel::echo_band::lanes
