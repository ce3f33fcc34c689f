// Extended fixed-point operators as inline functions: double-precision (hi, lo) multiplies,
// single-multiply shortcuts of them, conditional-subtract division, 32-bit division, and the
// base-2 and natural logarithms. The exported Sonvel_aec_* extended operators call these.
#pragma once

#include <cstdint>

#include "fixedpoint/basic_ops.h"
#include "sonvel_aec_ops.h"

namespace fx {

// Low 32 bits of a 64-bit value (bits 0..31, two's complement).
inline constexpr int32_t low32(int64_t v) { return static_cast<int32_t>(static_cast<uint32_t>(v)); }

// ---- Double precision: L = hi * 2^16 + 2 * lo ---------------------------------------------------

inline constexpr void L_Extract(int32_t L, int16_t *hi, int16_t *lo) {
    *hi = extract_h(L);
    *lo = extract_l(L_msu(L_shr(L, 1), *hi, 16384));
}

inline constexpr int32_t L_Comp(int16_t hi, int16_t lo) { return L_mac(L_deposit_h(hi), lo, 1); }

// Q31 product of two double-precision values.
inline constexpr int32_t Mpy_32(int16_t hi1, int16_t lo1, int16_t hi2, int16_t lo2) {
    int32_t r = L_mult(hi1, hi2);
    r = L_mac(r, mult(hi1, lo2), 1);
    return L_mac(r, mult(lo1, hi2), 1);
}

// Q31 product of a double-precision value and a Q15 value.
inline constexpr int32_t Mpy_32_16(int16_t hi, int16_t lo, int16_t n) {
    return L_mac(L_mult(hi, n), mult(lo, n), 1);
}

// ---- Single-multiply forms ----------------------------------------------------------------------

// Q31 product truncated; only (-2^31)^2 = 2^62 overflows and gives 0x7FFFFFFF.
inline constexpr int32_t Mpy_32_opt(int32_t a, int32_t b) {
    const int64_t p = int64_t{a} * b;
    return p == (int64_t{1} << 62) ? kMax32 : low32(p >> 31);
}

// Low 32 bits of (a * n) >> 15 with bit 0 cleared; no saturation.
inline constexpr int32_t Mpy_32_16_opt(int32_t a, int16_t n) {
    return static_cast<int32_t>(static_cast<uint32_t>(low32((int64_t{a} * n) >> 15)) & ~1u);
}

// Low 32 bits of (a * n) >> 16; no rounding, no saturation.
inline constexpr int32_t Mpy_32_16_opt2(int32_t a, int16_t n) {
    return low32((int64_t{a} * n) >> 16);
}

// About a * b / 2^32 from the double-precision halves of a and b.
inline constexpr int32_t Mpy_32_opt2(int32_t a, int32_t b) {
    int16_t ha = 0, la = 0, hb = 0, lb = 0;
    L_Extract(a, &ha, &la);
    L_Extract(b, &hb, &lb);
    return L_add(L_add(L_mpy(ha, hb), mult(ha, lb)), mult(la, hb));
}

// About a * t / 2^16 with t the upper half of b.
inline constexpr int32_t smulwt(int32_t a, int32_t b) {
    const int16_t t = extract_h(b);
    int16_t ha = 0, la = 0;
    L_Extract(a, &ha, &la);
    return L_add(L_mpy(ha, t), mult(la, t));
}

inline constexpr int32_t smlabb(int16_t a, int16_t b, int32_t acc) {
    return L_add(L_mpy(a, b), acc);
}

// a + 2b and a - 2b, the doubling and the sum each saturated.
inline constexpr int32_t L_qdadd(int32_t a, int32_t b) { return L_add(a, L_shl(b, 1)); }
inline constexpr int32_t L_qdsub(int32_t a, int32_t b) { return L_sub(a, L_shl(b, 1)); }

// One conditional-subtract division step, wrapping: d = a - b; d >= 0 gives 2d + 1, else 2a.
inline constexpr int32_t subc(int32_t a, int32_t b) {
    const uint32_t d = static_cast<uint32_t>(a) - static_cast<uint32_t>(b);
    const uint32_t r = static_cast<int32_t>(d) >= 0 ? 2u * d + 1u : 2u * static_cast<uint32_t>(a);
    return static_cast<int32_t>(r);
}

// ---- Division -----------------------------------------------------------------------------------

// num / den in Q31 for 0 < num < den, den normalised: a Q14 estimate of 1/den, one Newton step
// to Q29, the product with num, times 4 with saturation.
inline constexpr int32_t Div_32_OP(int32_t num, int32_t den) {
    const int16_t d = div_s(16383, extract_h(den));  // 1. 1/den in Q14
    int32_t t = Mpy_32_16_opt(den, d);               // 2. den * d
    t = L_sub(kMax32, t);                            // 3. 2 - den * d
    t = Mpy_32_16_opt(t, d);                         // 4. 1/den in Q29
    const int32_t q = Mpy_32_opt(t, num);            // 5. num / den in Q29
    return L_add(L_add(q, L_shl(q, 1)), q);          // 6. 4q in Q31
}

// ---- Logarithms ---------------------------------------------------------------------------------

// log2(x) = exponent + fraction / 32768 for x > 0 (both 0 for x <= 0); returns the interpolated
// Q16-scaled fraction r whose upper half is the fraction.
inline int32_t Log2(int32_t x, int16_t *exponent, int16_t *fraction) {
    if (x <= 0) {  // 1.
        *exponent = 0;
        *fraction = 0;
        return 0;
    }
    const int16_t n = norm_l_opt(x);  // 2. normalise to 0x40000000..0x7FFFFFFF
    const int32_t y = L_shl(x, n);
    const int32_t i = L_shr_opt(y, 25) - 32;  // 3. table index and interpolation weight
    const int16_t a = static_cast<int16_t>((y >> 10) & 0x7FFF);
    const int32_t e = Sonvel_AEC_gaiAecLog2Tab[i];  // 4. tabLog[i] - (tabLog[i] - tabLog[i+1]) a
    const int32_t top = static_cast<int32_t>(static_cast<uint32_t>(e) & 0xFFFF0000u);
    const int32_t r = L_sub(top, L_shl(L_mpy(extract_l(e), a), 1));
    *exponent = static_cast<int16_t>(30 - n);  // 5.
    *fraction = extract_h(r);
    return r;
}

// ln(x / 32768) in Q15 from the base-2 logarithm: (log2(x) - 15) * ln 2, bit 0 cleared.
inline int32_t Ln_OP(int32_t x) {
    int16_t exponent = 0, fraction = 0;
    Log2(x, &exponent, &fraction);                                           // 1.
    const int32_t v = L_sub(L_add(L_shl(exponent, 15), fraction), 0x78000);  // 2. Q15, minus 15
    constexpr int16_t kLn2Q15 = 22712;                                       // ln 2, truncated
    return static_cast<int32_t>(static_cast<uint32_t>(low32((int64_t{v} * kLn2Q15) >> 15)) & ~1u);
}

}  // namespace fx
