// Vectorised stages of the FFT service (AVX2 on x86-64, NEON on aarch64), used for inputs with
// log2 n bits of headroom (n the length of the layout). They compute exactly what the portable
// stages compute, several butterflies at a time; elsewhere the processor choice
// (spectral/processor.h) never calls them.
#pragma once

#include <cstdint>
#include <type_traits>

#include "fixedpoint/block_float.h"
#include "spectral/fft/fft_plan.h"

namespace sonvel::fft::simd {

// Common headroom of all words in [lo, hi], the range of a block's words (lo <= 0 <= hi).
inline int range_headroom(int32_t lo, int32_t hi) {
    const int a = fx::hr(lo);
    const int b = fx::hr(hi);
    return a < b ? a : b;
}

// The shapes of the layouts as compile-time values, for code with fixed offsets and counts:
// 64, 128 or 256 points (orders 6..8, the odd one with the radix-2 first stage), and the radix-4
// stages after the first two, the middle ones with m = n / 16, the last with m = n / 4. f is
// called with std::integral_constant values n (and m) and std::bool_constant swap.
template <int v>
using Int = std::integral_constant<int, v>;

template <class F>
inline auto with_length(const Layout &l, bool swap, F &&f) {
    const auto go = [&](auto n) { return swap ? f(n, std::true_type{}) : f(n, std::false_type{}); };
    if (l.n == 64) return go(Int<64>{});
    if (l.n == 128) return go(Int<128>{});
    return go(Int<256>{});
}

template <class F>
inline void with_stage(const Layout &l, int s, bool swap, F &&f) {
    const bool last = s == l.stages - 1;
    with_length(l, swap, [&](auto n, auto sw) {
        if (last) {
            f(n, Int<n / 4>{}, sw);
        } else if constexpr (n > 64) {
            f(n, Int<n / 16>{}, sw);
        }
    });
}

// The fused first stages' choices, made alike on every back end: f is called with n, swap and
// the range type as a std::type_identity, Known (which takes the caller's headroom) when
// known >= 0, else Scan (which finds it while the stages read the input).
template <class Scan, class Known, class F>
inline int with_first_stages(const Layout &l, bool swap, int known, F &&f) {
    const auto run = [&](auto range) {
        return with_length(l, swap, [&](auto n, auto sw) { return f(n, sw, range); });
    };
    return known >= 0 ? run(std::type_identity<Known>{}) : run(std::type_identity<Scan>{});
}

// The first two stages (the radix-2 or radix-4 one and radix-4 stage 1) from src (re / im
// exchanged with swap) into dst, the first one with guard >= 0 guard bits; returns the common
// headroom of the 2N words of src, which they read anyway, or known (>= 0) without looking when
// the caller knows a lower bound of it. The results are those of the portable stages only when
// the headroom is at least log2 N; otherwise dst holds garbage (no undefined behaviour: the
// shifts and sums wrap on the vector lanes) and must be rewritten.
int first_stages(const int32_t *src, int32_t *dst, const Plan &p, const Layout &l, int guard,
                 bool swap, int known);

// Radix-4 stage s (2 .. l.stages - 2) in place; results rounded by 2^-(kProductBits + 2), not
// clamped (with the headroom they fit).
void middle_stage(int32_t *d, const Plan &p, const Layout &l, int s);

// The last stage in place; results rounded by 2^-shift (shift 1..31), clamped, re / im
// exchanged with swap. With fits the caller knows that the results fit 32 bits (see
// fft_transform.cpp) and the clamp is left out; the bits are the same.
//
// From kUnclampedShift on the clamp cannot act, whatever 32-bit words the stage reads: a widened
// word is |16 d| <= 2^35, a rounded twiddle product |(d.re w.re - d.im w.im) 2^-27| <=
// 2^31 (|w.re| + |w.im|) 2^-27 + 1 <= sqrt(2) 2^35 + 1 < 1.5 * 2^35, so the four-point sums are
// below 6 * 2^35 = 0.75 * 2^38 and, with the rounding half 2^(shift-1) <= 2^30 added, inside
// the clamp bounds +-2^(31+shift) for shift >= 7. (The inverse transform always passes
// log2 N + 5 or more for scale factors >= 0.)
void last_stage(int32_t *d, const Plan &p, const Layout &l, int shift, bool swap, bool fits);
inline constexpr int kUnclampedShift = 7;

}  // namespace sonvel::fft::simd
