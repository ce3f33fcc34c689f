// The coherence analysis' lane loops (coherence_lanes.cpp) and the spectra they read. Each gives
// the bits of the per-bin steps in coherence.cpp; callers take them only on the vector path.
#pragma once

#include <cstdint>

#include "spectral/lanes.h"
#include "state/aec_state.h"

namespace sup::lanes {

// The smoothed spectra one coherence is formed from: Sa, Sd and the cross-spectrum Sc.
struct CohInputs {
    const int32_t *sa_man;
    const int16_t *sa_exp;
    const int32_t *sc_man;  // re, im interleaved
    const int16_t *sc_exp;  // one Q value per part
};

// Bins in the preferred band at most, and the keys' room for them in the rank sort.
inline constexpr int kPrefBins = 52;

#if SONVEL_HAS_LANES

// The coherence of every bin (bins >= ln::kLanes: the last step overlaps the one before it).
void coherence(const CohInputs &in, const AecState *st, int bins, int16_t *out);

// The n <= kPrefBins values of v in ascending order.
void rank_sort(const int16_t *v, int n, int16_t *sorted);

// xd <- 32767 - xd (saturated), hnl = min(coh_ed, xd); returns the bins done.
int incoherence(const int16_t *coh_ed, int16_t *xd, int16_t *hnl, int bins);

#endif

}  // namespace sup::lanes
