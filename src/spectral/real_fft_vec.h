// The vectorised loops of the real FFT pair around the complex transform (AVX2 on x86-64, NEON on
// aarch64). Each runs whole vector steps from the start of its range and returns where it stopped;
// the portable loop of the pair does the rest. Callers on x86-64 call them only with a prepared
// plan of this library whose processor runs AVX2.
#pragma once

#include <cstdint>

namespace sp::vec {

#if defined(__x86_64__) || defined(__aarch64__)

// c[2i], c[2i + 1] = buf[i], 0; returns the samples done.
int32_t real_to_complex(const int32_t *buf, int32_t *c, int32_t n);

// Bins N/2+1 .. N-2 of c from bins N/2-1 .. 2 of buf, conjugated with saturating negation, in
// steps of four bins; returns the first bin not done.
int32_t mirror_bins(const int32_t *buf, int32_t *c, int32_t n);

// buf[i] = c[2i], the real parts; returns the samples done.
int32_t real_parts(const int32_t *c, int32_t *buf, int32_t n);

#else

inline int32_t real_to_complex(const int32_t *, int32_t *, int32_t) { return 0; }
inline int32_t mirror_bins(const int32_t *, int32_t *, int32_t n) { return n / 2 + 1; }
inline int32_t real_parts(const int32_t *, int32_t *, int32_t) { return 0; }

#endif

}  // namespace sp::vec
