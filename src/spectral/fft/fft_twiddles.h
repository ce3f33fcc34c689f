// Twiddle factors of the FFT service, from a quarter-wave sine table in Q31 so that every target
// builds bit-identical plans without calling the maths library.
#pragma once

#include <cstdint>

namespace sonvel::fft {

// Angles count in steps of 2 pi / 256.
inline constexpr int kAngleSteps = 256;

// e^{-j 2 pi a / 256} in Q31 (re, im); +1.0 is held as 2^31 - 1.
struct Q31Pair {
    int32_t re;
    int32_t im;
};
Q31Pair unit_root(int a);

}  // namespace sonvel::fft
