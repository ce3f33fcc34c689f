// The vectorised loops of the complex multiply kernels (AVX2 on x86-64, NEON on aarch64). Each
// runs whole steps of four bins from the start of its arrays and returns how many words it did;
// the portable loop of the kernel does the rest. Callers on x86-64 call them only for instances
// whose processor runs AVX2 (sp::Isa::kVector). An output may be one of the operands.
#pragma once

#include <cstdint>

namespace sp::vec {

#if defined(__x86_64__) || defined(__aarch64__)

// acc += rnd_31(a b) per bin, saturating; words = 2 * bins.
int32_t complex_mla(const int32_t *a, const int32_t *b, int32_t *acc, int32_t words);

// out = rnd_31(a conj(b)) per bin.
int32_t complex_conj_mult(const int32_t *a, const int32_t *b, int32_t *out, int32_t words);

#else

inline int32_t complex_mla(const int32_t *, const int32_t *, int32_t *, int32_t) { return 0; }
inline int32_t complex_conj_mult(const int32_t *, const int32_t *, int32_t *, int32_t) { return 0; }

#endif

}  // namespace sp::vec
