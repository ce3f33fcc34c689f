// Integer lane primitives for the vectorised per-bin loops on x86-64 with AVX2 and FMA: eight
// int32 lanes or four int64 lanes per register. Each one gives, lane by lane, exactly the bits of
// its scalar twin in fixedpoint/block_float.h for every operand. The functions carry their own
// target attribute, so only callers that checked the processor (sp::Isa::kVector) may run them;
// callers mark themselves with SONVEL_LANES_TARGET too.
#pragma once

#if defined(__x86_64__)

#include <immintrin.h>

#include <cstdint>

#include "spectral/processor.h"


namespace sp::simd {

using V = __m256i;  // eight int32 lanes or four int64 lanes, as the function names say

// ---- Loads and stores (no alignment needed) ----

SONVEL_LANES_TARGET inline V load8(const int32_t *p) {
    return _mm256_loadu_si256(reinterpret_cast<const V *>(p));
}

SONVEL_LANES_TARGET inline void store8(int32_t *p, V v) { _mm256_storeu_si256(reinterpret_cast<V *>(p), v); }

// ---- 32-bit lanes ----

// fx::hr of each lane. u = x ^ (x >> 31) is non-negative with its top set bit at 30 - hr;
// clearing every bit below a set bit keeps the top bit and stops the conversion to float from
// rounding up to the next power of two, so the float's exponent is that bit's position.
// u = 0 has exponent field 0, which gives 157 and the minimum makes it 31.
SONVEL_LANES_TARGET inline V hr32(V x) {
    V u = _mm256_xor_si256(x, _mm256_srai_epi32(x, 31));
    u = _mm256_andnot_si256(_mm256_srli_epi32(u, 1), u);
    const V bits = _mm256_castps_si256(_mm256_cvtepi32_ps(u));
    const V h = _mm256_sub_epi32(_mm256_set1_epi32(157), _mm256_srli_epi32(bits, 23));
    return _mm256_min_epi32(h, _mm256_set1_epi32(31));
}

// The value a lane saturates to when a sum with first operand a overflows: a < 0 ? -2^31 : 2^31-1.
SONVEL_LANES_TARGET inline V sat_bound32(V a) {
    return _mm256_xor_si256(_mm256_srai_epi32(a, 31), _mm256_set1_epi32(INT32_MAX));
}

// Lanes of r, replaced by b where the sign bit of mask is set.
SONVEL_LANES_TARGET inline V select32(V r, V b, V mask) {
    return _mm256_castps_si256(_mm256_blendv_ps(_mm256_castsi256_ps(r), _mm256_castsi256_ps(b),
                                                _mm256_castsi256_ps(mask)));
}

// fx::sat_add / fx::sat_sub: the wrapped sum, or the bound of a's sign where it overflowed.
SONVEL_LANES_TARGET inline V sat_add32(V a, V b) {
    const V r = _mm256_add_epi32(a, b);
    const V ovf = _mm256_and_si256(_mm256_xor_si256(a, r), _mm256_xor_si256(b, r));
    return select32(r, sat_bound32(a), ovf);
}

SONVEL_LANES_TARGET inline V sat_sub32(V a, V b) {
    const V r = _mm256_sub_epi32(a, b);
    const V ovf = _mm256_and_si256(_mm256_xor_si256(a, b), _mm256_xor_si256(a, r));
    return select32(r, sat_bound32(a), ovf);
}

// Two's-complement negation of the odd lanes (the imaginary parts of interleaved complex
// values); -2^31 stays -2^31 as sp::neg_wrap.
SONVEL_LANES_TARGET inline V conj32(V x) {
    return _mm256_sign_epi32(x, _mm256_setr_epi32(1, -1, 1, -1, 1, -1, 1, -1));
}

// Saturating negation of the odd lanes (conjugation that turns -2^31 into 2^31 - 1). The odd
// lanes are first raised to at least -(2^31 - 1), whose negation fits.
SONVEL_LANES_TARGET inline V conj_sat32(V x) {
    const V floor = _mm256_setr_epi32(INT32_MIN, -INT32_MAX, INT32_MIN, -INT32_MAX, INT32_MIN,
                                      -INT32_MAX, INT32_MIN, -INT32_MAX);
    return conj32(_mm256_max_epi32(x, floor));
}

// OR of the eight lanes.
SONVEL_LANES_TARGET inline uint32_t or_lanes32(V v) {
    __m128i m = _mm_or_si128(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
    m = _mm_or_si128(m, _mm_shuffle_epi32(m, 0x4E));
    m = _mm_or_si128(m, _mm_shuffle_epi32(m, 0xB1));
    return static_cast<uint32_t>(_mm_cvtsi128_si32(m));
}

// Exchange the even and odd lanes (re and im of interleaved complex values).
SONVEL_LANES_TARGET inline V swap_pairs32(V x) { return _mm256_shuffle_epi32(x, 0xB1); }

// fx::shr_trunc with a count per lane, counts >= 0 (from 32 on the sign fill).
SONVEL_LANES_TARGET inline V shr_trunc32(V x, V c) { return _mm256_srav_epi32(x, c); }

// fx::shift_sat with a signed count per lane: left with saturation where c > 0, truncating right
// by -c elsewhere. A left shift beyond the headroom of a non-zero lane saturates.
SONVEL_LANES_TARGET inline V shift_sat32(V x, V c) {
    const V zero = _mm256_setzero_si256();
    const V left = _mm256_sllv_epi32(x, c);
    const V right = _mm256_srav_epi32(x, _mm256_sub_epi32(zero, c));
    const V over = _mm256_andnot_si256(_mm256_cmpeq_epi32(x, zero), _mm256_cmpgt_epi32(c, hr32(x)));
    const V l = select32(left, sat_bound32(x), over);
    return select32(right, l, _mm256_cmpgt_epi32(c, zero));
}

// fx::i2f of each lane (the same rounding as the scalar conversion).
SONVEL_LANES_TARGET inline __m256 i2f(V x) { return _mm256_cvtepi32_ps(x); }

// fx::f2i of each lane: the conversion gives -2^31 for every operand out of range and for NaN;
// lanes at or above 2^31 become 2^31-1, NaN lanes 0.
SONVEL_LANES_TARGET inline V f2i(__m256 f) {
    const V r = _mm256_cvttps_epi32(f);
    const V big = _mm256_castps_si256(_mm256_cmp_ps(f, _mm256_set1_ps(2147483648.0f), _CMP_GE_OQ));
    const V nan = _mm256_castps_si256(_mm256_cmp_ps(f, f, _CMP_UNORD_Q));
    return _mm256_andnot_si256(nan, _mm256_xor_si256(r, big));
}

// ---- 64-bit lanes ----

// Exact products of the sign-extended even (odd) int32 lanes of a and b: four int64 lanes.
SONVEL_LANES_TARGET inline V mul_even(V a, V b) { return _mm256_mul_epi32(a, b); }

SONVEL_LANES_TARGET inline V mul_odd(V a, V b) {
    return _mm256_mul_epi32(_mm256_srli_epi64(a, 32), _mm256_srli_epi64(b, 32));
}

// Lanes of r, replaced by b where the sign bit of the 64-bit lane of mask is set.
SONVEL_LANES_TARGET inline V select64(V r, V b, V mask) {
    return _mm256_castpd_si256(_mm256_blendv_pd(_mm256_castsi256_pd(r), _mm256_castsi256_pd(b),
                                                _mm256_castsi256_pd(mask)));
}

// a < 0 ? INT64_MIN : INT64_MAX per lane.
SONVEL_LANES_TARGET inline V sat_bound64(V a) {
    const V neg = _mm256_cmpgt_epi64(_mm256_setzero_si256(), a);
    return _mm256_xor_si256(neg, _mm256_set1_epi64x(INT64_MAX));
}

// fx::sat_add64 / fx::sat_sub64.
SONVEL_LANES_TARGET inline V sat_add64(V a, V b) {
    const V r = _mm256_add_epi64(a, b);
    const V ovf = _mm256_and_si256(_mm256_xor_si256(a, r), _mm256_xor_si256(b, r));
    return select64(r, sat_bound64(a), ovf);
}

SONVEL_LANES_TARGET inline V sat_sub64(V a, V b) {
    const V r = _mm256_sub_epi64(a, b);
    const V ovf = _mm256_and_si256(_mm256_xor_si256(a, b), _mm256_xor_si256(a, r));
    return select64(r, sat_bound64(a), ovf);
}

// fx::rnd(v, k) of each 64-bit lane for k in 1..32, the int32 result in the even 32-bit lanes
// (odd lanes hold junk). rnd is monotonic, so v is first clamped to the range whose results do
// not saturate, [-2^(31+k) - 2^(k-1), 2^(31+k) - 2^(k-1) - 1] (no lower bound for k = 32); then
// v + 2^(k-1) + 2^(31+k) lies in [0, 2^(32+k)) as an unsigned number, its logical shift by k in
// [0, 2^32), and flipping bit 31 of the low half subtracts the 2^31 again.
SONVEL_LANES_TARGET inline V rnd64(V v, int k) {
    const int64_t half = int64_t{1} << (k - 1);
    const uint64_t top = uint64_t{1} << (31 + k);
    const V hi = _mm256_set1_epi64x(static_cast<int64_t>(top - static_cast<uint64_t>(half) - 1));
    v = select64(v, hi, _mm256_cmpgt_epi64(v, hi));
    if (k < 32) {
        const V lo = _mm256_set1_epi64x(static_cast<int64_t>(0 - top - static_cast<uint64_t>(half)));
        v = select64(v, lo, _mm256_cmpgt_epi64(lo, v));
    }
    const V bias = _mm256_set1_epi64x(static_cast<int64_t>(top + static_cast<uint64_t>(half)));
    const V u = _mm256_srl_epi64(_mm256_add_epi64(v, bias), _mm_cvtsi32_si128(k));
    return _mm256_xor_si256(u, _mm256_set1_epi64x(INT32_MIN & 0xFFFFFFFFll));
}

// Eight int32 lanes from the even 32-bit lanes of re (to even lanes) and of im (to odd lanes):
// interleaved complex values from separately computed parts.
SONVEL_LANES_TARGET inline V interleave_even(V re, V im) {
    return _mm256_blend_epi32(re, _mm256_slli_epi64(im, 32), 0xAA);
}

// The even 32-bit lanes of v as four int32 lanes, in order.
SONVEL_LANES_TARGET inline __m128i narrow_even(V v) {
    return _mm256_castsi256_si128(
        _mm256_permutevar8x32_epi32(v, _mm256_setr_epi32(0, 2, 4, 6, 0, 2, 4, 6)));
}

// ---- Spectra and Q values ----

// Eight int16 values widened to int32 lanes.
SONVEL_LANES_TARGET inline V load16x8(const int16_t *p) {
    return _mm256_cvtepi16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p)));
}

