// Slow reference arithmetic for the kernel tests, written from the definitions with 128-bit
// integers and explicit floor division, plus operand generators that favour boundary values.
#pragma once

#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

namespace kref {

using i128 = __int128;

inline constexpr int32_t kMin = INT32_MIN;
inline constexpr int32_t kMax = INT32_MAX;

// Bits after the sign bit equal to it.
inline int hr(int32_t x) {
    int n = 0;
    for (int b = 30; b >= 0 && (((x >> b) & 1) == ((x >> 31) & 1)); --b) ++n;
    return n;
}

inline int32_t sat32(i128 v) { return v > kMax ? kMax : v < kMin ? kMin : static_cast<int32_t>(v); }

inline int64_t sat64(i128 v) {
    return v > INT64_MAX ? INT64_MAX : v < INT64_MIN ? INT64_MIN : static_cast<int64_t>(v);
}

// floor(v / 2^k) for any k >= 0.
inline i128 floor_shift(i128 v, int k) {
    if (k >= 126) return v < 0 ? -1 : 0;
    const i128 d = static_cast<i128>(1) << k;
    i128 q = v / d;
    if (v % d != 0 && v < 0) --q;
    return q;
}

inline int32_t rnd(i128 v, int k) { return sat32(floor_shift(v + (static_cast<i128>(1) << (k - 1)), k)); }

// Signed shift: left keeps the low 32 bits, right truncates.
inline int32_t shift_wrap(int32_t x, int c) {
    if (c < 0) return static_cast<int32_t>(floor_shift(x, -c));
    if (c >= 32) return 0;
    return static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(static_cast<uint32_t>(x)) << c));
}

// Signed shift: left saturates, right truncates.
inline int32_t shift_sat(int32_t x, int c) {
    if (c < 0) return static_cast<int32_t>(floor_shift(x, -c));
    if (c > 64) c = 64;
    return sat32(static_cast<i128>(x) * (static_cast<i128>(1) << c));
}

// Truncation toward zero with saturation.
inline int32_t f2i(float f) {
    const double t = std::trunc(static_cast<double>(f));
    if (t >= 2147483647.0) return kMax;
    if (t <= -2147483648.0) return kMin;
    return static_cast<int32_t>(t);
}

inline constexpr int32_t kEdge[] = {kMin, kMin + 1, -65536, -1, 0, 1, 65535, kMax - 1, kMax};

// Operand source: a quarter boundary values, the rest random with a random magnitude.
struct Gen {
    std::mt19937 rng;
    explicit Gen(uint32_t seed) : rng(seed) {}

    int32_t i32() {
        const uint32_t pick = rng();
        if ((pick & 3) == 0) return kEdge[(pick >> 2) % std::size(kEdge)];
        return static_cast<int32_t>(rng()) >> ((pick >> 8) % 32);
    }
    int range(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); }
    std::vector<int32_t> i32s(size_t n) {
        std::vector<int32_t> v(n);
        for (auto &x : v) x = i32();
        return v;
    }
};

}  // namespace kref
