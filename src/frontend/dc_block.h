// DC-blocking high-pass and DC meter of the front end: a first-order high-pass per signal, in
// integer arithmetic, and a slow mean that reports the offset.
#pragma once

#include <cstdint>

namespace sonvel::frontend {

struct HighPass {
    int64_t yQ15;   // previous output, Q15
    int32_t xPrev;  // previous input
    int32_t pad;
    int64_t dcQ16;  // slow mean of the input, Q16
};

// Pole of the high-pass in Q15 for a rate (8000 or 16000 Hz).
int32_t high_pass_pole(uint32_t rate);
// Filters n samples from in to out.
void high_pass(HighPass &hp, int32_t poleQ15, const int16_t *in, int16_t *out, int n);
// Updates the DC meter with one frame of the unfiltered input.
void dc_meter_frame(HighPass &hp, const int16_t *in, int n);
// The DC meter's value, LSB.
int16_t dc_estimate(const HighPass &hp);

}  // namespace sonvel::frontend
