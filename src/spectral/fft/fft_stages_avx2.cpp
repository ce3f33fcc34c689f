// Vectorised stages of the FFT service for x86-64 with AVX2: the first stage on 32-bit lanes
// (exact sums of inputs with headroom), the radix-4 stages on 64-bit lanes with the same Q31
// twiddle products, roundings and clamping as the portable stages. Four butterflies per step.
#include "spectral/fft/fft_stages_simd.h"

#include "spectral/fft/fft_butterflies.h"
#include "spectral/processor.h"

#if defined(__x86_64__) && defined(__GNUC__)

#include <immintrin.h>

#include <type_traits>

namespace sonvel::fft::simd {
namespace {

using V = __m256i;

SONVEL_LANES_TARGET inline V load(const int32_t *p) {
    return _mm256_loadu_si256(reinterpret_cast<const V *>(p));
}
SONVEL_LANES_TARGET inline void store(int32_t *p, V v) {
    _mm256_storeu_si256(reinterpret_cast<V *>(p), v);
}

// Two complex values from each of two places.
SONVEL_LANES_TARGET inline V load2x2(const int32_t *lo, const int32_t *hi) {
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i *>(lo));
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i *>(hi));
    return _mm256_inserti128_si256(_mm256_castsi128_si256(a), b, 1);
}
SONVEL_LANES_TARGET inline void store2x2(int32_t *lo, int32_t *hi, V v) {
    _mm_storeu_si128(reinterpret_cast<__m128i *>(lo), _mm256_castsi256_si128(v));
    _mm_storeu_si128(reinterpret_cast<__m128i *>(hi), _mm256_extracti128_si256(v, 1));
}

// Exchange re and im of four complex values.
SONVEL_LANES_TARGET inline V swap_parts(V v) { return _mm256_shuffle_epi32(v, 0xB1); }

// ---- First stage: exact sums on 32-bit lanes (the inputs have headroom). ----

// -j d for four interleaved values, as (d.im, -d.re).
SONVEL_LANES_TARGET inline V times_minus_j(V d) {
    return _mm256_sign_epi32(swap_parts(d), _mm256_setr_epi32(1, -1, 1, -1, 1, -1, 1, -1));
}

// The lowest and highest input word seen so far, for the headroom of the whole input.
struct Range {
    V lo;
    V hi;
    SONVEL_LANES_TARGET V add(V x) {
        lo = _mm256_min_epi32(lo, x);
        hi = _mm256_max_epi32(hi, x);
        return x;
    }
    SONVEL_LANES_TARGET int headroom() const {
        __m128i l = _mm_min_epi32(_mm256_castsi256_si128(lo), _mm256_extracti128_si256(lo, 1));
        __m128i h = _mm_max_epi32(_mm256_castsi256_si128(hi), _mm256_extracti128_si256(hi, 1));
        l = _mm_min_epi32(l, _mm_shuffle_epi32(l, 0x4E));
        h = _mm_max_epi32(h, _mm_shuffle_epi32(h, 0x4E));
        l = _mm_min_epi32(l, _mm_shuffle_epi32(l, 0xB1));
        h = _mm_max_epi32(h, _mm_shuffle_epi32(h, 0xB1));
        return range_headroom(_mm_cvtsi128_si32(l), _mm_cvtsi128_si32(h));
    }
};

