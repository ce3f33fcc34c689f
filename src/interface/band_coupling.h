// Per-bin coupling gain of the echo-band gain, built from the band edges and shifts.
#pragma once

struct AecState;

namespace sonvel {

// Writes ai32BandCoupling for bins 0..M from as16BandEdge and as16BandShift
// (M = s16HalfFftLen).
void build_band_coupling(AecState *st);

}  // namespace sonvel
