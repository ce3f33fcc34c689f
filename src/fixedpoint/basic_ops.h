// Saturating 16/32-bit scalar operators (add, multiply, shift, normalise, divide) as inline
// functions; the exported Sonvel_aec_* operators call these. Every operator is defined for every
// operand: no undefined shift, overflow or negation, no flag, no error exit.
#pragma once

#include <cstdint>

#include "fixedpoint/block_float.h"

namespace fx {

// Sign fill: 0 for a non-negative value, -1 for a negative one.
inline constexpr int16_t sign_fill16(int16_t a) { return a < 0 ? int16_t{-1} : int16_t{0}; }
inline constexpr int32_t sign_fill32(int32_t a) { return a < 0 ? -1 : 0; }

// ---- Arithmetic ---------------------------------------------------------------------------------

inline constexpr int16_t add(int16_t a, int16_t b) { return sat16(int32_t{a} + b); }
inline constexpr int16_t sub(int16_t a, int16_t b) { return sat16(int32_t{a} - b); }

inline constexpr int16_t abs_s(int16_t a) {
    return a == -32768 ? int16_t{32767} : static_cast<int16_t>(a < 0 ? -a : a);
}

inline constexpr int16_t negate(int16_t a) {
    return a == -32768 ? int16_t{32767} : static_cast<int16_t>(-a);
}

// (a * b) >> 15, saturated: only -32768 * -32768 overflows.
inline constexpr int16_t mult(int16_t a, int16_t b) { return sat16((int32_t{a} * b) >> 15); }

// 2 * a * b; the one overflowing product (-32768 * -32768) gives 0x7FFFFFFF.
inline constexpr int32_t L_mult(int16_t a, int16_t b) {
    const int32_t p = int32_t{a} * b;
    return p == 0x40000000 ? kMax32 : p * 2;
}

// a * b exactly, neither doubled nor saturated.
inline constexpr int32_t L_mpy(int16_t a, int16_t b) { return int32_t{a} * b; }

inline constexpr int32_t L_add(int32_t a, int32_t b) { return sat_add(a, b); }
inline constexpr int32_t L_sub(int32_t a, int32_t b) { return sat_sub(a, b); }

inline constexpr int32_t L_mac(int32_t acc, int16_t a, int16_t b) {
    return L_add(acc, L_mult(a, b));
}
inline constexpr int32_t L_msu(int32_t acc, int16_t a, int16_t b) {
    return L_sub(acc, L_mult(a, b));
}

inline constexpr int32_t L_negate(int32_t a) { return a == kMin32 ? kMax32 : -a; }
inline constexpr int32_t L_abs(int32_t a) { return a == kMin32 ? kMax32 : (a < 0 ? -a : a); }

// ---- Conversions --------------------------------------------------------------------------------

inline constexpr int16_t extract_h(int32_t a) { return static_cast<int16_t>(a >> 16); }
inline constexpr int16_t extract_l(int32_t a) {
    return static_cast<int16_t>(static_cast<uint16_t>(a));
}

// Upper half of a + 0x8000, saturated: anything above 0x7FFF7FFF gives 32767.
inline constexpr int16_t round(int32_t a) { return extract_h(L_add(a, 0x8000)); }

inline constexpr int32_t L_deposit_h(int16_t a) { return int32_t{a} * 65536; }
inline constexpr int32_t L_deposit_l(int16_t a) { return a; }

inline constexpr int16_t sature(int32_t a) { return sat16(a); }
inline constexpr int32_t sature_L(int64_t a) { return sat32(a); }

// ---- 16-bit shifts ------------------------------------------------------------------------------
// The counts are widened to int so that negating -32768 stays exact.

inline constexpr int16_t shr_count(int16_t a, int n);

// Left shift by n >= 0 with saturation; negative n shifts right.
inline constexpr int16_t shl_count(int16_t a, int n) {
    if (n < 0) return shr_count(a, -n);
    if (a == 0) return 0;
    if (n > 15) return a > 0 ? int16_t{32767} : int16_t{-32768};
    return sat16(a * (int32_t{1} << n));
}

// Arithmetic right shift by n >= 0 (15 or more gives the sign fill); negative n shifts left.
inline constexpr int16_t shr_count(int16_t a, int n) {
    if (n < 0) return shl_count(a, -n);
    if (n >= 15) return sign_fill16(a);
    return static_cast<int16_t>(a >> n);
}

inline constexpr int16_t shl(int16_t a, int16_t n) { return shl_count(a, n); }
inline constexpr int16_t shr(int16_t a, int16_t n) { return shr_count(a, n); }

// Right shift only: a negative count is taken modulo 32.
inline constexpr int16_t shr_opt2(int16_t a, int16_t n) {
    const int c = n < 0 ? (n & 31) : n;
    return c >= 15 ? sign_fill16(a) : static_cast<int16_t>(a >> c);
}

// ---- 32-bit shifts ------------------------------------------------------------------------------

// n > 0: doubling n times, stopping at 0x7FFFFFFF / -2^31 as soon as a doubling would overflow,
// which is exactly a left shift saturated to the int32 range. n <= 0: arithmetic right shift by
// -n, 31 or more giving the sign fill.
inline constexpr int32_t L_shl(int32_t a, int16_t n) {
    if (n <= 0) return shr_trunc(a, -int{n});
    return shift_sat(a, n);
}

inline constexpr int32_t L_shr(int32_t a, int16_t n) {
    if (n < 0) return shift_sat(a, -int{n});
    return shr_trunc(a, n);
}

inline constexpr int32_t L_shl_opt2(int32_t a, int16_t n) { return L_shl(a, n); }

// No saturation: the sign-extended a shifted left by n modulo 64 (n sign-extended), low 32 bits.
inline constexpr int32_t L_shl_opt(int32_t a, int16_t n) {
    const uint64_t v = static_cast<uint64_t>(int64_t{a}) << (static_cast<unsigned>(n) & 63u);
    return static_cast<int32_t>(static_cast<uint32_t>(v));
}

// No saturation, no left branch: right shift by min(n, 31), a negative n taken modulo 32.
inline constexpr int32_t L_shr_opt(int32_t a, int16_t n) {
    const int c = n < 0 ? (n & 31) : (n > 31 ? 31 : n);
    return a >> c;
}

// ---- Normalisation ------------------------------------------------------------------------------

// Left shifts that bring a 16-bit value to 0x4000 or above (its complement when negative);
// 0 gives 0, -1 gives 15.
inline constexpr int16_t norm_s(int16_t a) {
    if (a == 0) return 0;
    if (a == -1) return 15;
    const uint32_t x = static_cast<uint32_t>(a < 0 ? ~int32_t{a} : int32_t{a});
    return static_cast<int16_t>(__builtin_clz(x) - 17);
}

// Left shifts that normalise a 32-bit value; 0 gives 0, -1 gives 31.
inline constexpr int16_t norm_l(int32_t a) {
    return a == 0 ? int16_t{0} : static_cast<int16_t>(hr(a));
}

// As norm_l, but 0 gives 31.
inline constexpr int16_t norm_l_opt(int32_t a) { return static_cast<int16_t>(hr(a)); }

// ---- Division -----------------------------------------------------------------------------------

// num / den in Q15, truncated, for 0 < num < den; num == den gives 32767; zero, negative operands
// and num > den give 0. The 15-step restoring division never saturates for num < den, so it equals
// the truncated quotient num * 2^15 / den.
inline constexpr int16_t div_s(int16_t num, int16_t den) {
    if (num <= 0 || den <= 0 || num > den) return 0;
    if (num == den) return 32767;
    return static_cast<int16_t>((int32_t{num} << 15) / den);
}

}  // namespace fx
