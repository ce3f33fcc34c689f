// The lane vocabulary on x86-64 with AVX2 and FMA: eight int32 lanes per register, the 64-bit
// values of a register's lanes as its even and its odd lanes. Included through spectral/lanes.h.
#pragma once

#include <immintrin.h>

#include <cstdint>

#include "spectral/processor.h"
#include "spectral/reciprocal.h"

#define LN_FN SONVEL_LANES_TARGET inline

namespace ln {

using I32 = __m256i;
using F32 = __m256;

inline constexpr int kLanes = 8;

// The 64-bit values of the lanes of a register: a holds those of the even lanes, b those of the
// odd lanes. Only steps of this vocabulary read them.
struct W64 {
    __m256i a;
    __m256i b;
};

// All ones in the lanes where a comparison holds, zeros elsewhere.
using Mask = __m256i;

// Separate re and im lanes of consecutive interleaved complex values, in bin order.
struct Bins {
    I32 re;
    I32 im;
};

// ---- Integer constants read from memory ----
// The integer constants of the steps in loops short of registers sit in a table in memory
// (spectral/lane_constants.cpp). Written in place, GCC 12's x86 tuning builds an integer constant
// vector from a general register and, once the loop runs out of vector registers, rebuilds it at
// every use: three instructions, where a constant in memory becomes the step's memory operand.
// Float constants come from memory already.
namespace detail {
struct Splat {
    alignas(32) int32_t v[8];
};
constexpr Splat splat(int32_t v) { return {{v, v, v, v, v, v, v, v}}; }
struct Constants {
    Splat sign;         // the float sign bit
    Splat exponent;     // the float exponent field 0x7F800000
    Splat recip_bias;   // 253 << 23
    Splat rsqrt_bias;   // 380
    Splat byte;         // 0xFF
    Splat one;          // 1
    Splat three;        // 3
    Splat thirty_one;   // 31
    Splat hr_bias;      // 157
    Splat moderate_lo;  // 0x00FFFFFF: exponent field 2 less one
    Splat moderate_hi;  // 0x7D800000: exponent field 251
};
extern const Constants kConstants;
LN_FN __m256i constant(const Splat &k) {
    return _mm256_load_si256(reinterpret_cast<const __m256i *>(k.v));
}
}  // namespace detail

// ---- Loads, stores, constants (no alignment needed) ----

LN_FN I32 load(const int32_t *p) { return _mm256_loadu_si256(reinterpret_cast<const I32 *>(p)); }
LN_FN void store(int32_t *p, I32 v) { _mm256_storeu_si256(reinterpret_cast<I32 *>(p), v); }

// int16 values widened to int32 lanes, and the low 16 bits of each lane back (the wrap of
// static_cast<int16_t>; masked to 16 bits, the unsigned saturating pack keeps them).
LN_FN I32 load16(const int16_t *p) {
    return _mm256_cvtepi16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p)));
}
LN_FN void store16(int16_t *p, I32 v) {
    const I32 low = _mm256_and_si256(v, _mm256_set1_epi32(0xFFFF));
    const I32 packed = _mm256_permute4x64_epi64(_mm256_packus_epi32(low, low), 0x08);
    _mm_storeu_si128(reinterpret_cast<__m128i *>(p), _mm256_castsi256_si128(packed));
}

// Interleaved complex values split into re and im lanes, and joined again.
LN_FN Bins load_bins(const int32_t *p) {
    const __m256 lo = _mm256_castsi256_ps(load(p));
    const __m256 hi = _mm256_castsi256_ps(load(p + kLanes));
    return {_mm256_permute4x64_epi64(_mm256_castps_si256(_mm256_shuffle_ps(lo, hi, 0x88)), 0xD8),
            _mm256_permute4x64_epi64(_mm256_castps_si256(_mm256_shuffle_ps(lo, hi, 0xDD)), 0xD8)};
}
LN_FN void store_bins(int32_t *p, Bins b) {
    const I32 re = _mm256_permute4x64_epi64(b.re, 0xD8);
    const I32 im = _mm256_permute4x64_epi64(b.im, 0xD8);
    store(p, _mm256_unpacklo_epi32(re, im));
    store(p + kLanes, _mm256_unpackhi_epi32(re, im));
}

LN_FN F32 loadf(const float *p) { return _mm256_loadu_ps(p); }
LN_FN void storef(float *p, F32 v) { _mm256_storeu_ps(p, v); }
// Interleaved int16 pairs (re, im) widened to separate int32 re and im lanes, and their low 16
// bits back.
LN_FN Bins load16_bins(const int16_t *p) {
    const I32 v = _mm256_loadu_si256(reinterpret_cast<const I32 *>(p));
    return {_mm256_srai_epi32(_mm256_slli_epi32(v, 16), 16), _mm256_srai_epi32(v, 16)};
}
LN_FN void store16_bins(int16_t *p, Bins b) {
    const I32 v = _mm256_or_si256(_mm256_and_si256(b.re, _mm256_set1_epi32(0xFFFF)),
                                  _mm256_slli_epi32(b.im, 16));
    _mm256_storeu_si256(reinterpret_cast<I32 *>(p), v);
}

