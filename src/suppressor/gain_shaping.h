// Per-bin steps of gain shaping shared by its translation units and reachable by the tests:
// weighting toward the band gain, the overdrive power and the pull toward the echo-band gain.
#pragma once

#include <cstdint>

#include "spectral/processor.h"

namespace sup::shaping {

// (wc * min(g, fb) + (32767 - wc) * g) >> 15, saturated: g drawn toward fb by wc where g > fb.
int16_t weigh_toward_band(int16_t g, int32_t fb, int16_t wc);

// g^(od / 512) for a Q15 gain g and a Q9 overdrive od, through the base-2 logarithm and the
// table of 2^(-i/100); a gain of 0 counts as 2^-15.
int16_t overdrive_power(int16_t g, int16_t od);

// Every gain of bins 0..b that lies below the echo-band gain h climbs seven eighths of the way to
// it. Gains run in groups of 4 from bin 0: for b < last exactly bins 0..b change, for b >= last
// the whole group of 4 holding b. Nothing changes for b < 0.
void pull_toward(int16_t *g, const int16_t *h, int b, int last);

// The same on the vector path where isa runs it (the same bits).
void pull_toward(sp::Isa isa, int16_t *g, const int16_t *h, int b, int last);

}  // namespace sup::shaping
