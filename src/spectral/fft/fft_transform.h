// Entry of the transform kernels below the exported service functions: one complex transform on
// a checked plan and the real-data paths beside it, with the choice between the portable and the
// vectorised stages (tests compare the two; the service always lets the processor decide).
#pragma once

#include <cstdint>

#include "spectral/fft/fft_plan.h"

namespace sonvel::fft {

enum class Kernels { Portable, Best };

// dst = DFT(src 2^-pre) * 2^-shift on the stages of layout l, for any input (inverse: the
// unscaled inverse DFT). pre (at most first_guard(l)) counts guard bits of the first stage that
// the input already carries: with log2 n - pre bits of headroom it is transformed as precisely
// as src 2^-pre with log2 n bits, its low bits kept; a negative pre has the first stage shift
// the input up by -pre more bits (one with log2 n - pre bits of headroom). known >= 0 is a
// lower bound of src's common headroom that the caller has already found; one of at least
// log2 n - pre spares the stages their look at the input (the results are the same).
void complex_transform(const int32_t *src, int32_t *dst, const Plan &p, const Layout &l, int shift,
                       bool inverse, Kernels kernels, int pre = 0, int known = -1);

// Guard bits the first stage gives an input with log2 n bits of headroom.
int first_guard(const Layout &l);

// The real-data paths: forward for an input whose imaginary parts are all zero, inverse for a
// conjugate-symmetric one, each through an N/2-point transform. False (nothing written) for any
// other input, or one without log2 N bits of headroom, or a shift they do not take.
bool real_forward(const int32_t *src, int32_t *dst, const Plan &p, int shift, Kernels kernels);
bool real_inverse(const int32_t *src, int32_t *dst, const Plan &p, int shift, Kernels kernels);

// dst = DFT(src) * 2^-shift (inverse: the unscaled inverse DFT, the caller adds log2 N to shift),
// through the real-data paths where they apply, else the N-point stages.
void run_transform(const int32_t *src, int32_t *dst, const Plan &p, int shift, bool inverse,
                   Kernels kernels);

}  // namespace sonvel::fft