template <bool Swap>
SONVEL_LANES_TARGET int first_stage4(const int32_t *src, int32_t *dst, const Layout &p, int guard) {
    const int stride = p.n / 4;
    const __m128i g = _mm_cvtsi32_si128(guard);
    Range range{_mm256_setzero_si256(), _mm256_setzero_si256()};
    for (int o = 0; o < stride; o += 4) {
        V d[4];
        for (int q = 0; q < 4; ++q) {
            const V x = range.add(load(src + 2 * (o + q * stride)));
            d[q] = _mm256_sll_epi32(Swap ? swap_parts(x) : x, g);
        }
        const V s02 = _mm256_add_epi32(d[0], d[2]);
        const V d02 = _mm256_sub_epi32(d[0], d[2]);
        const V s13 = _mm256_add_epi32(d[1], d[3]);
        const V u = times_minus_j(_mm256_sub_epi32(d[1], d[3]));
        const V o0 = _mm256_add_epi32(s02, s13);
        const V o1 = _mm256_add_epi32(d02, u);
        const V o2 = _mm256_sub_epi32(s02, s13);
        const V o3 = _mm256_sub_epi32(d02, u);
        // Transpose: butterfly i's four results are contiguous at its output position.
        const V t0 = _mm256_unpacklo_epi64(o0, o1);
        const V t1 = _mm256_unpackhi_epi64(o0, o1);
        const V t2 = _mm256_unpacklo_epi64(o2, o3);
        const V t3 = _mm256_unpackhi_epi64(o2, o3);
        int32_t *y = dst + 2 * p.firstOut[o / 4];
        const int step = 2 * stride;
        store(y, _mm256_permute2x128_si256(t0, t2, 0x20));
        store(y + step, _mm256_permute2x128_si256(t1, t3, 0x20));
        store(y + 2 * step, _mm256_permute2x128_si256(t0, t2, 0x31));
        store(y + 3 * step, _mm256_permute2x128_si256(t1, t3, 0x31));
    }
    return range.headroom();
}

template <bool Swap>
SONVEL_LANES_TARGET int first_stage2(const int32_t *src, int32_t *dst, const Layout &p, int guard) {
    const int stride = p.n / 2;
    const int step = 2 * (p.n / 4);
    const __m128i g = _mm_cvtsi32_si128(guard);
    Range range{_mm256_setzero_si256(), _mm256_setzero_si256()};
    for (int o = 0; o < stride; o += 4) {
        V a = range.add(load(src + 2 * o));
        V b = range.add(load(src + 2 * (o + stride)));
        a = _mm256_sll_epi32(Swap ? swap_parts(a) : a, g);
        b = _mm256_sll_epi32(Swap ? swap_parts(b) : b, g);
        const V s = _mm256_add_epi32(a, b);
        const V d = _mm256_sub_epi32(a, b);
        const V t0 = _mm256_unpacklo_epi64(s, d);
        const V t1 = _mm256_unpackhi_epi64(s, d);
        int32_t *y = dst + 2 * p.firstOut[o / 4];
        store2x2(y, y + 2 * step, t0);
        store2x2(y + step, y + 3 * step, t1);
    }
    return range.headroom();
}

// ---- Radix-4 stages: 64-bit lanes, one complex value per lane. ----

// Four complex values as 64-bit re and im lanes.
struct C4 {
    V re;
    V im;
};

// x * 2^kProductBits: the even 32-bit lanes sign-extended and scaled.
SONVEL_LANES_TARGET inline C4 widen(V x) {
    const V scale = _mm256_set1_epi64x(int64_t{1} << kProductBits);
    return {_mm256_mul_epi32(x, scale), _mm256_mul_epi32(_mm256_srli_epi64(x, 32), scale)};
}

// The rounded twiddle products below carry kOffset = 2^36: the sums of products are biased by
// 2^63 into [0, 2^64), so that the logical shift acts as the arithmetic one, and the bias
// stays in the result. Through the four-point DFT the offsets of inputs 1..3 add up to
// +3 kOffset in output 0 and to -kOffset in outputs 1..3, so kOffset added to input 0 (with the
// rounding half: lead()) leaves outputs 1..3 exact and output 0 4 kOffset = 2^38 too high, which
// only the bits from 38 on see: a rounding by 2^-6 keeps bits 6..37 and ignores it, any other
// one takes it back (fix0()). Every kept bit is the portable stages' one.
constexpr int kProductShift = 31 - kProductBits;
constexpr int64_t kOffset = int64_t{1} << (63 - kProductShift);
constexpr int64_t kFix0 = -4 * kOffset;

// x * w * 2^kProductBits + kOffset for four values and twiddles (both interleaved re, im),
// rounded to nearest.
SONVEL_LANES_TARGET inline C4 twiddle(V x, V w) {
    const V bias = _mm256_set1_epi64x(INT64_MIN + (int64_t{1} << (kProductShift - 1)));
    const V xi = _mm256_srli_epi64(x, 32);
    const V wi = _mm256_srli_epi64(w, 32);
    const V re = _mm256_sub_epi64(_mm256_mul_epi32(x, w), _mm256_mul_epi32(xi, wi));
    const V im = _mm256_add_epi64(_mm256_mul_epi32(x, wi), _mm256_mul_epi32(xi, w));
    return {_mm256_srli_epi64(_mm256_add_epi64(re, bias), kProductShift),
            _mm256_srli_epi64(_mm256_add_epi64(im, bias), kProductShift)};
}

