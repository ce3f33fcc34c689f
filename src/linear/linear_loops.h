// The per-bin and per-sample loops of the filter update and the echo estimate, each with the
// instance's choice between the portable loop and the vectorised one (both give the same bits).
// Per-bin values are mantissas with a Q value; spectra are packed re / im words.
#pragma once

#include <cstdint>

#include "spectral/processor.h"

namespace lin {

// Gain constant 429 normalised by 2^22; the gain shift undoes those 22 bits plus 12 more.
inline constexpr int32_t kGain = 429 << 22;
inline constexpr int kGainShift = 34;
// Cap of the common Q value of the gradient.
inline constexpr int kQCap = 100;

// Reciprocal of t = P - P/4 + 1 (about 0.75 P) per bin: 2^31 / t normalised to full scale (man)
// with the Q value of its normalisation shift plus s + 16 (q).
void reciprocal_far_power(sp::Isa isa, const int32_t *pow, int bins, int s, int32_t *man,
                          int32_t *q);

// G = E * R per part, each part of E normalised first; the Q value of each part in qg.
void normalised_error(sp::Isa isa, const int32_t *e, const int32_t *man, const int32_t *q, int bins,
                      int32_t *g, int32_t *qg);

// Gain that brings every bin of the gradient to the magnitude 1716 * 2^-32, about 1716 / |G|,
// from the gradient power e2 (Q qe2), in place.
void constant_magnitude_gain(sp::Isa isa, int32_t *e2, const int32_t *qe2, int bins);

// G *= gain per bin in single precision, truncating.
void apply_gain(sp::Isa isa, int32_t *g, const int32_t *gain, int bins);

// Smallest Q among the non-zero words, capped at kQCap.
int common_q(sp::Isa isa, const int32_t *g, const int32_t *qg, int words);

// Every word brought from its own Q to q.
void align_to_q(sp::Isa isa, int32_t *g, const int32_t *qg, int words, int q);

// W += Phi shifted by the signed count, saturating.
void accumulate_into_filter(sp::Isa isa, int32_t *w, const int32_t *phi, int words, int shift);

// Echo estimate and error of one block: est = y[L + i] shifted by undo (saturating), the error
// (near end shifted by s) - est saturating, and y rebuilt as [L zeros, L error samples].
void estimate_and_error(sp::Isa isa, int32_t *y, const int16_t *near, int l, int undo, int s,
                        int32_t *est, int32_t *err);

// f[i] = fx::shift_wrap(x[i], s): samples widened to 32 bits and shifted by the signed count s.
void widen_shifted(sp::Isa isa, const int16_t *x, int count, int s, int32_t *f);

// Sum of the squares of n samples (none for n <= 0).
int64_t sum_squares(sp::Isa isa, const int16_t *x, int n);

}  // namespace lin
