// The block normaliser's loops for x86-64 with AVX2: eight words per step, one count for all.
#include "spectral/vector_norm_vec.h"

#if defined(__x86_64__)

#include "spectral/simd_avx2.h"

namespace sp::vec {

using simd::V;

SONVEL_LANES_TARGET int32_t magnitude_bits(const int32_t *v, int32_t n, uint32_t *bits) {
    V acc = _mm256_setzero_si256();
    int32_t i = 0;
    for (; i + 8 <= n; i += 8) {
        const V x = simd::load8(v + i);
        acc = _mm256_or_si256(acc, _mm256_xor_si256(x, _mm256_srai_epi32(x, 31)));
    }
    *bits |= simd::or_lanes32(acc);
    return i;
}

SONVEL_LANES_TARGET int32_t shift_left(int32_t *v, int32_t n, int32_t c) {
    const __m128i cnt = _mm_cvtsi32_si128(c);
    int32_t i = 0;
    for (; i + 8 <= n; i += 8) simd::store8(v + i, _mm256_sll_epi32(simd::load8(v + i), cnt));
    return i;
}

SONVEL_LANES_TARGET int32_t shift_right(int32_t *v, int32_t n, int32_t r) {
    const __m128i cnt = _mm_cvtsi32_si128(r);
    int32_t i = 0;
    for (; i + 8 <= n; i += 8) simd::store8(v + i, _mm256_sra_epi32(simd::load8(v + i), cnt));
    return i;
}

}  // namespace sp::vec

#endif
