// Vectorised stages of the FFT service for aarch64 (NEON): the first stage on 32-bit lanes (exact
// sums of inputs with headroom), the radix-4 stages on 64-bit lanes with the same Q31 twiddle
// products, roundings and clamping as the portable stages. Two butterflies per radix-4 step.
#include "spectral/fft/fft_stages_simd.h"

#include "spectral/fft/fft_butterflies.h"

#if defined(__aarch64__)

#include <arm_neon.h>

namespace sonvel::fft::simd {
namespace {

// ---- First stage: exact sums on 32-bit lanes, four butterflies per step, re / im apart. ----

// The lowest and highest input word seen so far, for the headroom of the whole input.
struct Range {
    int32x4_t lo = vdupq_n_s32(0);
    int32x4_t hi = vdupq_n_s32(0);
    void add(int32x4x2_t x) {
        lo = vminq_s32(lo, vminq_s32(x.val[0], x.val[1]));
        hi = vmaxq_s32(hi, vmaxq_s32(x.val[0], x.val[1]));
    }
    int headroom() const { return range_headroom(vminvq_s32(lo), vmaxvq_s32(hi)); }
};

// Four complex values from p as separate re and im lanes (exchanged with Swap), times 2^guard;
// their range joins `range`.
template <bool Swap>
inline int32x4x2_t load4(const int32_t *p, int32x4_t guard, Range &range) {
    const int32x4x2_t x = vld2q_s32(p);
    range.add(x);
    const int32x4_t re = vshlq_s32(Swap ? x.val[1] : x.val[0], guard);
    const int32x4_t im = vshlq_s32(Swap ? x.val[0] : x.val[1], guard);
    return {{re, im}};
}

// Butterfly i's two or four results, stored contiguously at y.
template <int I>
inline void store_lane(int32_t *y, const int32x4x2_t &a, const int32x4x2_t &b) {
    vst4q_lane_s32(y, (int32x4x4_t{{a.val[0], a.val[1], b.val[0], b.val[1]}}), I);
}

template <bool Swap>
int first_stage4(const int32_t *src, int32_t *dst, const Layout &p, int guard) {
    const int stride = p.n / 4;
    const int32x4_t g = vdupq_n_s32(guard);
    Range range;
    for (int o = 0; o < stride; o += 4) {
        int32x4x2_t d[4];
        for (int q = 0; q < 4; ++q) d[q] = load4<Swap>(src + 2 * (o + q * stride), g, range);
        const int32x4_t s02r = vaddq_s32(d[0].val[0], d[2].val[0]);
        const int32x4_t s02i = vaddq_s32(d[0].val[1], d[2].val[1]);
        const int32x4_t d02r = vsubq_s32(d[0].val[0], d[2].val[0]);
        const int32x4_t d02i = vsubq_s32(d[0].val[1], d[2].val[1]);
        const int32x4_t s13r = vaddq_s32(d[1].val[0], d[3].val[0]);
        const int32x4_t s13i = vaddq_s32(d[1].val[1], d[3].val[1]);
        const int32x4_t d13r = vsubq_s32(d[1].val[0], d[3].val[0]);
        const int32x4_t d13i = vsubq_s32(d[1].val[1], d[3].val[1]);
        const int32x4x2_t o0{{vaddq_s32(s02r, s13r), vaddq_s32(s02i, s13i)}};
        const int32x4x2_t o1{{vaddq_s32(d02r, d13i), vsubq_s32(d02i, d13r)}};
        const int32x4x2_t o2{{vsubq_s32(s02r, s13r), vsubq_s32(s02i, s13i)}};
        const int32x4x2_t o3{{vsubq_s32(d02r, d13i), vaddq_s32(d02i, d13r)}};
        int32_t *y = dst + 2 * p.firstOut[o / 4];
        const int step = 2 * stride;
        store_lane<0>(y, o0, o1);
        store_lane<0>(y + 4, o2, o3);
        store_lane<1>(y + step, o0, o1);
        store_lane<1>(y + step + 4, o2, o3);
        store_lane<2>(y + 2 * step, o0, o1);
        store_lane<2>(y + 2 * step + 4, o2, o3);
        store_lane<3>(y + 3 * step, o0, o1);
        store_lane<3>(y + 3 * step + 4, o2, o3);
    }
    return range.headroom();
}

template <bool Swap>
int first_stage2(const int32_t *src, int32_t *dst, const Layout &p, int guard) {
    const int stride = p.n / 2;
    const int32x4_t g = vdupq_n_s32(guard);
    Range range;
    for (int o = 0; o < stride; o += 4) {
        const int32x4x2_t a = load4<Swap>(src + 2 * o, g, range);
        const int32x4x2_t b = load4<Swap>(src + 2 * (o + stride), g, range);
        const int32x4x2_t s{{vaddq_s32(a.val[0], b.val[0]), vaddq_s32(a.val[1], b.val[1])}};
        const int32x4x2_t d{{vsubq_s32(a.val[0], b.val[0]), vsubq_s32(a.val[1], b.val[1])}};
        int32_t *y = dst + 2 * p.firstOut[o / 4];
        const int step = 2 * (p.n / 4);
        store_lane<0>(y, s, d);
        store_lane<1>(y + step, s, d);
        store_lane<2>(y + 2 * step, s, d);
        store_lane<3>(y + 3 * step, s, d);
    }
    return range.headroom();
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
    int32x2_t operator()(int64x2_t v) const { return vmovn_s64(vrshrq_n_s64(v, kShift)); }
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

template <bool KZero, bool Swap, class Round>
inline void butterflies(int32_t *y, int m, const int32_t *const (&w)[3], const Round &round) {
    C2 a[4] = {widen(vld2_s32(y)), twiddle_k<KZero>(vld2_s32(y + 2 * m), vld2_s32(w[0])),
               twiddle_k<KZero>(vld2_s32(y + 4 * m), vld2_s32(w[1])),
               twiddle_k<KZero>(vld2_s32(y + 6 * m), vld2_s32(w[2]))};
    radix4(a);
    for (int q = 0; q < 4; ++q) {
        const int32x2_t re = round(a[q].re);
        const int32x2_t im = round(a[q].im);
        vst2_s32(y + 2 * q * m, (Swap ? int32x2x2_t{{im, re}} : int32x2x2_t{{re, im}}));
    }
}

template <bool Swap, class Round>
void stage(int32_t *d, const Plan &p, const Layout &l, int s, const Round &round) {
    const int m = l.firstRadix << (2 * (s - 1));
    const int32_t *tw = p.tw + l.twOffset[s];
    for (int base = 0; base < l.n; base += 4 * m) {
        int32_t *x = d + 2 * base;
        for (int k = 0; k < m; k += 2) {
            const int32_t *const w[3] = {tw + 2 * k, tw + 2 * (m + k), tw + 2 * (2 * m + k)};
            if (k == 0) {
                butterflies<true, Swap>(x + 2 * k, m, w, round);
            } else {
                butterflies<false, Swap>(x + 2 * k, m, w, round);
            }
        }
    }
}

}  // namespace

namespace {
int first_stage(const int32_t *src, int32_t *dst, const Layout &p, int guard, bool swap) {
    if (p.firstRadix == 4) {
        return swap ? first_stage4<true>(src, dst, p, guard)
                    : first_stage4<false>(src, dst, p, guard);
    }
    return swap ? first_stage2<true>(src, dst, p, guard) : first_stage2<false>(src, dst, p, guard);
}

}  // namespace

int first_stages(const int32_t *src, int32_t *dst, const Plan &p, const Layout &l, int guard,
                 bool swap) {
    const int h = first_stage(src, dst, l, guard, swap);
    stage<false>(dst, p, l, 1, RoundPlain<kProductBits + 2>{});
    return h;
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
