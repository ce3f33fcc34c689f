// Block-floating-point helpers shared by the spectral kernels and both stages: headroom, rounding
// shifts of 64-bit products, truncating / saturating / wrapping shifts by a signed count,
// saturating sums and the saturating float-to-int conversion. A mantissa m with Q value q stands
// for m / 2^q. Every helper is defined for every operand (no undefined behaviour).
#pragma once

#include <cstdint>
#include <limits>

#if defined(__aarch64__)
#include <arm_neon.h>
#elif defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace fx {

inline constexpr int32_t kMax32 = std::numeric_limits<int32_t>::max();
inline constexpr int32_t kMin32 = std::numeric_limits<int32_t>::min();
inline constexpr int64_t kMax64 = std::numeric_limits<int64_t>::max();
inline constexpr int64_t kMin64 = std::numeric_limits<int64_t>::min();

// Bits after the sign bit that equal it, 0..31; hr(0) = hr(-1) = 31.
inline constexpr int hr(int32_t x) { return __builtin_clrsb(x); }

inline constexpr int32_t sat32(int64_t v) {
    return v > kMax32 ? kMax32 : (v < kMin32 ? kMin32 : static_cast<int32_t>(v));
}

inline constexpr int16_t sat16(int32_t v) {
    return v > 32767 ? int16_t{32767} : (v < -32768 ? int16_t{-32768} : static_cast<int16_t>(v));
}

// The overflow flag of the 32-bit sum decides; the saturated value has the sign of a.
inline constexpr int32_t sat_add(int32_t a, int32_t b) {
    int32_t r = 0;
    if (__builtin_add_overflow(a, b, &r)) return a < 0 ? kMin32 : kMax32;
    return r;
}

inline constexpr int32_t sat_sub(int32_t a, int32_t b) {
    int32_t r = 0;
    if (__builtin_sub_overflow(a, b, &r)) return a < 0 ? kMin32 : kMax32;
    return r;
}

// 64-bit sum clamped to the 64-bit range.
inline constexpr int64_t sat_add64(int64_t a, int64_t b) {
    int64_t r = 0;
    if (__builtin_add_overflow(a, b, &r)) return a < 0 ? kMin64 : kMax64;
    return r;
}

inline constexpr int64_t sat_sub64(int64_t a, int64_t b) {
    int64_t r = 0;
    if (__builtin_sub_overflow(a, b, &r)) return a < 0 ? kMin64 : kMax64;
    return r;
}

// rnd_k(v) = (v + 2^(k-1)) >> k without overflow, saturated to int32; k in 1..63.
inline constexpr int32_t rnd(int64_t v, int k) {
    // From k = 2 on, v >> (k - 1) leaves room for the increment: ceil of its half is the same sum.
    if (k >= 2) return sat32(((v >> (k - 1)) + 1) >> 1);
    return sat32((v >> k) + ((v >> (k - 1)) & 1));
}

// Arithmetic right shift that drops the low bits; counts of 32 or more give the sign fill.
inline constexpr int32_t shr_trunc(int32_t x, int c) {
    return c >= 32 ? (x < 0 ? -1 : 0) : (x >> c);
}

inline constexpr int64_t shr_trunc64(int64_t x, int c) {
    return c >= 64 ? (x < 0 ? -1 : 0) : (x >> c);
}

// Shift by a signed count: c > 0 left keeping the low 32 bits (0 from 32 on), c < 0 truncating
// right shift by -c.
inline constexpr int32_t shift_wrap(int32_t x, int c) {
    if (c >= 0) return c >= 32 ? 0 : static_cast<int32_t>(static_cast<uint32_t>(x) << c);
    return shr_trunc(x, -c);
}

// Shift by a signed count: c > 0 left with saturation to the int32 range, c < 0 truncating right.
inline constexpr int32_t shift_sat(int32_t x, int c) {
    if (c <= 0) return shr_trunc(x, -c);
    if (x == 0) return 0;
    if (c > hr(x)) return x < 0 ? kMin32 : kMax32;
    return static_cast<int32_t>(static_cast<uint32_t>(x) << c);
}

// The same on 64-bit values, saturating to the int64 range.
inline constexpr int64_t shift_sat64(int64_t x, int c) {
    if (c <= 0) return shr_trunc64(x, -c);
    if (x == 0) return 0;
    if (c > __builtin_clrsbll(x)) return x < 0 ? kMin64 : kMax64;
    return static_cast<int64_t>(static_cast<uint64_t>(x) << c);
}

// Single precision to int32: truncation toward zero, saturating; NaN gives 0. The Arm conversion
// instruction has exactly these semantics; the x86 one returns -2^31 for every operand out of
// range, which leaves only that result to check.
inline int32_t f2i(float f) {
#if defined(__aarch64__)
    return vcvts_s32_f32(f);
#else
#if defined(__SSE2__)
    const int32_t r = _mm_cvttss_si32(_mm_set_ss(f));
    if (r != kMin32) return r;
#endif
    if (!(f == f)) return 0;
    if (f >= 2147483648.0f) return kMax32;
    if (f <= -2147483648.0f) return kMin32;
    return static_cast<int32_t>(f);
#endif
}

inline float i2f(int32_t x) { return static_cast<float>(x); }

}  // namespace fx