// Eight lanes stored as the low 16 bits of each (the wrap of static_cast<int16_t>; masked to 16
// bits, the unsigned saturating pack keeps them).
SONVEL_LANES_TARGET inline void store16x8_wrap(int16_t *p, V v) {
    const V low = _mm256_and_si256(v, _mm256_set1_epi32(0xFFFF));
    const V packed = _mm256_permute4x64_epi64(_mm256_packus_epi32(low, low), 0x08);
    _mm_storeu_si128(reinterpret_cast<__m128i *>(p), _mm256_castsi256_si128(packed));
}

// Eight interleaved bins of x as their re and im lanes, in bin order.
SONVEL_LANES_TARGET inline void load_bins8(const int32_t *x, V &re, V &im) {
    const __m256 lo = _mm256_castsi256_ps(load8(x));
    const __m256 hi = _mm256_castsi256_ps(load8(x + 8));
    re = _mm256_permute4x64_epi64(_mm256_castps_si256(_mm256_shuffle_ps(lo, hi, 0x88)), 0xD8);
    im = _mm256_permute4x64_epi64(_mm256_castps_si256(_mm256_shuffle_ps(lo, hi, 0xDD)), 0xD8);
}

// fx::rnd(x * f, 15) for factors f in 0..32767: the product has at most 47 bits and the result
// fits in int32, so the low half of (product + 2^14) >> 15 is the result.
SONVEL_LANES_TARGET inline V mul_rnd15(V x, V f) {
    const V half = _mm256_set1_epi64x(1 << 14);
    const V even = _mm256_srli_epi64(_mm256_add_epi64(mul_even(x, f), half), 15);
    const V odd = _mm256_slli_epi64(_mm256_add_epi64(mul_odd(x, f), half), 17);
    return _mm256_blend_epi32(even, odd, 0xAA);
}

