// The comfort-noise floor estimate and the generator's loop over bins, on the portable or the
// vectorised path (the same bits on both), reachable by the tests.
#pragma once

#include <cstdint>

#include "spectral/processor.h"

namespace sup::comfort_noise {

// Inputs of n consecutive bins: the noise floor (mantissas with Q values, m / 2^q), the gains
// applied to them (Q15), the cosine and sine of their phases (Q15) and the rate shift s.
struct Bins {
    const int32_t *floor_man;
    const int16_t *floor_exp;
    const int16_t *gain;
    const int16_t *cos;
    const int16_t *sin;
    int s;
};

// out = e plus the noise component of each bin, the spectra interleaved (re, im), saturating.
void add_noise(sp::Isa isa, const Bins &b, const int32_t *e, int32_t *out, int n);

// One block of the noise floor estimate (Sonvel_AEC_ComfortNoiseEstimate) on the given path.
void estimate(sp::Isa isa, AecState *st);

}  // namespace sup::comfort_noise