// The twiddled values, with the 32-bit lanes of KZeroMask (k = 0) negated first: their twiddle
// in the plan is -1 exactly, (-2^31, 0), and (-x) (-2^31) 2^-27 = 16 x leaves nothing to round,
// so they come out as widen(x) + kOffset like every other product. The negation cannot wrap:
// with the headroom the vectorised stages demand, a word between stages stays below
// sqrt(2) 2^30 (plus a few units of rounding), far from -2^31.
template <int KZeroMask>
SONVEL_LANES_TARGET inline C4 twiddle_k(V x, V w) {
    if constexpr (KZeroMask == 0) {
        return twiddle(x, w);
    } else {
        constexpr auto sign = [](int lane) { return (KZeroMask >> lane) & 1 ? -1 : 1; };
        const V neg = _mm256_setr_epi32(sign(0), sign(1), sign(2), sign(3), sign(4), sign(5),
                                        sign(6), sign(7));
        return twiddle(_mm256_sign_epi32(x, neg), w);
    }
}

SONVEL_LANES_TARGET inline C4 add(C4 a, C4 b) {
    return {_mm256_add_epi64(a.re, b.re), _mm256_add_epi64(a.im, b.im)};
}
SONVEL_LANES_TARGET inline C4 sub(C4 a, C4 b) {
    return {_mm256_sub_epi64(a.re, b.re), _mm256_sub_epi64(a.im, b.im)};
}

// Four-point DFT with W_4 = -j.
SONVEL_LANES_TARGET inline void radix4(C4 (&a)[4]) {
    const C4 s02 = add(a[0], a[2]);
    const C4 d02 = sub(a[0], a[2]);
    const C4 s13 = add(a[1], a[3]);
    const C4 d13 = sub(a[1], a[3]);
    a[0] = add(s02, s13);
    a[2] = sub(s02, s13);
    a[1] = {_mm256_add_epi64(d02.re, d13.im), _mm256_sub_epi64(d02.im, d13.re)};
    a[3] = {_mm256_sub_epi64(d02.re, d13.im), _mm256_add_epi64(d02.im, d13.re)};
}

// Rounding by 2^-shift of sums that carry lead() and, in output 0, fix0() already, for values
// that fit after it. lo() leaves the result in the low 32 bits of each 64-bit lane (logical
// shift right); hi() leaves it in the high 32 bits (shift left by 32 - shift: the high half then
// holds bits shift..shift+31 of the sum, the same word).
struct RoundPlain {
    V lead_;            // 2^(shift-1) + kOffset
    __m128i count;      // shift
    __m128i countHigh;  // 32 - shift
    SONVEL_LANES_TARGET V lead() const { return lead_; }
    SONVEL_LANES_TARGET static V fix0() { return _mm256_set1_epi64x(kFix0); }
    SONVEL_LANES_TARGET V lo(V v) const { return _mm256_srl_epi64(v, count); }
    SONVEL_LANES_TARGET V hi(V v) const { return _mm256_sll_epi64(v, countHigh); }
};

// The middle stages' rounding by 2^-6 with immediate shift counts; output 0 needs no fix.
struct RoundMiddle {
    static constexpr int kShift = kProductBits + 2;
    static_assert(kShift + 32 == 38, "output 0's excess must lie above the kept bits");
    SONVEL_LANES_TARGET static V lead() {
        return _mm256_set1_epi64x((int64_t{1} << (kShift - 1)) + kOffset);
    }
    SONVEL_LANES_TARGET V lo(V v) const { return _mm256_srli_epi64(v, kShift); }
    SONVEL_LANES_TARGET V hi(V v) const { return _mm256_slli_epi64(v, 32 - kShift); }
};

