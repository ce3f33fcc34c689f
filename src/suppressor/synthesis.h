// Windowed overlap-add synthesis of the suppressor's output block, shared by the frame step and the
// exported stand-alone synthesis.
#pragma once

#include <cstdint>

struct AecState;

namespace sup {

// Turns the packed output spectrum (at least N + 6 words; normalised, then overwritten by the
// time frame) into the windowed frame[0..N-1] and the output samples out[0..L-1], overlap-added
// with the previous frame kept in the state, which then takes the new frame. Returns the status of
// the inverse transform.
int32_t synthesize(AecState *state, int32_t *spectrum, const int16_t *win, int32_t *frame,
                   int16_t *out);

}  // namespace sup
