// Butterflies of the FFT service on 64-bit intermediates: the Q31 twiddle product, the radix-2
// and radix-4 kernels and the ways a result is stored (plain, saturated, scaled, re/im swapped).
#pragma once

#include <cstdint>

#include "fixedpoint/block_float.h"

namespace sonvel::fft {

struct C64 {
    int64_t re;
    int64_t im;
};

inline C64 load(const int32_t *p) { return {p[0], p[1]}; }
inline C64 load_swapped(const int32_t *p) { return {p[1], p[0]}; }

// Extra fractional bits the twiddle products keep until a stage rounds its results once.
inline constexpr int kProductBits = 4;

// x * w * 2^kProductBits with w in Q31, rounded to nearest. |w.re| + |w.im| <= sqrt(2) 2^31
// keeps each sum of products below 2^63 for any 32-bit x.
inline C64 twiddle(C64 x, const int32_t *w) {
    const int64_t re = x.re * w[0] - x.im * w[1];
    const int64_t im = x.re * w[1] + x.im * w[0];
    constexpr int kShift = 31 - kProductBits;
    constexpr int64_t kHalf = int64_t{1} << (kShift - 1);
    return {(re + kHalf) >> kShift, (im + kHalf) >> kShift};
}

// x * 2^kProductBits, the untwiddled input of a stage at the products' scale.
inline C64 widen(C64 x) {
    return {x.re * (int64_t{1} << kProductBits), x.im * (int64_t{1} << kProductBits)};
}

// Four-point DFT with W_4 = -j, in place on a[0..3].
inline void radix4(C64 (&a)[4]) {
    const C64 s02{a[0].re + a[2].re, a[0].im + a[2].im};
    const C64 d02{a[0].re - a[2].re, a[0].im - a[2].im};
    const C64 s13{a[1].re + a[3].re, a[1].im + a[3].im};
    const C64 d13{a[1].re - a[3].re, a[1].im - a[3].im};
    a[0] = {s02.re + s13.re, s02.im + s13.im};
    a[2] = {s02.re - s13.re, s02.im - s13.im};
    a[1] = {d02.re + d13.im, d02.im - d13.re};
    a[3] = {d02.re - d13.im, d02.im + d13.re};
}

// Stores of a 64-bit result into an interleaved 32-bit pair; Swap exchanges re and im.

// Unchanged: intermediate results that are known to fit (Sat = false) or are clamped.
template <bool Swap, bool Sat>
struct StoreSame {
    void operator()(int32_t *p, int64_t re, int64_t im) const {
        p[Swap ? 1 : 0] = Sat ? fx::sat32(re) : static_cast<int32_t>(re);
        p[Swap ? 0 : 1] = Sat ? fx::sat32(im) : static_cast<int32_t>(im);
    }
};

// Times 2^-shift with rounding to nearest (shift 1..63).
template <bool Swap, bool Sat>
struct StoreRound {
    int shift;
    int32_t round(int64_t v) const {
        if constexpr (Sat) return fx::rnd(v, shift);
        return static_cast<int32_t>((v >> shift) + ((v >> (shift - 1)) & 1));
    }
    void operator()(int32_t *p, int64_t re, int64_t im) const {
        p[Swap ? 1 : 0] = round(re);
        p[Swap ? 0 : 1] = round(im);
    }
};

// Times 2^left (left 0..64), saturated.
template <bool Swap>
struct StoreLeft {
    int left;
    void operator()(int32_t *p, int64_t re, int64_t im) const {
        p[Swap ? 1 : 0] = fx::sat32(fx::shift_sat64(re, left));
        p[Swap ? 0 : 1] = fx::sat32(fx::shift_sat64(im, left));
    }
};

}  // namespace sonvel::fft
