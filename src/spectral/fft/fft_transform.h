// Entry of the transform kernels below the exported service functions: one complex transform on
// a checked plan, with the choice between the portable and the vectorised stages (tests compare
// the two; the service always lets the processor decide).
#pragma once

#include <cstdint>

#include "spectral/fft/fft_plan.h"

namespace sonvel::fft {

enum class Kernels { Portable, Best };

// dst = DFT(src) * 2^-shift (inverse: the unscaled inverse DFT, the caller adds log2 N to shift).
void run_transform(const int32_t *src, int32_t *dst, const Plan &p, int shift, bool inverse,
                   Kernels kernels);

}  // namespace sonvel::fft
