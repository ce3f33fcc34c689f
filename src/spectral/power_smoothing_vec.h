// The vectorised loops of the power and smoothing kernels (AVX2 on x86-64, NEON on aarch64). Each
// runs whole vector steps from the start of its arrays and returns how many elements (or bins) it
// did; the portable loop of the kernel does the rest, so counts that are no multiple of the step
// and operands a loop does not take (see each) still give the portable results. Callers on x86-64
// call them only for instances whose processor runs AVX2 (sp::Isa::kVector).
#pragma once

#include <cstdint>

namespace sp::vec {

#if defined(__x86_64__) || defined(__aarch64__)

// y (Q qy) smoothed towards x (Q qx) with a factor per element, count elements. The AVX2 loop
// stops before the first step with a factor below 0.
int32_t smooth_dg_f(const int32_t *x, int32_t *y, const int16_t *qx, int16_t *qy, const int16_t *a,
                    int32_t count);

// y smoothed towards the single-precision power of each bin of x; qoff = 2q - 32. The AVX2 loop
// does nothing for a factor below 0.
int32_t energy_smooth_f(const int32_t *x, int32_t *y, int qoff, int16_t *qy, int32_t a,
                        int32_t bins);

// y smoothed towards the normalised a conj(b) of each part, words = 2 * bins; qoff = 2q - 32.
// The AVX2 loop does nothing for a factor below 0.
int32_t conj_mult_smooth_q(const int32_t *a, const int32_t *b, int32_t *y, int qoff, int16_t *qy,
                           int32_t s, int32_t words);

// Normalised single-precision power of each bin of x with its Q value; qoff = 2q - 32.
int32_t energy_f(const int32_t *x, int32_t *e, int qoff, int16_t *qe, int32_t bins);

// Single-precision power of spectra whose parts carry their own Q values.
int32_t energy_dq_f(const int32_t *x, const int32_t *qx, int32_t *e, int32_t *qe, int32_t bins);

// Far-end power update of each bin (s = rate shift).
int32_t far_power(const int32_t *x, int s, int32_t *p, int32_t bins);

#else

inline int32_t smooth_dg_f(const int32_t *, int32_t *, const int16_t *, int16_t *, const int16_t *,
                           int32_t) {
    return 0;
}
inline int32_t energy_smooth_f(const int32_t *, int32_t *, int, int16_t *, int32_t, int32_t) {
    return 0;
}
inline int32_t conj_mult_smooth_q(const int32_t *, const int32_t *, int32_t *, int, int16_t *,
                                  int32_t, int32_t) {
    return 0;
}
inline int32_t energy_f(const int32_t *, int32_t *, int, int16_t *, int32_t) { return 0; }
inline int32_t energy_dq_f(const int32_t *, const int32_t *, int32_t *, int32_t *, int32_t) {
    return 0;
}
inline int32_t far_power(const int32_t *, int, int32_t *, int32_t) { return 0; }

#endif

}  // namespace sp::vec
