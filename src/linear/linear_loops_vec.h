// The vectorised heads of the linear canceller's loops (AVX2 on x86-64, NEON on aarch64). Each
// runs whole vector steps from the start of its arrays and returns how many bins, words or samples
// it did; the portable loop does the rest. Callers on x86-64 call them only for instances whose
// processor runs AVX2 (sp::Isa::kVector).
#pragma once

#include <cstdint>

namespace lin::vec {

#if defined(__x86_64__) || defined(__aarch64__)

int32_t reciprocal_far_power(const int32_t *pow, int32_t bins, int32_t s, int32_t *man, int32_t *q);

int32_t normalised_error(const int32_t *e, const int32_t *man, const int32_t *q, int32_t bins,
                         int32_t *g, int32_t *qg);

int32_t constant_magnitude_gain(int32_t *e2, const int32_t *qe2, int32_t bins);

int32_t apply_gain(int32_t *g, const int32_t *gain, int32_t bins);

// *q becomes the smallest of *q and the Q values of the non-zero words done.
int32_t common_q(const int32_t *g, const int32_t *qg, int32_t words, int32_t *q);

int32_t align_to_q(int32_t *g, const int32_t *qg, int32_t words, int32_t q);

// W += Phi >> r (r in 0..31), saturating.
int32_t accumulate_right(int32_t *w, const int32_t *phi, int32_t words, int32_t r);

// W += Phi << c (c >= 1, saturating shift), saturating.
int32_t accumulate_left(int32_t *w, const int32_t *phi, int32_t words, int32_t c);

int32_t estimate_and_error(int32_t *y, const int16_t *near, int32_t l, int32_t undo, int32_t s,
                           int32_t *est, int32_t *err);

#else

inline int32_t reciprocal_far_power(const int32_t *, int32_t, int32_t, int32_t *, int32_t *) {
    return 0;
}
inline int32_t normalised_error(const int32_t *, const int32_t *, const int32_t *, int32_t,
                                int32_t *, int32_t *) {
    return 0;
}
inline int32_t constant_magnitude_gain(int32_t *, const int32_t *, int32_t) { return 0; }
inline int32_t apply_gain(int32_t *, const int32_t *, int32_t) { return 0; }
inline int32_t common_q(const int32_t *, const int32_t *, int32_t, int32_t *) { return 0; }
inline int32_t align_to_q(int32_t *, const int32_t *, int32_t, int32_t) { return 0; }
inline int32_t accumulate_right(int32_t *, const int32_t *, int32_t, int32_t) { return 0; }
inline int32_t accumulate_left(int32_t *, const int32_t *, int32_t, int32_t) { return 0; }
inline int32_t estimate_and_error(int32_t *, const int16_t *, int32_t, int32_t, int32_t, int32_t *,
                                  int32_t *) {
    return 0;
}

#endif

}  // namespace lin::vec
