// Drift tracker: a straight line fitted to the recent confident delay estimates; its slope is the
// clock drift, its value now the delay the echo has reached.
#pragma once

#include <cstdint>

namespace sonvel::frontend {

inline constexpr int kDriftPoints = 64;

struct DriftTracker {
    uint32_t t[kDriftPoints];  // frame index of each point
    int32_t d[kDriftPoints];   // delay estimate, samples Q8
    int32_t count, next;
    int32_t strays;              // consecutive points far off the line
    int32_t ppm;                 // last slope, ppm (0 until the span is long enough)
    int32_t valid;               // non-zero when ppm and the line are usable
    int64_t lineQ8At0;           // the line's value at frame t0, Q8 samples
    int64_t slopeNum, slopeDen;  // slope in Q8 samples per frame = num / den
    uint32_t t0;
};

void drift_tracker_reset(DriftTracker &dt);
// Adds a point; a point far off the current line (the echo path moved) restarts the fit.
void drift_tracker_add(DriftTracker &dt, uint32_t frame, int32_t delayQ8, int32_t frameLen,
                       int32_t jumpQ8);
// The line's value at a frame (Q8 samples); only meaningful when valid.
int32_t drift_tracker_at(const DriftTracker &dt, uint32_t frame);

}  // namespace sonvel::frontend
