// Pieces of the coherence analysis that its tests reach directly: the coherence of each bin, the
// band mean, the statistics of the preferred band and the decisions taken from them.
#pragma once

#include <cstdint>

#include "spectral/processor.h"

struct AecState;

namespace sup {

// Coherence |Sc|^2 / (Sa Sd) in Q15 of every computed bin: of error and near end, or with far of
// far end and near end; the vector path gives the portable path's bits.
void coherence(sp::Isa isa, const AecState *st, bool far, int16_t *out);

// Far/near incoherence xd <- 32767 - xd (saturated) and the first gains hnl = min(coh_ed, xd).
void incoherence_and_gains(sp::Isa isa, const int16_t *coh_ed, int16_t *xd, int16_t *hnl, int bins);

// Mean of v over [lo, hi) rounded down; the edges are bounded to the computed bins 0..bins-1 and an
// empty band gives 0.
int16_t band_mean(const int16_t *v, int lo, int hi, int bins);

// The n (at most 52) values of v in ascending order; every path gives the same order.
void sort_band(sp::Isa isa, const int16_t *v, int n, int16_t *sorted);

// Means of the error/near coherence and of the far/near incoherence over the preferred band, and
// the upper and lower order statistics of the gains there.
struct PrefBand {
    int16_t de_avg;
    int16_t xd_avg;
    int16_t fb_high;
    int16_t fb_low;
};

PrefBand preferred_band(const AecState *st, const int16_t *coh_ed, const int16_t *xd,
                        const int16_t *hnl, int bins);

// Near-end state, incoherence minimum, regime (gains hnl[0..L], echo state) and new minimum of the
// low band gain; returns the band gain.
int16_t decide(AecState *st, const PrefBand &pref, const int16_t *coh_ed, const int16_t *xd,
               int16_t *hnl);

}  // namespace sup
