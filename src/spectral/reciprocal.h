// Single-precision reciprocal, reciprocal square root and square root by estimate and refinement:
// an 8-bit table estimate (Arm FRECPE / FRSQRTE semantics) refined by three Newton-Raphson steps
// (FRECPS / FRSQRTS semantics, each step fused with a single rounding). Every single-precision
// quotient or square root of the library goes through these. On aarch64 the estimate and step use
// the native instructions; the portable definitions below give identical bits everywhere.
#pragma once

#include <array>
#include <bit>
#include <cmath>
#include <cstdint>

#if defined(__aarch64__)
#include <arm_neon.h>
#endif

namespace sp {

namespace detail {

// Estimate tables in the architecture's integer definition (built in reciprocal.cpp):
// kRecipEstimate[a - 256] for a = 256..511 and kRsqrtEstimate[a - 128] for a = 128..511, each the
// low 8 bits of the 9-bit estimate 256..511.
extern const std::array<uint8_t, 256> kRecipEstimate;
extern const std::array<uint8_t, 384> kRsqrtEstimate;

inline constexpr uint32_t kSign = 0x80000000u;
inline constexpr uint32_t kInf = 0x7F800000u;
inline constexpr uint32_t kQuietBit = 0x00400000u;
inline constexpr uint32_t kDefaultNaN = 0x7FC00000u;
inline constexpr uint64_t kFrac52 = (uint64_t{1} << 52) - 1;

inline uint32_t bits(float f) { return std::bit_cast<uint32_t>(f); }
inline float from_bits(uint32_t u) { return std::bit_cast<float>(u); }
inline bool is_nan(uint32_t u) { return (u & 0x7FFFFFFFu) > kInf; }
inline bool is_snan(uint32_t u) { return is_nan(u) && (u & kQuietBit) == 0; }
inline bool is_inf(uint32_t u) { return (u & 0x7FFFFFFFu) == kInf; }
inline bool is_zero(uint32_t u) { return (u & 0x7FFFFFFFu) == 0; }

// NaN operand handling of the two-operand steps: a signalling NaN first (first operand before the
// second), then a quiet one; the chosen NaN is returned quieted.
inline uint32_t pick_nan(uint32_t a, uint32_t b) {
    if (is_snan(a)) return a | kQuietBit;
    if (is_snan(b)) return b | kQuietBit;
    return (is_nan(a) ? a : b) | kQuietBit;
}

// a*b + c with a single rounding, as std::fma, without a library call where the target has no
// fused instruction: the product of two floats is exact in double, and when the double sum is exact
// too (checked by the two-sum error term) its conversion to float is the one rounding. Only sums
// that lose bits in double take the library path; a Newton step never does.
inline float fused_madd(float a, float b, float c) {
#if defined(__FP_FAST_FMAF)
    return std::fma(a, b, c);
#else
    const double p = static_cast<double>(a) * static_cast<double>(b);
    const double cd = static_cast<double>(c);
    const double s = p + cd;
    const double bv = s - p;
    const double err = (p - (s - bv)) + (cd - bv);
    if (err == 0.0) return static_cast<float>(s);
    return std::fma(a, b, c);
#endif
}
}  // namespace detail

namespace portable {

// 1/x to 8 bits. Zero gives a signed infinity, infinity a signed zero, |x| < 2^-128 overflows to
// a signed infinity; a NaN comes back quieted.
inline float recip_estimate(float x) {
    using namespace detail;
    const uint32_t u = bits(x);
    const uint32_t sign = u & kSign;
    if (is_nan(u)) return from_bits(u | kQuietBit);
    if (is_inf(u)) return from_bits(sign);
    if (is_zero(u) || (u & 0x7FFFFFFFu) < 0x00200000u) return from_bits(sign | kInf);

    int exp = static_cast<int>((u >> 23) & 0xFF);
    uint64_t frac = uint64_t{u & 0x7FFFFFu} << 29;  // fraction as 52 bits
    if (exp == 0) {                                 // denormal: normalise by one or two places
        if ((frac >> 51) == 0) {
            exp = -1;
            frac = (frac << 2) & kFrac52;
        } else {
            frac = (frac << 1) & kFrac52;
        }
    }
    const uint32_t scaled = static_cast<uint32_t>(frac >> 44) & 0xFF;  // 1.f in 256..511, less 256
    int result_exp = 253 - exp;
    uint64_t rfrac = uint64_t{kRecipEstimate[scaled]} << 44;
    if (result_exp == 0) {  // the result is denormal
        rfrac = (uint64_t{1} << 51) | (rfrac >> 1);
    } else if (result_exp == -1) {
        rfrac = (uint64_t{1} << 50) | (rfrac >> 2);
        result_exp = 0;
    }
    return from_bits(sign | (static_cast<uint32_t>(result_exp) << 23) |
                     static_cast<uint32_t>(rfrac >> 29));
}

// 1/sqrt(x) to 8 bits. Zero gives a signed infinity, +infinity gives +0, a negative operand the
// default NaN; a NaN comes back quieted.
inline float rsqrt_estimate(float x) {
    using namespace detail;
    const uint32_t u = bits(x);
    if (is_nan(u)) return from_bits(u | kQuietBit);
    if (is_zero(u)) return from_bits((u & kSign) | kInf);
    if (u & kSign) return from_bits(kDefaultNaN);
    if (is_inf(u)) return 0.0f;

    int exp = static_cast<int>((u >> 23) & 0xFF);
    uint64_t frac = uint64_t{u & 0x7FFFFFu} << 29;
    if (exp == 0) {  // denormal: normalise fully
        while ((frac >> 51) == 0) {
            frac <<= 1;
            --exp;
        }
        frac = (frac << 1) & kFrac52;
    }
    // Even exponent: 1.f in 256..511; odd exponent: 0.1f in 128..255 (an extra factor 2).
    const uint32_t scaled = (exp & 1) == 0 ? 256u | static_cast<uint32_t>(frac >> 44)
                                           : 128u | static_cast<uint32_t>(frac >> 45);
    const int result_exp = (380 - exp) / 2;
    return from_bits((static_cast<uint32_t>(result_exp) << 23) |
                     (uint32_t{kRsqrtEstimate[scaled - 128]} << 15));
}

// 2 - x*r with a single rounding; 0 times infinity gives exactly 2.
inline float recip_step(float x, float r) {
    using namespace detail;
    const uint32_t nx = bits(x) ^ kSign;  // the negated first operand
    const uint32_t ur = bits(r);
    if (is_nan(nx) || is_nan(ur)) return from_bits(pick_nan(nx, ur));
    if ((is_inf(nx) && is_zero(ur)) || (is_zero(nx) && is_inf(ur))) return 2.0f;
    return fused_madd(from_bits(nx), r, 2.0f);
}

// (3 - x*p) / 2 with a single rounding; 0 times infinity gives exactly 1.5.
inline float rsqrt_step(float x, float p) {
    using namespace detail;
    const uint32_t nx = bits(x) ^ kSign;
    const uint32_t up = bits(p);
    if (is_nan(nx) || is_nan(up)) return from_bits(pick_nan(nx, up));
    if ((is_inf(nx) && is_zero(up)) || (is_zero(nx) && is_inf(up))) return 1.5f;
    // 1.5 - (x/2)*p rounds the exact (3 - x*p)/2 once, provided the halving is exact. When neither
    // operand halves exactly both are below 2^-125, their product cannot affect 1.5.
    const float hx = from_bits(nx) * 0.5f;
    if (hx * 2.0f == from_bits(nx)) return fused_madd(hx, p, 1.5f);
    const float hp = p * 0.5f;
    if (hp * 2.0f == p) return fused_madd(from_bits(nx), hp, 1.5f);
    return 1.5f;
}

}  // namespace portable

#if defined(__aarch64__)
inline float recip_estimate(float x) { return vrecpes_f32(x); }
inline float rsqrt_estimate(float x) { return vrsqrtes_f32(x); }
inline float recip_step(float x, float r) { return vrecpss_f32(x, r); }
inline float rsqrt_step(float x, float p) { return vrsqrtss_f32(x, p); }
#else
inline float recip_estimate(float x) { return portable::recip_estimate(x); }
inline float rsqrt_estimate(float x) { return portable::rsqrt_estimate(x); }
inline float recip_step(float x, float r) { return portable::recip_step(x, r); }
inline float rsqrt_step(float x, float p) { return portable::rsqrt_step(x, p); }

// Without the native instructions, operands of a moderate exponent (field 2..250: no zero,
// denormal, infinity or NaN anywhere in the refinement) take a short path with the same bits:
// the estimate is a table look-up beside the exponent arithmetic, and each step is
// c + a*b in double rounded once to single. The step is exact in double there: a*b has at most 48
// significant bits, and its magnitude is within a few per cent of |c| / 2 (c = 2 for the
// reciprocal, 1.5 for the square root, whose halving of x is exact), so the sum spans at most 50
// bits; its conversion to single is the one rounding of the fused step.
namespace detail {

inline bool moderate_exponent(uint32_t u) { return ((u >> 23) & 0xFFu) - 2u <= 248u; }

inline float exact_step(float a, float b, double c) {
    return static_cast<float>(c + static_cast<double>(a) * static_cast<double>(b));
}

inline float recip_estimate_moderate(uint32_t u) {
    const uint32_t e = (u >> 23) & 0xFFu;
    return from_bits((u & kSign) | ((253u - e) << 23) |
                     (uint32_t{kRecipEstimate[(u >> 15) & 0xFFu]} << 15));
}

// Positive operands only.
inline float rsqrt_estimate_moderate(uint32_t u) {
    const uint32_t e = u >> 23;
    const uint32_t scaled = (e & 1u) == 0 ? 256u | ((u >> 15) & 0xFFu) : 128u | ((u >> 16) & 0x7Fu);
    return from_bits(((380u - e) / 2u) << 23 | (uint32_t{kRsqrtEstimate[scaled - 128u]} << 15));
}

}  // namespace detail
#endif

// 1/x: the estimate refined three times, r <- r * (2 - x*r).
inline float recip(float x) {
#if !defined(__aarch64__)
    if (detail::moderate_exponent(detail::bits(x))) {
        float r = detail::recip_estimate_moderate(detail::bits(x));
        for (int i = 0; i < 3; ++i) r = r * detail::exact_step(-x, r, 2.0);
        return r;
    }
#endif
    float r = recip_estimate(x);
    for (int i = 0; i < 3; ++i) {
        const float t = recip_step(x, r);
        r = r * t;
    }
    return r;
}

// 1/sqrt(x): the estimate refined three times, r <- r * (3 - x*r*r)/2.
inline float rsqrt(float x) {
#if !defined(__aarch64__)
    if (detail::moderate_exponent(detail::bits(x)) && x > 0.0f) {
        const float hx = -x * 0.5f;
        float r = detail::rsqrt_estimate_moderate(detail::bits(x));
        for (int i = 0; i < 3; ++i) r = r * detail::exact_step(hx, r * r, 1.5);
        return r;
    }
#endif
    float r = rsqrt_estimate(x);
    for (int i = 0; i < 3; ++i) {
        const float p = r * r;
        const float t = rsqrt_step(x, p);
        r = r * t;
    }
    return r;
}

// sqrt(x) as the reciprocal of the reciprocal square root; 0 gives 0.
inline float sqrt(float x) { return recip(rsqrt(x)); }

}  // namespace sp
