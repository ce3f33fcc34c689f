// Vectorised stages of the FFT service for aarch64 (NEON): the first two stages fused, one
// sub-transform per lane (exact 32-bit sums of inputs with headroom, then radix 4 on 64-bit
// lanes), the later radix-4 stages on 64-bit lanes, two butterflies per step; the same Q31
// twiddle products, roundings and clamping as the portable stages.
#include "spectral/fft/fft_stages_simd.h"

#include "spectral/fft/fft_butterflies.h"

#if defined(__aarch64__)

#include <arm_neon.h>

namespace sonvel::fft::simd {
namespace {

// ---- Helpers of the first stage: exact sums on 32-bit lanes, re / im apart. ----

// The lowest and highest input word seen so far, for the headroom of the whole input.
struct Range {
    int32x4_t lo = vdupq_n_s32(0);
    int32x4_t hi = vdupq_n_s32(0);
    void add(int32x4x2_t x) {
        lo = vminq_s32(lo, vminq_s32(x.val[0], x.val[1]));
        hi = vmaxq_s32(hi, vmaxq_s32(x.val[0], x.val[1]));
    }
    int headroom() const { return range_headroom(vminvq_s32(lo), vmaxvq_s32(hi)); }
    static Range start(int) { return {}; }
};

// In place of Range where the caller knows the input's headroom: the words are not looked at.
struct KnownRange {
    int h;
    static KnownRange start(int known) { return {known}; }
    static void add(int32x4x2_t) {}
    int headroom() const { return h; }
};

// Four complex values from p as separate re and im lanes (exchanged with Swap), times 2^guard;
// their range joins `range`.
template <bool Swap, class R>
inline int32x4x2_t load4(const int32_t *p, int32x4_t guard, R &range) {
    const int32x4x2_t x = vld2q_s32(p);
    range.add(x);
    const int32x4_t re = vshlq_s32(Swap ? x.val[1] : x.val[0], guard);
    const int32x4_t im = vshlq_s32(Swap ? x.val[0] : x.val[1], guard);
    return {{re, im}};
}

// Lane I of a and b, two complex values, stored contiguously at y.
template <int I>
inline void store_lane(int32_t *y, const int32x4x2_t &a, const int32x4x2_t &b) {
    vst4q_lane_s32(y, (int32x4x4_t{{a.val[0], a.val[1], b.val[0], b.val[1]}}), I);
}

// ---- Radix-4 stages: two complex values per step as 64-bit re and im lanes. ----

struct C2 {
    int64x2_t re;
    int64x2_t im;
};

// x * 2^kProductBits.
inline C2 widen(int32x2x2_t x) {
    return {vshll_n_s32(x.val[0], kProductBits), vshll_n_s32(x.val[1], kProductBits)};
}

// x * w * 2^kProductBits, rounded to nearest (the rounding shift cannot overflow).
inline C2 twiddle(int32x2x2_t x, int32x2x2_t w) {
    const int64x2_t re = vmlsl_s32(vmull_s32(x.val[0], w.val[0]), x.val[1], w.val[1]);
    const int64x2_t im = vmlal_s32(vmull_s32(x.val[0], w.val[1]), x.val[1], w.val[0]);
    return {vrshrq_n_s64(re, 31 - kProductBits), vrshrq_n_s64(im, 31 - kProductBits)};
}

// The twiddled value; with KZero lane 0 (k = 0) is negated first: its twiddle in the plan is -1
// exactly, (-2^31, 0), and (-x) (-2^31) 2^-27 = 16 x leaves nothing to round, so it comes out
// as widen(x). The negation cannot wrap: with the headroom the vectorised stages demand, a word
// between stages stays below sqrt(2) 2^30 (plus a few units of rounding), far from -2^31.
template <bool KZero>
inline C2 twiddle_k(int32x2x2_t x, int32x2x2_t w) {
    if constexpr (KZero) {
        const int32x2_t neg = vcreate_s32(0x00000001FFFFFFFFull);  // {-1, 1}
        x = {{vmul_s32(x.val[0], neg), vmul_s32(x.val[1], neg)}};
    }
    return twiddle(x, w);
}

inline C2 add(C2 a, C2 b) { return {vaddq_s64(a.re, b.re), vaddq_s64(a.im, b.im)}; }
inline C2 sub(C2 a, C2 b) { return {vsubq_s64(a.re, b.re), vsubq_s64(a.im, b.im)}; }

// Four-point DFT with W_4 = -j.
inline void radix4(C2 (&a)[4]) {
    const C2 s02 = add(a[0], a[2]);
    const C2 d02 = sub(a[0], a[2]);
    const C2 s13 = add(a[1], a[3]);
    const C2 d13 = sub(a[1], a[3]);
    a[0] = add(s02, s13);
    a[2] = sub(s02, s13);
    a[1] = {vaddq_s64(d02.re, d13.im), vsubq_s64(d02.im, d13.re)};
    a[3] = {vsubq_s64(d02.re, d13.im), vaddq_s64(d02.im, d13.re)};
}

// Rounding by 2^-kShift of values that fit after it.
template <int kShift>
struct RoundPlain {
    int32x2_t operator()(int64x2_t v) const { return vrshrn_n_s64(v, kShift); }
};

// Rounding by 2^-shift, clamped to the 32-bit range.
struct RoundClamp {
    int64x2_t negShift;
    int32x2_t operator()(int64x2_t v) const { return vqmovn_s64(vrshlq_s64(v, negShift)); }
};

// Rounding by 2^-shift for shifts from kUnclampedShift on, where the clamp cannot act: the plain
// narrowing keeps the same bits without the saturating step.
struct RoundShift {
    int64x2_t negShift;
    int32x2_t operator()(int64x2_t v) const { return vmovn_s64(vrshlq_s64(v, negShift)); }
};

template <bool KZero, bool Swap, int m, class Round>
inline void butterflies(int32_t *y, const int32_t *w, const Round &round) {
    C2 a[4] = {widen(vld2_s32(y)), twiddle_k<KZero>(vld2_s32(y + 2 * m), vld2_s32(w)),
               twiddle_k<KZero>(vld2_s32(y + 4 * m), vld2_s32(w + 2 * m)),
               twiddle_k<KZero>(vld2_s32(y + 6 * m), vld2_s32(w + 4 * m))};
    radix4(a);
    for (int q = 0; q < 4; ++q) {
        const int32x2_t re = round(a[q].re);
        const int32x2_t im = round(a[q].im);
        vst2_s32(y + 2 * q * m, (Swap ? int32x2x2_t{{im, re}} : int32x2x2_t{{re, im}}));
    }
}

// A radix-4 stage after the fused ones, with fixed lengths; the step with the -1 twiddle (k = 0)
// runs once per group.
template <bool Swap, int n, int m, class Round>
void stage_fixed(int32_t *d, const int32_t *tw, const Round &round) {
    for (int base = 0; base < n; base += 4 * m) {
        butterflies<true, Swap, m>(d + 2 * base, tw, round);
        for (int k = 2; k < m; k += 2) {
            butterflies<false, Swap, m>(d + 2 * (base + k), tw + 2 * k, round);
        }
    }
}

template <bool Swap, class Round>
void stage(int32_t *d, const Plan &p, const Layout &l, int s, const Round &round) {
    const int32_t *tw = p.tw + l.twOffset[s];
    with_stage(l, s, Swap, [&](auto n, auto m, auto) { stage_fixed<Swap, n, m>(d, tw, round); });
}

// ---- The first two stages fused: each lane works on its own sub-transform. ----
//
// The first stage of radix R and the first radix-4 stage (m = R) together build sub-transforms
// of length L = 4R, each from the inputs x[o + j N/L], j = 0..L-1. Lane i of every vector below
// holds sub-transform o + i (four of them per step), so that the twiddles W_L^{qk} are the same
// in all lanes: the exact ones (1, -j) need no product and those at 45 degrees one product per
// part. The radix-R butterflies add on 32-bit lanes (exact with the headroom), the radix-4 ones
// on 64-bit lanes as in the later stages.

// Four complex values on 64-bit lanes: values 0, 1 (lo) and 2, 3 (hi).
struct C4 {
    C2 lo;
    C2 hi;
};

inline C4 widen4(int32x4x2_t x) {
    return {{vshll_n_s32(vget_low_s32(x.val[0]), kProductBits),
             vshll_n_s32(vget_low_s32(x.val[1]), kProductBits)},
            {vshll_high_n_s32(x.val[0], kProductBits), vshll_high_n_s32(x.val[1], kProductBits)}};
}

// -j x * 2^kProductBits (exact).
inline C4 minus_j4(int32x4x2_t x) {
    constexpr int32_t kMinus = -(1 << kProductBits);
    return {{vshll_n_s32(vget_low_s32(x.val[1]), kProductBits),
             vmull_n_s32(vget_low_s32(x.val[0]), kMinus)},
            {vshll_high_n_s32(x.val[1], kProductBits), vmull_high_n_s32(x.val[0], kMinus)}};
}

inline int64x2_t round_product(int64x2_t v) { return vrshrq_n_s64(v, 31 - kProductBits); }

// x * w rounded like twiddle(), for the same w = (wr, wi) in every lane.
inline C4 twiddle4(int32x4x2_t x, const int32_t *w) {
    const int32_t wr = w[0], wi = w[1];
    const int32x2_t rl = vget_low_s32(x.val[0]), il = vget_low_s32(x.val[1]);
    return {{round_product(vmlsl_n_s32(vmull_n_s32(rl, wr), il, wi)),
             round_product(vmlal_n_s32(vmull_n_s32(rl, wi), il, wr))},
            {round_product(vmlsl_high_n_s32(vmull_high_n_s32(x.val[0], wr), x.val[1], wi)),
             round_product(vmlal_high_n_s32(vmull_high_n_s32(x.val[0], wi), x.val[1], wr))}};
}

// The same for a twiddle at 45 degrees, w = (a, -a) (Anti: (a, a)): the sums of products are
// a (x.re + x.im) and a (x.im - x.re) (Anti: a (x.re - x.im) and a (x.re + x.im)), one product
// each. The 32-bit sum and difference are exact: the parts come from the first stage, at most
// 2^30 in magnitude with the headroom.
template <bool Anti>
inline C4 twiddle_diagonal4(int32x4x2_t x, const int32_t *w) {
    const int32_t a = w[0];
    const int32x4_t sum = vaddq_s32(x.val[0], x.val[1]);
    const int32x4_t diff = Anti ? vsubq_s32(x.val[0], x.val[1]) : vsubq_s32(x.val[1], x.val[0]);
    const int32x4_t p = Anti ? diff : sum;
    const int32x4_t q = Anti ? sum : diff;
    return {{round_product(vmull_n_s32(vget_low_s32(p), a)),
             round_product(vmull_n_s32(vget_low_s32(q), a))},
            {round_product(vmull_high_n_s32(p, a)), round_product(vmull_high_n_s32(q, a))}};
}

// One radix-4 butterfly of the fused stages, rounded by 2^-(kProductBits + 2) into 32-bit re / im
// lanes.
inline void fused_butterfly(C4 (&a)[4], int32x4x2_t (&out)[4]) {
    C2 lo[4] = {a[0].lo, a[1].lo, a[2].lo, a[3].lo};
    C2 hi[4] = {a[0].hi, a[1].hi, a[2].hi, a[3].hi};
    radix4(lo);
    radix4(hi);
    constexpr int kShift = kProductBits + 2;
    for (int q = 0; q < 4; ++q) {
        out[q] = {{vrshrn_high_n_s64(vrshrn_n_s64(lo[q].re, kShift), hi[q].re, kShift),
                   vrshrn_high_n_s64(vrshrn_n_s64(lo[q].im, kShift), hi[q].im, kShift)}};
    }
}

// Butterfly outputs k (a) and k + 1 (b) of the four sub-transforms, each pair stored
// contiguously at element k + R q of sub-transform i (at y[i]).
inline void store_pairs(int32_t *const (&y)[4], int element, int stride, const int32x4x2_t (&a)[4],
                        const int32x4x2_t (&b)[4]) {
    for (int q = 0; q < 4; ++q) {
        const int at = 2 * (element + q * stride);
        store_lane<0>(y[0] + at, a[q], b[q]);
        store_lane<1>(y[1] + at, a[q], b[q]);
        store_lane<2>(y[2] + at, a[q], b[q]);
        store_lane<3>(y[3] + at, a[q], b[q]);
    }
}

// Where sub-transform o + i (i = 0..3) begins.
struct Blocks {
    int32_t *at[4];
    Blocks(int32_t *dst, const Layout &l, int o) {
        for (int i = 0; i < 4; ++i) at[i] = dst + 2 * (l.firstOut[o / 4] + i * (l.n / 4));
    }
};

template <bool Swap, int n, class R>
int first_stages2(const int32_t *src, int32_t *dst, const Layout &l, const int32_t *tw, int guard,
                  int known) {
    const int32x4_t g = vdupq_n_s32(guard);
    R range = R::start(known);
    // W_8^1 = (a, -a), W_8^2 = -j, W_8^3 = (-a, -a): q k = 1, 2, 3 (m = 2 words per q).
    const int32_t *w1 = tw + 2;
    const int32_t *w3 = tw + 2 * (2 * 2) + 2;
    for (int o = 0; o < n / 8; o += 4) {
        int32x4x2_t e[4], d[4];  // outputs 0 and 1 of the radix-2 butterflies q
        for (int q = 0; q < 4; ++q) {
            const int32x4x2_t a = load4<Swap>(src + 2 * (o + q * n / 8), g, range);
            const int32x4x2_t b = load4<Swap>(src + 2 * (o + q * n / 8 + n / 2), g, range);
            e[q] = {{vaddq_s32(a.val[0], b.val[0]), vaddq_s32(a.val[1], b.val[1])}};
            d[q] = {{vsubq_s32(a.val[0], b.val[0]), vsubq_s32(a.val[1], b.val[1])}};
        }
        int32x4x2_t lo[4], hi[4];
        C4 a[4] = {widen4(e[0]), widen4(e[1]), widen4(e[2]), widen4(e[3])};
        fused_butterfly(a, lo);
        C4 b[4] = {widen4(d[0]), twiddle_diagonal4<false>(d[1], w1), minus_j4(d[2]),
                   twiddle_diagonal4<true>(d[3], w3)};
        fused_butterfly(b, hi);
        store_pairs(Blocks(dst, l, o).at, 0, 2, lo, hi);
    }
    return range.headroom();
}

// The four-point DFTs of x[o + q N/16 + t N/4] (t = 0..3) for q = 0..3, times 2^guard.
template <bool Swap, int n, class R>
void first_quad(const int32_t *src, int q, int32x4_t g, R &range, int32x4x2_t (&y)[4]) {
    int32x4x2_t x[4];
    for (int t = 0; t < 4; ++t) x[t] = load4<Swap>(src + 2 * (q * n / 16 + t * n / 4), g, range);
    const int32x4_t s02r = vaddq_s32(x[0].val[0], x[2].val[0]);
    const int32x4_t s02i = vaddq_s32(x[0].val[1], x[2].val[1]);
    const int32x4_t d02r = vsubq_s32(x[0].val[0], x[2].val[0]);
    const int32x4_t d02i = vsubq_s32(x[0].val[1], x[2].val[1]);
    const int32x4_t s13r = vaddq_s32(x[1].val[0], x[3].val[0]);
    const int32x4_t s13i = vaddq_s32(x[1].val[1], x[3].val[1]);
    const int32x4_t d13r = vsubq_s32(x[1].val[0], x[3].val[0]);
    const int32x4_t d13i = vsubq_s32(x[1].val[1], x[3].val[1]);
    y[0] = {{vaddq_s32(s02r, s13r), vaddq_s32(s02i, s13i)}};
    y[1] = {{vaddq_s32(d02r, d13i), vsubq_s32(d02i, d13r)}};
    y[2] = {{vsubq_s32(s02r, s13r), vsubq_s32(s02i, s13i)}};
    y[3] = {{vsubq_s32(d02r, d13i), vaddq_s32(d02i, d13r)}};
}

template <bool Swap, int n, class R>
int first_stages4(const int32_t *src, int32_t *dst, const Layout &l, const int32_t *tw, int guard,
                  int known) {
    const int32x4_t g = vdupq_n_s32(guard);
    R range = R::start(known);
    // W_16^{qk} sits at tw + 2 ((q - 1) 4 + k); W_16^2 = (a, -a), W_16^4 = -j, W_16^6 = (-a, -a).
    const auto w = [tw](int q, int k) { return tw + 2 * ((q - 1) * 4 + k); };
    for (int o = 0; o < n / 16; o += 4) {
        int32x4x2_t y[4][4];  // output k of the four-point DFT q
        for (int q = 0; q < 4; ++q) first_quad<Swap, n>(src + 2 * o, q, g, range, y[q]);
        const Blocks at(dst, l, o);
        int32x4x2_t lo[4], hi[4];
        C4 a0[4] = {widen4(y[0][0]), widen4(y[1][0]), widen4(y[2][0]), widen4(y[3][0])};
        fused_butterfly(a0, lo);
        C4 a1[4] = {widen4(y[0][1]), twiddle4(y[1][1], w(1, 1)),
                    twiddle_diagonal4<false>(y[2][1], w(2, 1)), twiddle4(y[3][1], w(3, 1))};
        fused_butterfly(a1, hi);
        store_pairs(at.at, 0, 4, lo, hi);
        C4 a2[4] = {widen4(y[0][2]), twiddle_diagonal4<false>(y[1][2], w(1, 2)), minus_j4(y[2][2]),
                    twiddle_diagonal4<true>(y[3][2], w(3, 2))};
        fused_butterfly(a2, lo);
        C4 a3[4] = {widen4(y[0][3]), twiddle4(y[1][3], w(1, 3)),
                    twiddle_diagonal4<true>(y[2][3], w(2, 3)), twiddle4(y[3][3], w(3, 3))};
        fused_butterfly(a3, hi);
        store_pairs(at.at, 2, 4, lo, hi);
    }
    return range.headroom();
}

}  // namespace

int first_stages(const int32_t *src, int32_t *dst, const Plan &p, const Layout &l, int guard,
                 bool swap, int known) {
    const int32_t *tw = p.tw + l.twOffset[1];
    return with_first_stages<Range, KnownRange>(l, swap, known, [&](auto n, auto sw, auto range) {
        using R = typename decltype(range)::type;
        if constexpr (n == 128) {
            return first_stages2<sw, n, R>(src, dst, l, tw, guard, known);
        } else {
            return first_stages4<sw, n, R>(src, dst, l, tw, guard, known);
        }
    });
}

void middle_stage(int32_t *d, const Plan &p, const Layout &l, int s) {
    stage<false>(d, p, l, s, RoundPlain<kProductBits + 2>{});
}

template <class Round>
void last_stage_with(int32_t *d, const Plan &p, const Layout &l, bool swap, const Round &round) {
    if (swap) {
        stage<true>(d, p, l, l.stages - 1, round);
    } else {
        stage<false>(d, p, l, l.stages - 1, round);
    }
}

void last_stage(int32_t *d, const Plan &p, const Layout &l, int shift, bool swap, bool fits) {
    if (fits || shift >= kUnclampedShift) {
        last_stage_with(d, p, l, swap, RoundShift{vdupq_n_s64(-shift)});
    } else {
        last_stage_with(d, p, l, swap, RoundClamp{vdupq_n_s64(-shift)});
    }
}

}  // namespace sonvel::fft::simd

#endif