// Rounding by 2^-shift clamped to the 32-bit range first (shift <= 31). The sums carry
// top = 2^(31+shift) more, so that the rounded values fit exactly when the sums lie in
// [0, 2^(32+shift)).
struct RoundClamp {
    V lead_;  // 2^(shift-1) + kOffset + top
    V top;    // 2^(31+shift)
    __m128i count;
    __m128i countHigh;
    V hi32;     // 2^(31+shift) - 1
    V lo32;     // -2^(31+shift)
    V outside;  // bits 32+shift..63
    SONVEL_LANES_TARGET V lead() const { return lead_; }
    SONVEL_LANES_TARGET static V fix0() { return _mm256_set1_epi64x(kFix0); }
    SONVEL_LANES_TARGET V clamped(V v) const {
        V r = _mm256_sub_epi64(v, top);
        r = _mm256_blendv_epi8(r, hi32, _mm256_cmpgt_epi64(r, hi32));
        return _mm256_blendv_epi8(r, lo32, _mm256_cmpgt_epi64(lo32, r));
    }
    SONVEL_LANES_TARGET V lo(V v) const { return _mm256_srl_epi64(clamped(v), count); }
    SONVEL_LANES_TARGET V hi(V v) const { return _mm256_sll_epi64(clamped(v), countHigh); }
};

// Rounded re and im lanes interleaved again as 32-bit (re, im), or (im, re) with Swap.
template <bool Swap, class Round>
SONVEL_LANES_TARGET inline V pack(V re, V im, const Round &round) {
    return Swap ? _mm256_blend_epi32(round.lo(im), round.hi(re), 0xAA)
                : _mm256_blend_epi32(round.lo(re), round.hi(im), 0xAA);
}

// The four rounded outputs of the butterflies interleaved again.
template <bool Swap, class Round>
SONVEL_LANES_TARGET inline void pack_all(V (&d)[4], const C4 (&a)[4], const Round &round) {
    for (int q = 0; q < 4; ++q) d[q] = pack<Swap>(a[q].re, a[q].im, round);
}

// The same with the clamp, which rarely acts: when every sum lies in [0, 2^(32+shift)) the
// rounded values fit and are the low 32 bits of the sum's shift with the sign bit flipped back;
// one test of all of them then replaces the comparisons.
template <bool Swap>
SONVEL_LANES_TARGET inline void pack_all(V (&d)[4], const C4 (&a)[4], const RoundClamp &round) {
    V any = _mm256_setzero_si256();
    for (int q = 0; q < 4; ++q) any = _mm256_or_si256(any, _mm256_or_si256(a[q].re, a[q].im));
    if (!_mm256_testz_si256(any, round.outside)) return pack_all<Swap, RoundClamp>(d, a, round);
    const V flip = _mm256_set1_epi32(INT32_MIN);
    for (int q = 0; q < 4; ++q) {
        const V lo = _mm256_srl_epi64(Swap ? a[q].im : a[q].re, round.count);
        const V hi = _mm256_sll_epi64(Swap ? a[q].re : a[q].im, round.countHigh);
        d[q] = _mm256_xor_si256(_mm256_blend_epi32(lo, hi, 0xAA), flip);
    }
}

// Four butterflies: inputs d[q], twiddles w[q - 1], results interleaved 32-bit.
template <int KZeroMask, bool Swap, class Round>
SONVEL_LANES_TARGET inline void butterflies(V (&d)[4], const V (&w)[3], const Round &round) {
    const C4 lead{round.lead(), round.lead()};
    C4 a[4] = {add(widen(d[0]), lead), twiddle_k<KZeroMask>(d[1], w[0]),
               twiddle_k<KZeroMask>(d[2], w[1]), twiddle_k<KZeroMask>(d[3], w[2])};
    radix4(a);
    if constexpr (!std::is_same_v<Round, RoundMiddle>) {
        a[0] = add(a[0], C4{round.fix0(), round.fix0()});
    }
    pack_all<Swap>(d, a, round);
}

// A radix-4 stage with m >= 4: four consecutive k of one group per step.
template <bool Swap, class Round>
SONVEL_LANES_TARGET void stage_wide(int32_t *dat, int n, int m, const int32_t *tw,
                                    const Round &round) {
    const int32_t *w1 = tw;
    const int32_t *w2 = tw + 2 * m;
    const int32_t *w3 = tw + 4 * m;
    for (int base = 0; base < n; base += 4 * m) {
        int32_t *x = dat + 2 * base;
        for (int k = 0; k < m; k += 4) {
            int32_t *y = x + 2 * k;
            V d[4] = {load(y), load(y + 2 * m), load(y + 4 * m), load(y + 6 * m)};
            const V w[3] = {load(w1 + 2 * k), load(w2 + 2 * k), load(w3 + 2 * k)};
            if (k == 0) {
                butterflies<0x03, Swap>(d, w, round);
            } else {
                butterflies<0, Swap>(d, w, round);
            }
            for (int q = 0; q < 4; ++q) store(y + 2 * q * m, d[q]);
        }
    }
}

