// Lane versions of the single-precision reciprocal, reciprocal square root and square root of
// spectral/reciprocal.h, with the same bits in every lane for every operand: eight lanes with AVX2
// and FMA on x86-64 (call them only from functions compiled for that target), four with NEON on
// aarch64. Operands of a moderate exponent take the table estimate and the three fused steps in
// the lanes; a vector holding any other operand (zero, denormal, near the top of the range,
// infinity, NaN, a negative square root) is done lane by lane with the scalar functions.
#pragma once

#include "spectral/processor.h"
#include "spectral/reciprocal.h"

#if defined(__x86_64__)
#include <immintrin.h>
#elif defined(__aarch64__)
#include <arm_neon.h>
#endif

namespace sp {

#if defined(__x86_64__)

namespace detail {

// The byte at index i of an estimate table, per lane. The gather reads the aligned 32-bit word that
// holds it (the tables' lengths are multiples of four, so the word is always inside the table).
SONVEL_LANES_TARGET inline __m256i table_byte8(const uint8_t *table, __m256i i) {
    const __m256i word = _mm256_i32gather_epi32(reinterpret_cast<const int *>(table),
                                                _mm256_andnot_si256(_mm256_set1_epi32(3), i), 1);
    const __m256i shift = _mm256_slli_epi32(_mm256_and_si256(i, _mm256_set1_epi32(3)), 3);
    return _mm256_and_si256(_mm256_srlv_epi32(word, shift), _mm256_set1_epi32(0xFF));
}

// Exponent field 2..250 in every lane (sign ignored): u & 0x7FFFFFFF in [2^24, 251 * 2^23).
SONVEL_LANES_TARGET inline bool all_moderate8(__m256i magnitude) {
    const __m256i ok =
        _mm256_and_si256(_mm256_cmpgt_epi32(magnitude, _mm256_set1_epi32(0x00FFFFFF)),
                         _mm256_cmpgt_epi32(_mm256_set1_epi32(0x7D800000), magnitude));
    return _mm256_movemask_epi8(ok) == -1;
}

template <float (*F)(float)>
SONVEL_LANES_TARGET inline __m256 lane_by_lane8(__m256 x) {
    alignas(32) float v[8];
    _mm256_store_ps(v, x);
    for (float &e : v) e = F(e);
    return _mm256_load_ps(v);
}

}  // namespace detail

// 1/x per lane, as sp::recip.
SONVEL_LANES_TARGET inline __m256 recip8(__m256 x) {
    const __m256i u = _mm256_castps_si256(x);
    const __m256i sign = _mm256_and_si256(u, _mm256_set1_epi32(static_cast<int>(detail::kSign)));
    const __m256i magnitude = _mm256_xor_si256(u, sign);
    if (!detail::all_moderate8(magnitude)) return detail::lane_by_lane8<sp::recip>(x);
    // Estimate: exponent 253 - e, fraction from the table at the top 8 fraction bits.
    const __m256i exponent = _mm256_sub_epi32(_mm256_set1_epi32(253 << 23),
                                              _mm256_and_si256(u, _mm256_set1_epi32(0x7F800000)));
    const __m256i index = _mm256_and_si256(_mm256_srli_epi32(u, 15), _mm256_set1_epi32(0xFF));
    const __m256i fraction =
        _mm256_slli_epi32(detail::table_byte8(detail::kRecipEstimate.data(), index), 15);
    __m256 r = _mm256_castsi256_ps(_mm256_or_si256(_mm256_or_si256(sign, exponent), fraction));
    // Three steps r <- r * (2 - x*r), the inner expression rounded once.
    const __m256 two = _mm256_set1_ps(2.0f);
    for (int i = 0; i < 3; ++i) r = _mm256_mul_ps(r, _mm256_fnmadd_ps(x, r, two));
    return r;
}

// 1/sqrt(x) per lane, as sp::rsqrt.
SONVEL_LANES_TARGET inline __m256 rsqrt8(__m256 x) {
    const __m256i u = _mm256_castps_si256(x);
    if (!detail::all_moderate8(u)) return detail::lane_by_lane8<sp::rsqrt>(x);  // negatives too
    // Estimate: exponent (380 - e) / 2; an even exponent indexes 1.f (top 8 fraction bits, upper
    // half of the table), an odd one 0.1f (top 7 fraction bits, lower half).
    const __m256i e = _mm256_srli_epi32(u, 23);
    const __m256i odd = _mm256_and_si256(e, _mm256_set1_epi32(1));
    const __m256i top8 = _mm256_and_si256(_mm256_srli_epi32(u, 15), _mm256_set1_epi32(0xFF));
    const __m256i index =
        _mm256_add_epi32(_mm256_srlv_epi32(top8, odd),
                         _mm256_slli_epi32(_mm256_xor_si256(odd, _mm256_set1_epi32(1)), 7));
    const __m256i exponent =
        _mm256_slli_epi32(_mm256_srli_epi32(_mm256_sub_epi32(_mm256_set1_epi32(380), e), 1), 23);
    const __m256i fraction =
        _mm256_slli_epi32(detail::table_byte8(detail::kRsqrtEstimate.data(), index), 15);
    __m256 r = _mm256_castsi256_ps(_mm256_or_si256(exponent, fraction));
    // Three steps r <- r * (3 - x*r*r)/2 as r * (1.5 - (x/2)*(r*r)), the inner expression rounded
    // once; halving a moderate x is exact.
    const __m256 half_x = _mm256_mul_ps(x, _mm256_set1_ps(0.5f));
    const __m256 three_halves = _mm256_set1_ps(1.5f);
    for (int i = 0; i < 3; ++i)
        r = _mm256_mul_ps(r, _mm256_fnmadd_ps(half_x, _mm256_mul_ps(r, r), three_halves));
    return r;
}

// sqrt(x) per lane, as sp::sqrt.
SONVEL_LANES_TARGET inline __m256 sqrt8(__m256 x) { return recip8(rsqrt8(x)); }

#elif defined(__aarch64__)

// 1/x per lane, as sp::recip.
inline float32x4_t recip4(float32x4_t x) {
    float32x4_t r = vrecpeq_f32(x);
    for (int i = 0; i < 3; ++i) r = vmulq_f32(r, vrecpsq_f32(x, r));
    return r;
}

// 1/sqrt(x) per lane, as sp::rsqrt.
inline float32x4_t rsqrt4(float32x4_t x) {
    float32x4_t r = vrsqrteq_f32(x);
    for (int i = 0; i < 3; ++i) r = vmulq_f32(r, vrsqrtsq_f32(x, vmulq_f32(r, r)));
    return r;
}

// sqrt(x) per lane, as sp::sqrt.
inline float32x4_t sqrt4(float32x4_t x) { return recip4(rsqrt4(x)); }

#endif

}  // namespace sp
