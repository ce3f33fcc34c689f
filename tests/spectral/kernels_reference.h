// Slow reference arithmetic for the kernel tests, written from the definitions with 128-bit
// integers, and operands that pair every boundary value with every other before random ones.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

namespace kref {

using i128 = __int128;
inline constexpr int32_t kMin = INT32_MIN, kMax = INT32_MAX;
inline constexpr int32_t kEdge[9] = {kMin, kMin + 1, -65536, -1, 0, 1, 65535, kMax - 1, kMax};

inline int hr(int32_t x) {
    int n = 0;
    while (n < 31 && ((x >> (30 - n)) & 1) == ((x >> 31) & 1)) ++n;
    return n;
}
inline i128 clamp(i128 v, i128 lo, i128 hi) { return v < lo ? lo : v > hi ? hi : v; }
inline int32_t s32(i128 v) { return static_cast<int32_t>(clamp(v, kMin, kMax)); }
inline i128 s64(i128 v) { return clamp(v, INT64_MIN, INT64_MAX); }
inline i128 floor_shift(i128 v, int k) { return v >> std::min(k, 127); }
inline int32_t rnd(i128 v, int k) { return s32(floor_shift(v + (i128{1} << (k - 1)), k)); }
// Signed shift: left keeps the low 32 bits, right truncates.
inline int32_t shift(int32_t x, int c) {
    return c < 0 ? static_cast<int32_t>(floor_shift(x, -c)) : static_cast<int32_t>(static_cast<uint32_t>(c < 32 ? static_cast<uint64_t>(static_cast<uint32_t>(x)) << c : 0));
}
inline int32_t f2i(float f) { return s32(static_cast<i128>(std::clamp(std::trunc(double{f}), -3e9, 3e9))); }
inline int32_t neg(int32_t x) { return x == kMin ? kMin : -x; }

// Single-precision power of a bin before normalisation; h is the headroom used.
inline int32_t power_f(int32_t re, int32_t im, int &h) {
    h = std::min(hr(re), hr(im));
    const float r = static_cast<float>(shift(re, h)), i = static_cast<float>(shift(im, h));
    const float rr = r * r, ii = i * i, sum = rr + ii;
    return f2i(std::ldexp(sum, -32));
}

// a*y + (32767 - a)*x in block floating point; returns the mantissa and sets q.
inline int32_t smooth(int32_t x, int qx, int32_t y, int &q, int a) {
    const int qm = std::min(qx, q);
    const int32_t s = s32(floor_shift(rnd(i128{x} * (32767 - a), 15), qx - qm) +
                          floor_shift(rnd(i128{y} * a, 15), q - qm));
    q = qm + hr(s);
    return shift(s, hr(s));
}

// a * conj(b) scaled per part by the summed headroom of its factors; h = {hr_re, hr_im}.
inline void conj_q(const int32_t *a, const int32_t *b, int32_t *out, int *h) {
    const int32_t c = neg(b[1]);
    h[0] = std::min(hr(a[0]) + hr(b[0]), hr(a[1]) + hr(c));
    h[1] = std::min(hr(a[0]) + hr(c), hr(a[1]) + hr(b[0]));
    out[0] = rnd(s64(s64(i128{a[0]} * b[0] - i128{a[1]} * c) << h[0]), 32);
    out[1] = rnd(s64(s64(i128{a[0]} * c + i128{a[1]} * b[0]) << h[1]), 32);
}

// 2 * (81 + extra) words: all pairs of boundary values (order chosen by flip), then random ones.
inline std::vector<int32_t> operands(uint32_t seed, bool flip, int extra = 1000) {
    std::mt19937 g(seed);
    std::vector<int32_t> v;
    for (int k = 0; k < 81; ++k) v.insert(v.end(), {kEdge[flip ? k / 9 : k % 9], kEdge[flip ? k % 9 : k / 9]});
    for (int k = 0; k < 2 * extra; ++k) v.push_back(static_cast<int32_t>(g()) >> (g() % 32));
    return v;
}

// Q values: mostly near each other, sometimes far apart.
template <class T>
std::vector<T> q_values(uint32_t seed, size_t n, int lo, int hi) {
    std::mt19937 g(seed);
    std::vector<T> q(n);
    for (auto &v : q) v = static_cast<T>(g() % 8 == 0 ? std::uniform_int_distribution<int>(lo, hi)(g) : int(g() % 50) - 10);
    return q;
}

}  // namespace kref