// Lanes saturated to int16 and stored as int16 values.
LN_FN void store16_sat(int16_t *p, I32 v) {
    const __m128i packed =
        _mm_packs_epi32(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
    _mm_storeu_si128(reinterpret_cast<__m128i *>(p), packed);
}

LN_FN I32 dup(int32_t v) { return _mm256_set1_epi32(v); }
LN_FN F32 dupf(float v) { return _mm256_set1_ps(v); }
LN_FN I32 zero() { return _mm256_setzero_si256(); }

// ---- 32-bit lanes: wrapping arithmetic and bits ----

LN_FN I32 add(I32 a, I32 b) { return _mm256_add_epi32(a, b); }
LN_FN I32 sub(I32 a, I32 b) { return _mm256_sub_epi32(a, b); }
LN_FN I32 min(I32 a, I32 b) { return _mm256_min_epi32(a, b); }
LN_FN I32 max(I32 a, I32 b) { return _mm256_max_epi32(a, b); }
LN_FN I32 min_u(I32 a, I32 b) { return _mm256_min_epu32(a, b); }  // lanes read as unsigned
LN_FN I32 bor(I32 a, I32 b) { return _mm256_or_si256(a, b); }
// The low 32 bits of the products.
LN_FN I32 mul_lo(I32 a, I32 b) { return _mm256_mullo_epi32(a, b); }
// |x| with -2^31 giving 2^31 - 1 (the absolute value of -2^31 reads as 2^31 unsigned).
LN_FN I32 abs_sat(I32 x) {
    return _mm256_min_epu32(_mm256_abs_epi32(x), _mm256_set1_epi32(INT32_MAX));
}
LN_FN I32 band(I32 a, I32 b) { return _mm256_and_si256(a, b); }

// fx::rnd(x, N) of int32 lanes for N in 1..31, which cannot overflow.
template <int N>
LN_FN I32 rnd_shr_n(I32 x) {
    return _mm256_srai_epi32(_mm256_add_epi32(_mm256_srai_epi32(x, N - 1), _mm256_set1_epi32(1)),
                             1);
}

// Comparisons and selects.
LN_FN Mask gt(I32 a, I32 b) { return _mm256_cmpgt_epi32(a, b); }
LN_FN Mask eq(I32 a, I32 b) { return _mm256_cmpeq_epi32(a, b); }
LN_FN Mask mask_or(Mask a, Mask b) { return _mm256_or_si256(a, b); }
// Lanes of a where m is set, of b elsewhere; v where m is set, 0 elsewhere.
LN_FN I32 select(Mask m, I32 a, I32 b) { return _mm256_blendv_epi8(b, a, m); }
LN_FN I32 mask_and(Mask m, I32 v) { return _mm256_and_si256(m, v); }
// acc + 1 in the lanes where m is set.
LN_FN I32 count_set(I32 acc, Mask m) { return _mm256_sub_epi32(acc, m); }
// Shifts by a count fixed at compile time (left: the low 32 bits).
template <int N>
LN_FN I32 shl_n(I32 x) {
    return _mm256_slli_epi32(x, N);
}
// Shifts of every lane by one count known at run time: left by c in 0..31 keeping the low
// 32 bits, arithmetic right by r in 0..31.
LN_FN I32 shl_all(I32 x, int c) { return _mm256_sll_epi32(x, _mm_cvtsi32_si128(c)); }
LN_FN I32 shr_all(I32 x, int r) { return _mm256_sra_epi32(x, _mm_cvtsi32_si128(r)); }
// Left shift by a count per lane in 0..31, keeping the low 32 bits.
LN_FN I32 shl(I32 x, I32 c) { return _mm256_sllv_epi32(x, c); }
// The magnitude's bits x ^ (x >> 31).
LN_FN I32 mag(I32 x) { return _mm256_xor_si256(x, _mm256_srai_epi32(x, 31)); }
// sp::neg_wrap: -2^31 stays -2^31.
LN_FN I32 neg_wrap(I32 x) { return _mm256_sub_epi32(_mm256_setzero_si256(), x); }
// Saturating negation: -2^31 becomes 2^31 - 1.
LN_FN I32 neg_sat(I32 x) { return neg_wrap(_mm256_max_epi32(x, _mm256_set1_epi32(-INT32_MAX))); }
// The lanes in reverse order.
LN_FN I32 reverse(I32 x) {
    return _mm256_permutevar8x32_epi32(x, _mm256_setr_epi32(7, 6, 5, 4, 3, 2, 1, 0));
}
// kLanes words from re stored as interleaved complex values with zero imaginary parts, as
// store_bins(p, {load(re), zero()}) stores them.
LN_FN void store_real_bins(int32_t *p, const int32_t *re) {
    store(p, _mm256_cvtepu32_epi64(_mm_loadu_si128(reinterpret_cast<const __m128i *>(re))));
    store(p + kLanes,
          _mm256_cvtepu32_epi64(_mm_loadu_si128(reinterpret_cast<const __m128i *>(re + 4))));
}
// The kLanes / 2 interleaved complex values of a register in reverse order and conjugated with
// saturating negation (neg_sat) of the imaginary parts.
LN_FN I32 conj_reverse_pairs(I32 x) {
    const I32 r = _mm256_permute4x64_epi64(x, 0x1B);
    return _mm256_blend_epi32(r, neg_sat(r), 0xAA);
}
// OR of all lanes; whether any lane is negative.
LN_FN uint32_t or_lanes(I32 v) {
    __m128i m = _mm_or_si128(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
    m = _mm_or_si128(m, _mm_shuffle_epi32(m, 0x4E));
    m = _mm_or_si128(m, _mm_shuffle_epi32(m, 0xB1));
    return static_cast<uint32_t>(_mm_cvtsi128_si32(m));
}
// Smallest lane.
LN_FN int32_t min_lanes(I32 v) {
    __m128i m = _mm_min_epi32(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
    m = _mm_min_epi32(m, _mm_shuffle_epi32(m, 0x4E));
    m = _mm_min_epi32(m, _mm_shuffle_epi32(m, 0xB1));
    return _mm_cvtsi128_si32(m);
}
// Lanes of b where x is 0, of a elsewhere.
LN_FN I32 if_zero(I32 x, I32 b, I32 a) {
    const I32 z = _mm256_cmpeq_epi32(x, _mm256_setzero_si256());
    return _mm256_blendv_epi8(a, b, z);
}
LN_FN bool any_negative(I32 v) { return _mm256_movemask_ps(_mm256_castsi256_ps(v)) != 0; }

// ---- 32-bit lanes: the fixed-point steps ----

// fx::hr. u = x ^ (x >> 31) is non-negative with its top set bit at 30 - hr; clearing every bit
// below a set bit keeps the top bit and stops the conversion to float from rounding up to the
// next power of two, so the float's exponent is that bit's position. u = 0 has exponent field 0,
// which gives 157 and the minimum makes it 31.
LN_FN I32 hr_of_mag(I32 u) {
    u = _mm256_andnot_si256(_mm256_srli_epi32(u, 1), u);
    const I32 bits = _mm256_castps_si256(_mm256_cvtepi32_ps(u));
    const I32 h =
        _mm256_sub_epi32(detail::constant(detail::kConstants.hr_bias), _mm256_srli_epi32(bits, 23));
    return _mm256_min_epi32(h, detail::constant(detail::kConstants.thirty_one));
}
LN_FN I32 hr(I32 x) { return hr_of_mag(mag(x)); }
// The smaller fx::hr of a and b: that of the OR of their magnitudes.
LN_FN I32 hr_min(I32 a, I32 b) { return hr_of_mag(_mm256_or_si256(mag(a), mag(b))); }

namespace detail {
// a < 0 ? -2^31 : 2^31 - 1 per lane.
LN_FN I32 sat_bound(I32 a) {
    return _mm256_xor_si256(_mm256_srai_epi32(a, 31), _mm256_set1_epi32(INT32_MAX));
}
// Lanes of r, replaced by b where the sign bit of mask is set.
LN_FN I32 select(I32 r, I32 b, I32 mask) {
    return _mm256_castps_si256(_mm256_blendv_ps(_mm256_castsi256_ps(r), _mm256_castsi256_ps(b),
                                                _mm256_castsi256_ps(mask)));
}
}  // namespace detail

// fx::sat_add / fx::sat_sub: the wrapped sum, or the bound of a's sign where it overflowed.
LN_FN I32 sat_add(I32 a, I32 b) {
    const I32 r = _mm256_add_epi32(a, b);
    const I32 ovf = _mm256_and_si256(_mm256_xor_si256(a, r), _mm256_xor_si256(b, r));
    return detail::select(r, detail::sat_bound(a), ovf);
}
LN_FN I32 sat_sub(I32 a, I32 b) {
    const I32 r = _mm256_sub_epi32(a, b);
    const I32 ovf = _mm256_and_si256(_mm256_xor_si256(a, b), _mm256_xor_si256(a, r));
    return detail::select(r, detail::sat_bound(a), ovf);
}

// fx::shr_trunc with a count per lane, counts >= 0 (from 32 on the sign fill).
LN_FN I32 shr_trunc(I32 x, I32 c) { return _mm256_srav_epi32(x, c); }

// fx::shift_sat with a signed count per lane: left with saturation where c > 0, truncating right
// by -c elsewhere. A left shift beyond the headroom of a non-zero lane saturates.
LN_FN I32 shift_sat(I32 x, I32 c) {
    const I32 zero = _mm256_setzero_si256();
    const I32 left = _mm256_sllv_epi32(x, c);
    const I32 right = _mm256_srav_epi32(x, _mm256_sub_epi32(zero, c));
    const I32 over = _mm256_andnot_si256(_mm256_cmpeq_epi32(x, zero), _mm256_cmpgt_epi32(c, hr(x)));
    const I32 l = detail::select(left, detail::sat_bound(x), over);
    return detail::select(right, l, _mm256_cmpgt_epi32(c, zero));
}

// fx::shift_sat by one count c >= 1 for every lane.
LN_FN I32 shl_sat_all(I32 x, int c) {
    const I32 left = _mm256_sll_epi32(x, _mm_cvtsi32_si128(c));
    const I32 over = _mm256_andnot_si256(_mm256_cmpeq_epi32(x, _mm256_setzero_si256()),
                                         _mm256_cmpgt_epi32(_mm256_set1_epi32(c), hr(x)));
    return detail::select(left, detail::sat_bound(x), over);
}

// fx::shift_wrap with a signed count per lane: left keeping the low 32 bits (0 from 32 on),
// truncating right for negative counts (the sign fill from 32 on).
LN_FN I32 shift_wrap(I32 x, I32 c) {
    const I32 left = _mm256_sllv_epi32(x, c);
    const I32 right = _mm256_srav_epi32(x, _mm256_sub_epi32(_mm256_setzero_si256(), c));
    return detail::select(left, right, c);
}

// ---- Float lanes ----

// fx::i2f; fx::f2i: the conversion gives -2^31 for every operand out of range and for NaN;
// lanes at or above 2^31 become 2^31 - 1, NaN lanes 0.
LN_FN F32 i2f(I32 x) { return _mm256_cvtepi32_ps(x); }
LN_FN I32 f2i(F32 f) {
    const I32 r = _mm256_cvttps_epi32(f);
    const I32 big =
        _mm256_castps_si256(_mm256_cmp_ps(f, _mm256_set1_ps(2147483648.0f), _CMP_GE_OQ));
    const I32 nan = _mm256_castps_si256(_mm256_cmp_ps(f, f, _CMP_UNORD_Q));
    return _mm256_andnot_si256(nan, _mm256_xor_si256(r, big));
}
LN_FN F32 fmul(F32 a, F32 b) { return _mm256_mul_ps(a, b); }
// sp::recip, sp::rsqrt and sp::sqrt of each lane, with the same bits for every operand: operands
// of a moderate exponent take the table estimate and three fused steps in the lanes; a vector
// holding any other operand (zero, denormal, near the top of the range, infinity, NaN, a negative
// square root) is done lane by lane with the scalar functions.
namespace detail {

// The byte at index i of an estimate table, per lane. The gather reads the aligned 32-bit word that
// holds it (the tables' lengths are multiples of four, so the word is always inside the table).
LN_FN __m256i table_byte(const uint8_t *table, __m256i i) {
    const __m256i word =
        _mm256_i32gather_epi32(reinterpret_cast<const int *>(table),
                               _mm256_andnot_si256(constant(kConstants.three), i), 1);
    const __m256i shift = _mm256_slli_epi32(_mm256_and_si256(i, constant(kConstants.three)), 3);
    return _mm256_and_si256(_mm256_srlv_epi32(word, shift), constant(kConstants.byte));
}

// Exponent field 2..250 in every lane (sign ignored): u & 0x7FFFFFFF in [2^24, 251 * 2^23).
LN_FN bool all_moderate(__m256i magnitude) {
    const __m256i ok =
        _mm256_and_si256(_mm256_cmpgt_epi32(magnitude, constant(kConstants.moderate_lo)),
                         _mm256_cmpgt_epi32(constant(kConstants.moderate_hi), magnitude));
    return _mm256_movemask_epi8(ok) == -1;
}

template <float (*F)(float)>
LN_FN __m256 lane_by_lane(__m256 x) {
    alignas(32) float v[8];
    _mm256_store_ps(v, x);
    for (float &e : v) e = F(e);
    return _mm256_load_ps(v);
}

}  // namespace detail

// sp::recip of lanes whose exponent field lies in 2..250 (as recip, without the check).
LN_FN F32 recip_moderate(F32 x) {
    const __m256i u = _mm256_castps_si256(x);
    const __m256i sign = _mm256_and_si256(u, detail::constant(detail::kConstants.sign));
    // Estimate: exponent 253 - e, fraction from the table at the top 8 fraction bits.
    const __m256i exponent =
        _mm256_sub_epi32(detail::constant(detail::kConstants.recip_bias),
                         _mm256_and_si256(u, detail::constant(detail::kConstants.exponent)));
    const __m256i index =
        _mm256_and_si256(_mm256_srli_epi32(u, 15), detail::constant(detail::kConstants.byte));
    const __m256i fraction =
        _mm256_slli_epi32(detail::table_byte(sp::detail::kRecipEstimate.data(), index), 15);
    __m256 r = _mm256_castsi256_ps(_mm256_or_si256(_mm256_or_si256(sign, exponent), fraction));
    // Three steps r <- r * (2 - x*r), the inner expression rounded once.
    const __m256 two = _mm256_set1_ps(2.0f);
    for (int i = 0; i < 3; ++i) r = _mm256_mul_ps(r, _mm256_fnmadd_ps(x, r, two));
    return r;
}
// 1/x per lane, as sp::recip.
LN_FN F32 recip(F32 x) {
    const __m256i magnitude =
        _mm256_andnot_si256(detail::constant(detail::kConstants.sign), _mm256_castps_si256(x));
    if (!detail::all_moderate(magnitude)) return detail::lane_by_lane<sp::recip>(x);
    return recip_moderate(x);
}

// sp::rsqrt of positive lanes whose exponent field lies in 2..250 (as rsqrt, without the check).
LN_FN F32 rsqrt_moderate(F32 x) {
    const __m256i u = _mm256_castps_si256(x);
    // Estimate: exponent (380 - e) / 2; an even exponent indexes 1.f (top 8 fraction bits, upper
    // half of the table), an odd one 0.1f (top 7 fraction bits, lower half).
    const __m256i e = _mm256_srli_epi32(u, 23);
    const __m256i odd = _mm256_and_si256(e, detail::constant(detail::kConstants.one));
    const __m256i top8 =
        _mm256_and_si256(_mm256_srli_epi32(u, 15), detail::constant(detail::kConstants.byte));
    const __m256i index = _mm256_add_epi32(
        _mm256_srlv_epi32(top8, odd),
        _mm256_slli_epi32(_mm256_xor_si256(odd, detail::constant(detail::kConstants.one)), 7));
    const __m256i exponent = _mm256_slli_epi32(
        _mm256_srli_epi32(_mm256_sub_epi32(detail::constant(detail::kConstants.rsqrt_bias), e), 1),
        23);
    const __m256i fraction =
        _mm256_slli_epi32(detail::table_byte(sp::detail::kRsqrtEstimate.data(), index), 15);
    __m256 r = _mm256_castsi256_ps(_mm256_or_si256(exponent, fraction));
    // Three steps r <- r * (3 - x*r*r)/2 as r * (1.5 - (x/2)*(r*r)), the inner expression rounded
    // once; halving a moderate x is exact.
    const __m256 half_x = _mm256_mul_ps(x, _mm256_set1_ps(0.5f));
    const __m256 three_halves = _mm256_set1_ps(1.5f);
    for (int i = 0; i < 3; ++i)
        r = _mm256_mul_ps(r, _mm256_fnmadd_ps(half_x, _mm256_mul_ps(r, r), three_halves));
    return r;
}
// 1/sqrt(x) per lane, as sp::rsqrt.
LN_FN F32 rsqrt(F32 x) {
    if (!detail::all_moderate(_mm256_castps_si256(x)))
        return detail::lane_by_lane<sp::rsqrt>(x);  // negatives too
    return rsqrt_moderate(x);
}

// sqrt(x) per lane, as sp::sqrt.
LN_FN F32 sqrt(F32 x) { return recip(rsqrt(x)); }
// sp::sqrt of each lane, +0 for zero lanes, without sending the whole step to the lane-by-lane
// path of the square root.
LN_FN F32 sqrt_or_zero(F32 x) {
    const __m256 zero = _mm256_cmp_ps(x, _mm256_setzero_ps(), _CMP_EQ_OQ);
    return _mm256_andnot_ps(zero, sqrt(_mm256_blendv_ps(x, _mm256_set1_ps(1.0f), zero)));
}
LN_FN F32 fadd(F32 a, F32 b) { return _mm256_add_ps(a, b); }
LN_FN F32 fsub(F32 a, F32 b) { return _mm256_sub_ps(a, b); }

// Lane indices k, k + 1, ...
LN_FN I32 iota(int32_t k) {
    return _mm256_add_epi32(_mm256_set1_epi32(k), _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7));
}

// The entries of a table at the lanes' indices: int32 entries, and int16 entries sign-extended
// (the int16 look-up reads the entry after each one too, which must exist).
LN_FN I32 lookup(const int32_t *table, I32 idx) {
    return _mm256_i32gather_epi32(reinterpret_cast<const int *>(table), idx, 4);
}
LN_FN I32 lookup(const int16_t *table, I32 idx) {
    const I32 pair = _mm256_i32gather_epi32(reinterpret_cast<const int *>(table), idx, 2);
    return _mm256_srai_epi32(_mm256_slli_epi32(pair, 16), 16);
}

// ---- int16 lanes (twice as many per register) ----

using I16 = __m256i;
inline constexpr int kLanes16 = 16;
LN_FN I16 load_i16(const int16_t *p) {
    return _mm256_loadu_si256(reinterpret_cast<const I16 *>(p));
}
LN_FN I16 dup_i16(int16_t v) { return _mm256_set1_epi16(v); }
LN_FN I16 min_i16(I16 a, I16 b) { return _mm256_min_epi16(a, b); }
LN_FN int16_t min_lanes_i16(I16 m) {
    __m128i h = _mm_min_epi16(_mm256_castsi256_si128(m), _mm256_extracti128_si256(m, 1));
    h = _mm_min_epi16(h, _mm_shuffle_epi32(h, 0x4E));
    h = _mm_min_epi16(h, _mm_shuffle_epi32(h, 0xB1));
    h = _mm_min_epi16(h, _mm_srli_epi32(h, 16));
    return static_cast<int16_t>(_mm_cvtsi128_si32(h));
}

LN_FN I16 sub_sat_i16(I16 a, I16 b) { return _mm256_subs_epi16(a, b); }
LN_FN void store_i16(int16_t *p, I16 v) { _mm256_storeu_si256(reinterpret_cast<I16 *>(p), v); }

// ---- Sums of int32 lanes in 64 bits ----

using Acc64 = __m256i;
LN_FN Acc64 acc64_zero() { return _mm256_setzero_si256(); }
LN_FN Acc64 acc64_add(Acc64 acc, I32 v) {
    acc = _mm256_add_epi64(acc, _mm256_cvtepi32_epi64(_mm256_castsi256_si128(v)));
    return _mm256_add_epi64(acc, _mm256_cvtepi32_epi64(_mm256_extracti128_si256(v, 1)));
}
LN_FN int64_t acc64_total(Acc64 acc) {
    alignas(32) int64_t lane[4];
    _mm256_store_si256(reinterpret_cast<__m256i *>(lane), acc);
    return lane[0] + lane[1] + lane[2] + lane[3];
}

// ---- 64-bit values ----

// Exact products of the lanes of a and b.
LN_FN W64 mul_wide(I32 a, I32 b) {
    return {_mm256_mul_epi32(a, b),
            _mm256_mul_epi32(_mm256_srli_epi64(a, 32), _mm256_srli_epi64(b, 32))};
}
// Wrapping sum and difference (for operands whose exact result fits).
LN_FN W64 add64(W64 x, W64 y) { return {_mm256_add_epi64(x.a, y.a), _mm256_add_epi64(x.b, y.b)}; }
LN_FN W64 sub64(W64 x, W64 y) { return {_mm256_sub_epi64(x.a, y.a), _mm256_sub_epi64(x.b, y.b)}; }

namespace detail {
LN_FN __m256i select64(__m256i r, __m256i b, __m256i mask) {
    return _mm256_castpd_si256(_mm256_blendv_pd(_mm256_castsi256_pd(r), _mm256_castsi256_pd(b),
                                                _mm256_castsi256_pd(mask)));
}
LN_FN __m256i sat_bound64(__m256i a) {
    const __m256i neg = _mm256_cmpgt_epi64(_mm256_setzero_si256(), a);
    return _mm256_xor_si256(neg, _mm256_set1_epi64x(INT64_MAX));
}
LN_FN __m256i sat_add64(__m256i a, __m256i b) {
    const __m256i r = _mm256_add_epi64(a, b);
    const __m256i ovf = _mm256_and_si256(_mm256_xor_si256(a, r), _mm256_xor_si256(b, r));
    return select64(r, sat_bound64(a), ovf);
}
LN_FN __m256i sat_sub64(__m256i a, __m256i b) {
    const __m256i r = _mm256_sub_epi64(a, b);
    const __m256i ovf = _mm256_and_si256(_mm256_xor_si256(a, b), _mm256_xor_si256(a, r));
    return select64(r, sat_bound64(a), ovf);
}
// fx::rnd(v, k) of each 64-bit lane for k in 1..32, the int32 result in the even 32-bit lanes.
// rnd is monotonic, so v is first clamped to the range whose results do not saturate,
// [-2^(31+k) - 2^(k-1), 2^(31+k) - 2^(k-1) - 1] (no lower bound for k = 32); then
// v + 2^(k-1) + 2^(31+k) lies in [0, 2^(32+k)) as an unsigned number, its logical shift by k in
// [0, 2^32), and flipping bit 31 of the low half subtracts the 2^31 again.
template <int K>
LN_FN __m256i rnd64(__m256i v) {
    const int64_t half = int64_t{1} << (K - 1);
    const uint64_t top = uint64_t{1} << (31 + K);
    const __m256i hi =
        _mm256_set1_epi64x(static_cast<int64_t>(top - static_cast<uint64_t>(half) - 1));
    v = select64(v, hi, _mm256_cmpgt_epi64(v, hi));
    if constexpr (K < 32) {
        const __m256i lo =
            _mm256_set1_epi64x(static_cast<int64_t>(0 - top - static_cast<uint64_t>(half)));
        v = select64(v, lo, _mm256_cmpgt_epi64(lo, v));
    }
    const __m256i bias =
        _mm256_set1_epi64x(static_cast<int64_t>(top + static_cast<uint64_t>(half)));
    const __m256i u = _mm256_srli_epi64(_mm256_add_epi64(v, bias), K);
    return _mm256_xor_si256(u, _mm256_set1_epi64x(INT32_MIN & 0xFFFFFFFFll));
}
// detail::rnd64 with the count k in cnt and its bounds and bias precomputed.
LN_FN __m256i rnd64_var(__m256i x, __m256i hi, __m256i lo, __m256i bias, __m128i cnt, bool low) {
    x = select64(x, hi, _mm256_cmpgt_epi64(x, hi));
    if (low) x = select64(x, lo, _mm256_cmpgt_epi64(lo, x));
    const __m256i u = _mm256_srl_epi64(_mm256_add_epi64(x, bias), cnt);
    return _mm256_xor_si256(u, _mm256_set1_epi64x(INT32_MIN & 0xFFFFFFFFll));
}
// Even lanes from the low halves of a's 64-bit lanes, odd lanes from those of b.
LN_FN I32 join_even_odd(__m256i a, __m256i b) {
    return _mm256_blend_epi32(a, _mm256_slli_epi64(b, 32), 0xAA);
}
}  // namespace detail

// fx::sat_add64 / fx::sat_sub64.
LN_FN W64 sat_add64(W64 x, W64 y) {
    return {detail::sat_add64(x.a, y.a), detail::sat_add64(x.b, y.b)};
}
LN_FN W64 sat_sub64(W64 x, W64 y) {
    return {detail::sat_sub64(x.a, y.a), detail::sat_sub64(x.b, y.b)};
}

// fx::rnd(v, K) of each value for K in 1..32, saturated to int32, back in lane order.
template <int K>
LN_FN I32 rnd_narrow(W64 v) {
    return detail::join_even_odd(detail::rnd64<K>(v.a), detail::rnd64<K>(v.b));
}

// fx::rnd(p, k) saturated to int32 for k in 1..62 known at run time, for |p| <= 2^46. Up to 32
// the clamped rounding of detail::rnd64; from 33 on the floor of p / 2^(k-1) fits in 15 bits: it
// is taken exactly from the non-negative p + 2^62 by a logical shift, and rounded in 32 bits.
LN_FN I32 rnd_narrow_var(W64 v, int k) {
    if (k <= 32) {
        const int64_t half = int64_t{1} << (k - 1);
        const uint64_t top = uint64_t{1} << (31 + k);
        const __m256i hi =
            _mm256_set1_epi64x(static_cast<int64_t>(top - static_cast<uint64_t>(half) - 1));
        const __m256i lo =
            _mm256_set1_epi64x(static_cast<int64_t>(0 - top - static_cast<uint64_t>(half)));
        const __m256i bias =
            _mm256_set1_epi64x(static_cast<int64_t>(top + static_cast<uint64_t>(half)));
        const __m128i cnt = _mm_cvtsi32_si128(k);
        return detail::join_even_odd(detail::rnd64_var(v.a, hi, lo, bias, cnt, k < 32),
                                     detail::rnd64_var(v.b, hi, lo, bias, cnt, k < 32));
    }
    const __m256i bias = _mm256_set1_epi64x(int64_t{1} << 62);
    const __m256i unbias = _mm256_set1_epi64x(int64_t{1} << (63 - k));
    const __m128i s = _mm_cvtsi32_si128(k - 1);
    const __m256i qa = _mm256_sub_epi64(_mm256_srl_epi64(_mm256_add_epi64(v.a, bias), s), unbias);
    const __m256i qb = _mm256_sub_epi64(_mm256_srl_epi64(_mm256_add_epi64(v.b, bias), s), unbias);
    return _mm256_srai_epi32(_mm256_add_epi32(detail::join_even_odd(qa, qb), _mm256_set1_epi32(1)),
                             1);
}

// fx::rnd(fx::shift_sat64(p, h), 32) for h >= 0 where the exact p * 2^h lies in
// [-2^63 + 2^32, 2^63] (the scaled sums of two products of int32 parts by their headroom sums).
// Only 2^63 itself would saturate, to 2^63 - 1, which rounds to the same 2^31 - 1. The lanes
// compute p * 2^h modulo 2^64; the high half of it + 2^31 is then the result, except that 2^31
// wraps to -2^31, a value no true result rounds to, so it is saturated at the end.
LN_FN I32 scale_rnd32(W64 p, I32 h) {
    const __m256i low_half = _mm256_set1_epi64x(0xFFFFFFFFll);
    const __m256i bias = _mm256_set1_epi64x(int64_t{1} << 31);
    const __m256i ta = _mm256_sllv_epi64(p.a, _mm256_and_si256(h, low_half));
    const __m256i tb = _mm256_sllv_epi64(p.b, _mm256_srli_epi64(h, 32));
    const I32 r = _mm256_blend_epi32(_mm256_srli_epi64(_mm256_add_epi64(ta, bias), 32),
                                     _mm256_add_epi64(tb, bias), 0xAA);
    return _mm256_xor_si256(r, _mm256_cmpeq_epi32(r, _mm256_set1_epi32(INT32_MIN)));
}

// fx::rnd(x * f, 15) for factors f in 0..32767: the product has at most 47 bits and the result
// fits in int32, so the low half of (product + 2^14) >> 15 is the result.
LN_FN I32 mul_rnd15(I32 x, I32 f) {
    const W64 p = mul_wide(x, f);
    const __m256i half = _mm256_set1_epi64x(1 << 14);
    const __m256i even = _mm256_srli_epi64(_mm256_add_epi64(p.a, half), 15);
    const __m256i odd = _mm256_slli_epi64(_mm256_add_epi64(p.b, half), 17);
    return _mm256_blend_epi32(even, odd, 0xAA);
}

// fx::Mpy_32_16_opt2 for int16 factors f: bits 16..47 of the exact product.
LN_FN I32 mpy_32_16(I32 x, I32 f) {
    const W64 p = mul_wide(x, f);
    return _mm256_blend_epi32(_mm256_srli_epi64(p.a, 16), _mm256_slli_epi64(p.b, 16), 0xAA);
}

// ---- Complex values in the back end's own word order ----

// kLanes bins in two registers of interleaved words as they lie in memory (bins 0-3 in w[0],
// 4-7 in w[1]): loads and stores do not reorder them, and the 64-bit products of the re parts
// come from the even lanes, those of the im parts from the odd ones. Steps that treat every word
// alike take w[0] and w[1] one by one; steps that pair a bin's parts are below.
struct Cplx {
    I32 w[2];
};
struct CplxMask {
    Mask w[2];
};
LN_FN Cplx load_cplx(const int32_t *p) { return {{load(p), load(p + kLanes)}}; }
LN_FN void store_cplx(int32_t *p, Cplx c) {
    store(p, c.w[0]);
    store(p + kLanes, c.w[1]);
}
// int16 words in the same order, widened; and their low 16 bits back (masked to 16 bits, the
// unsigned saturating pack keeps them; the pack interleaves 64-bit groups, the permute restores
// their order).
LN_FN Cplx load16_cplx(const int16_t *p) { return {{load16(p), load16(p + kLanes)}}; }
LN_FN void store16_cplx(int16_t *p, Cplx c) {
    const I32 low = _mm256_set1_epi32(0xFFFF);
    const I32 packed =
        _mm256_packus_epi32(_mm256_and_si256(c.w[0], low), _mm256_and_si256(c.w[1], low));
    _mm256_storeu_si256(reinterpret_cast<I32 *>(p), _mm256_permute4x64_epi64(packed, 0xD8));
}
// Set in the words of the bins from index first (0..kLanes) of a step on.
LN_FN CplxMask bins_from(int first) {
    const I32 bin = _mm256_setr_epi32(0, 0, 1, 1, 2, 2, 3, 3);
    const I32 f = _mm256_set1_epi32(first - 1);
    return {{_mm256_cmpgt_epi32(bin, f),
             _mm256_cmpgt_epi32(_mm256_add_epi32(bin, _mm256_set1_epi32(4)), f)}};
}
// The words of a where m is set, of b elsewhere.
LN_FN Cplx select(CplxMask m, Cplx a, Cplx b) {
    return {
        {_mm256_blendv_epi8(b.w[0], a.w[0], m.w[0]), _mm256_blendv_epi8(b.w[1], a.w[1], m.w[1])}};
}
// The conjugate: im parts (odd lanes) negated, -2^31 staying -2^31 (sp::neg_wrap).
LN_FN Cplx conj(Cplx c) {
    const I32 sign = _mm256_setr_epi32(1, -1, 1, -1, 1, -1, 1, -1);
    return {{_mm256_sign_epi32(c.w[0], sign), _mm256_sign_epi32(c.w[1], sign)}};
}
// Per bin: re <- min(ha.re + hb.re, ha.im + hb.im), im <- min(ha.re + hb.im, ha.im + hb.re) (the
// headroom sums of sp::conj_mult_q): the sums with hb as it is and with its parts swapped, the
// even words of both brought beside each other, and the odd words.
LN_FN Cplx cross_min_sums(Cplx ha, Cplx hb) {
    Cplx r;
    for (int k = 0; k < 2; ++k) {
        const I32 same = _mm256_add_epi32(ha.w[k], hb.w[k]);
        const I32 swapped = _mm256_add_epi32(ha.w[k], _mm256_shuffle_epi32(hb.w[k], 0xB1));
        const I32 even = _mm256_blend_epi32(same, _mm256_slli_epi64(swapped, 32), 0xAA);
        const I32 odd = _mm256_blend_epi32(_mm256_srli_epi64(same, 32), swapped, 0xAA);
        r.w[k] = _mm256_min_epi32(even, odd);
    }
    return r;
}

// sp::cmul of each bin as 64-bit values: re[k] and im[k] those of the bins of w[k]. re = ar br -
// ai bi exactly (it lies in [-2^63 + 2^31, 2^63 - 2^31]); im = ar bi + ai br modulo 2^64, which
// is exact except for 2^63 (all four parts -2^31), held as -2^63, a value no other sum reaches
// (they lie in [-2^63 + 2^32, 2^63 - 2^31]). The narrowing steps below read it as 2^63.
struct CplxWide {
    __m256i re[2];
    __m256i im[2];
};
LN_FN CplxWide cmul_wide(Cplx a, Cplx b) {
    CplxWide p;
    for (int k = 0; k < 2; ++k) {
        const __m256i ai = _mm256_srli_epi64(a.w[k], 32);
        const __m256i bi = _mm256_srli_epi64(b.w[k], 32);
        p.re[k] = _mm256_sub_epi64(_mm256_mul_epi32(a.w[k], b.w[k]), _mm256_mul_epi32(ai, bi));
        p.im[k] = _mm256_add_epi64(_mm256_mul_epi32(a.w[k], bi), _mm256_mul_epi32(ai, b.w[k]));
    }
    return p;
}
// fx::rnd(part, K) saturated to int32, for K in 1..31. u = part + 2^(K-1) does not overflow
// (im = 2^63 aside); the result is bits K..K+31 of u and fits where bits K-1..31 of u's high half
// h are all equal, i.e. (h ^ (h >> 31)) < 2^(K-1); elsewhere it saturates toward the sign of h.
// For im, h = -2^31 only comes from the wrapped 2^63, so the sign is read from h - 1 there.
// Saturation is rare: the bounds are put in only when some word needs them.
template <int K>
LN_FN Cplx rnd_narrow(CplxWide p) {
    static_assert(K >= 1 && K <= 31);
    const __m256i half = _mm256_set1_epi64x(int64_t{1} << (K - 1));
    const I32 limit = _mm256_set1_epi32((1 << (K - 1)) - 1);
    Cplx r, h, over;
    for (int k = 0; k < 2; ++k) {
        const __m256i ur = _mm256_add_epi64(p.re[k], half);
        const __m256i ui = _mm256_add_epi64(p.im[k], half);
        r.w[k] = _mm256_blend_epi32(_mm256_srli_epi64(ur, K), _mm256_slli_epi64(ui, 32 - K), 0xAA);
        h.w[k] = _mm256_blend_epi32(_mm256_srli_epi64(ur, 32), ui, 0xAA);
        over.w[k] = _mm256_cmpgt_epi32(mag(h.w[k]), limit);
    }
    const I32 any = _mm256_or_si256(over.w[0], over.w[1]);
    if (!_mm256_testz_si256(any, any)) {
        const I32 im_lanes = _mm256_setr_epi32(0, 1, 0, 1, 0, 1, 0, 1);
        for (int k = 0; k < 2; ++k) {
            const I32 bound = detail::sat_bound(_mm256_sub_epi32(h.w[k], im_lanes));
            r.w[k] = _mm256_blendv_epi8(r.w[k], bound, over.w[k]);
        }
    }
    return r;
}
// fx::rnd(fx::shift_sat64(part, h), 32) with the count h >= 0 of each word (sp::conj_mult_q), as
// ln::scale_rnd32; the wrapped im 2^63 only comes with h = 0 and gives -2^31, saturated there.
LN_FN Cplx scale_rnd32(CplxWide p, Cplx h) {
    const __m256i low_half = _mm256_set1_epi64x(0xFFFFFFFFll);
    const __m256i bias = _mm256_set1_epi64x(int64_t{1} << 31);
    Cplx r;
    for (int k = 0; k < 2; ++k) {
        const __m256i tr = _mm256_sllv_epi64(p.re[k], _mm256_and_si256(h.w[k], low_half));
        const __m256i ti = _mm256_sllv_epi64(p.im[k], _mm256_srli_epi64(h.w[k], 32));
        const I32 v = _mm256_blend_epi32(_mm256_srli_epi64(_mm256_add_epi64(tr, bias), 32),
                                         _mm256_add_epi64(ti, bias), 0xAA);
        r.w[k] = _mm256_xor_si256(v, _mm256_cmpeq_epi32(v, _mm256_set1_epi32(INT32_MIN)));
    }
    return r;
}

// ---- Float to int of lanes that are not NaN ----

// fx::f2i where no lane is NaN (every step of finite products and sums of converted integers):
// lanes at or above 2^31 become 2^31 - 1, the conversion gives the rest.
LN_FN I32 f2i_not_nan(F32 f) {
    const I32 r = _mm256_cvttps_epi32(f);
    const I32 big =
        _mm256_castps_si256(_mm256_cmp_ps(f, _mm256_set1_ps(2147483648.0f), _CMP_GE_OQ));
    return _mm256_xor_si256(r, big);
}

// ---- Rounded high half of a product ----

// fx::rnd(a * b, 32) per lane. |a b| <= 2^62, so the result lies in [-2^30, 2^30] and is the
// high half of a b + 2^31.
LN_FN I32 mul_rnd32(I32 a, I32 b) {
    const W64 p = mul_wide(a, b);
    const __m256i half = _mm256_set1_epi64x(int64_t{1} << 31);
    return _mm256_blend_epi32(_mm256_srli_epi64(_mm256_add_epi64(p.a, half), 32),
                              _mm256_add_epi64(p.b, half), 0xAA);
}
// ---- Suppressor: steps for operands known to lie in a narrower range ----

// fx::hr of non-negative lanes.
LN_FN I32 hr_nonneg(I32 x) { return hr_of_mag(x); }
// fx::f2i of lanes inside (-2^31, 2^31): the truncation alone.
LN_FN I32 f2i_in_range(F32 f) { return _mm256_cvttps_epi32(f); }
// fx::shift_sat of non-negative lanes with a signed count per lane.
LN_FN I32 shift_sat_nonneg(I32 x, I32 c) {
    const I32 left = _mm256_sllv_epi32(x, c);
    const I32 right = _mm256_srav_epi32(x, _mm256_sub_epi32(_mm256_setzero_si256(), c));
    const I32 over = _mm256_andnot_si256(_mm256_cmpeq_epi32(x, _mm256_setzero_si256()),
                                         _mm256_cmpgt_epi32(c, hr_of_mag(x)));
    const I32 l = detail::select(left, _mm256_set1_epi32(INT32_MAX), over);
    return detail::select(right, l, _mm256_cmpgt_epi32(c, _mm256_setzero_si256()));
}
// sp::sqrt of positive lanes whose exponent field lies in 2..250 (their reciprocal square roots
// are moderate too).
LN_FN F32 sqrt_moderate(F32 x) { return recip_moderate(rsqrt_moderate(x)); }
// sqrt_or_zero of lanes that are zero or positive with an exponent field in 2..250.
LN_FN F32 sqrt_or_zero_moderate(F32 x) {
    const __m256 zero = _mm256_cmp_ps(x, _mm256_setzero_ps(), _CMP_EQ_OQ);
    return _mm256_andnot_ps(zero, sqrt_moderate(_mm256_blendv_ps(x, _mm256_set1_ps(1.0f), zero)));
}
// Comparisons of int16 lanes, and counts of the lanes where a mask is set.
using Mask16 = __m256i;
LN_FN Mask16 gt_i16(I16 a, I16 b) { return _mm256_cmpgt_epi16(a, b); }
LN_FN Mask16 eq_i16(I16 a, I16 b) { return _mm256_cmpeq_epi16(a, b); }
LN_FN Mask16 mask16_and(Mask16 a, Mask16 b) { return _mm256_and_si256(a, b); }
// acc + 1, and acc - 1, in the lanes where m is set.
LN_FN I16 count_set_i16(I16 acc, Mask16 m) { return _mm256_sub_epi16(acc, m); }
LN_FN I16 discount_i16(I16 acc, Mask16 m) { return _mm256_add_epi16(acc, m); }

}  // namespace ln

#undef LN_FN