// sp::bin_power_f of eight bins: e and the headroom h. The smaller headroom of re and im is that
// of the OR of their magnitudes' bits (x ^ sign).
struct Power8 {
    V e;
    V h;
};

SONVEL_LANES_TARGET inline Power8 bin_power8(V re, V im) {
    const V ur = _mm256_xor_si256(re, _mm256_srai_epi32(re, 31));
    const V ui = _mm256_xor_si256(im, _mm256_srai_epi32(im, 31));
    const V h = hr32(_mm256_or_si256(ur, ui));
    const __m256 r = i2f(_mm256_sllv_epi32(re, h));
    const __m256 i = i2f(_mm256_sllv_epi32(im, h));
    const __m256 rr = _mm256_mul_ps(r, r);
    const __m256 ii = _mm256_mul_ps(i, i);
    const __m256 sum = _mm256_add_ps(rr, ii);
    return {f2i(_mm256_mul_ps(sum, _mm256_set1_ps(0x1p-32f))), h};
}

// fx::Mpy_32_16_opt2 of each lane for int16 factors f: bits 16..47 of the exact product, which
// hold the whole shifted product.
SONVEL_LANES_TARGET inline V mpy_32_16_opt2(V x, V f) {
    const V even = _mm256_srli_epi64(mul_even(x, f), 16);
    const V odd = _mm256_slli_epi64(mul_odd(x, f), 16);
    return _mm256_blend_epi32(even, odd, 0xAA);
}

}  // namespace sp::simd

#endif