// A radix-4 stage with m = 2: both k of two groups per step.
template <bool Swap, class Round>
SONVEL_LANES_TARGET void stage_pairs(int32_t *dat, int n, const int32_t *tw, const Round &round) {
    constexpr int m = 2;
    const V w[3] = {
        _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i *>(tw))),
        _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i *>(tw + 4))),
        _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i *>(tw + 8)))};
    for (int base = 0; base < n; base += 8 * m) {
        int32_t *x = dat + 2 * base;
        int32_t *z = x + 8 * m;
        V d[4];
        for (int q = 0; q < 4; ++q) d[q] = load2x2(x + 2 * q * m, z + 2 * q * m);
        butterflies<0x33, Swap>(d, w, round);
        for (int q = 0; q < 4; ++q) store2x2(x + 2 * q * m, z + 2 * q * m, d[q]);
    }
}

template <bool Swap, class Round>
SONVEL_LANES_TARGET void stage(int32_t *d, const Plan &p, const Layout &l, int s,
                               const Round &round) {
    const int m = l.firstRadix << (2 * (s - 1));
    const int32_t *tw = p.tw + l.twOffset[s];
    if (m == 2) {
        stage_pairs<Swap>(d, l.n, tw, round);
    } else {
        stage_wide<Swap>(d, l.n, m, tw, round);
    }
}

}  // namespace

SONVEL_LANES_TARGET int first_stage(const int32_t *src, int32_t *dst, const Layout &p, int guard,
                                    bool swap) {
    if (p.firstRadix == 4) {
        return swap ? first_stage4<true>(src, dst, p, guard)
                    : first_stage4<false>(src, dst, p, guard);
    }
    return swap ? first_stage2<true>(src, dst, p, guard) : first_stage2<false>(src, dst, p, guard);
}

SONVEL_LANES_TARGET void middle_stage(int32_t *d, const Plan &p, const Layout &l, int s) {
    stage<false>(d, p, l, s, RoundMiddle{});
}

template <class Round>
SONVEL_LANES_TARGET void last_stage_with(int32_t *d, const Plan &p, const Layout &l, bool swap,
                                         const Round &round) {
    if (swap) {
        stage<true>(d, p, l, l.stages - 1, round);
    } else {
        stage<false>(d, p, l, l.stages - 1, round);
    }
}

SONVEL_LANES_TARGET void last_stage(int32_t *d, const Plan &p, const Layout &l, int shift,
                                    bool swap, bool fits) {
    const int64_t half = (int64_t{1} << (shift - 1)) + kOffset;
    const __m128i count = _mm_cvtsi32_si128(shift);
    const __m128i countHigh = _mm_cvtsi32_si128(32 - shift);
    if (fits || shift >= kUnclampedShift) {
        last_stage_with(d, p, l, swap, RoundPlain{_mm256_set1_epi64x(half), count, countHigh});
    } else {
        const int64_t top = int64_t{1} << (31 + shift);
        const RoundClamp round{_mm256_set1_epi64x(half + top),
                               _mm256_set1_epi64x(top),
                               count,
                               countHigh,
                               _mm256_set1_epi64x(top - 1),
                               _mm256_set1_epi64x(-top),
                               _mm256_set1_epi64x(-2 * top)};
        last_stage_with(d, p, l, swap, round);
    }
}

}  // namespace sonvel::fft::simd

#elif !defined(__aarch64__)

namespace sonvel::fft::simd {

int first_stage(const int32_t *, int32_t *, const Layout &, int, bool) { return 0; }
void middle_stage(int32_t *, const Plan &, const Layout &, int) {}
void last_stage(int32_t *, const Plan &, const Layout &, int, bool, bool) {}

}  // namespace sonvel::fft::simd

#endif
