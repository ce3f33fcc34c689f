// The per-bin kernels as the stages call them: the same computations as the exported kernels,
// with the choice between the portable and the vectorised loops made by the caller's instance.
#pragma once

#include <cstdint>

#include "spectral/processor.h"

namespace sp {

// acc += rnd_31(a b) per bin, saturating.
void complex_mla(Isa isa, const int32_t *a, const int32_t *b, int32_t *acc, int32_t n);

// acc += rnd_31(a_p b_p) per bin for the parts p = 0..parts-1 in turn, a_p = a + p * stride and
// b_p = b + p * stride, each sum saturating.
void complex_mla_sum(Isa isa, const int32_t *a, const int32_t *b, int32_t stride, int parts,
                     int32_t *acc, int32_t n);

// out = rnd_31(a conj(b)) per bin.
void complex_conj_mult(Isa isa, const int32_t *a, const int32_t *b, int32_t *out, int32_t n);

// y smoothed towards the normalised a conj(b) of each part, with its Q value in qy.
void conj_mult_smooth_q(Isa isa, const int32_t *a, const int32_t *b, int32_t *y, int16_t q,
                        int16_t *qy, int16_t s, int32_t n);

// y smoothed towards the single-precision power of each bin of x.
void energy_smooth_f(Isa isa, const int32_t *x, int32_t *y, int16_t q, int16_t *qy, int16_t a,
                     int32_t n);

// Single-precision power of each bin of x, normalised, with its Q value.
void energy_f(Isa isa, const int32_t *x, int32_t *e, int16_t q, int16_t *qe, int32_t n);

// Power of spectra whose parts carry their own Q values.
void energy_dq_f(Isa isa, const int32_t *x, const int32_t *qx, int32_t *e, int32_t *qe, int32_t n);

// y smoothed towards x with a factor per element.
void smooth_dg_f(Isa isa, const int32_t *x, int32_t *y, const int16_t *qx, int16_t *qy,
                 const int16_t *a, int16_t n);

// min(31, headroom of v[0..m-1]).
int block_headroom(Isa isa, const int32_t *v, int64_t m);

// fx::shift_wrap of v[0..m-1] by one count c: 0 from 32 on, left for c >= 0, truncating right by
// min(-c, 31) below.
void shift_block(Isa isa, int32_t *v, int64_t m, int c);

// v normalised to q guard bits by one common shift (v[n+1..n+4] = 1); returns the headroom found.
int32_t vector_norm(Isa isa, int32_t *v, int32_t q, int32_t n);

}  // namespace sp
