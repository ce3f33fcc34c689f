// Vectorised comfort-noise loops (AVX2 with FMA on x86-64, NEON on aarch64), several bins per step
// with exactly the bits of the per-bin steps. Each does the leading bins that fill whole steps and
// returns how many; the caller does the rest bin by bin. Only for instances whose path is
// sp::Isa::kVector.
#pragma once

#include "suppressor/comfort_noise.h"

namespace sonvel::comfort_noise::lanes {

int add_noise(const Bins &b, const int32_t *e, int32_t *out, int n);

}  // namespace sonvel::comfort_noise::lanes
