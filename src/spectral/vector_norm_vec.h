// The vectorised loops of the block normaliser (AVX2 on x86-64, NEON on aarch64). Each runs whole
// vector steps from the start of v and returns the words it did; the portable loop does the rest.
// Callers on x86-64 call them only when the processor runs AVX2 (sp::Isa::kVector).
#pragma once

#include <cstdint>

namespace sp::vec {

#if defined(__x86_64__) || defined(__aarch64__)

// *bits is ORed with the magnitudes (x ^ sign) of the words done.
int32_t magnitude_bits(const int32_t *v, int32_t n, uint32_t *bits);

// Left shift by c in 0..31 keeping the low 32 bits.
int32_t shift_left(int32_t *v, int32_t n, int32_t c);

// Truncating right shift by r in 0..31.
int32_t shift_right(int32_t *v, int32_t n, int32_t r);

#else

inline int32_t magnitude_bits(const int32_t *, int32_t, uint32_t *) { return 0; }
inline int32_t shift_left(int32_t *, int32_t, int32_t) { return 0; }
inline int32_t shift_right(int32_t *, int32_t, int32_t) { return 0; }

#endif

}  // namespace sp::vec
