// Vectorised stages of the FFT service for x86-64 with AVX2: the first two stages fused, one
// sub-transform per lane (exact 32-bit sums of inputs with headroom, then radix 4 on 64-bit
// lanes), the later radix-4 stages on 64-bit lanes, four butterflies per step; the same Q31
// twiddle products, roundings and clamping as the portable stages.
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

// Two complex values to each of two places.
SONVEL_LANES_TARGET inline void store2x2(int32_t *lo, int32_t *hi, V v) {
    _mm_storeu_si128(reinterpret_cast<__m128i *>(lo), _mm256_castsi256_si128(v));
    _mm_storeu_si128(reinterpret_cast<__m128i *>(hi), _mm256_extracti128_si256(v, 1));
}

// Exchange re and im of four complex values.
SONVEL_LANES_TARGET inline V swap_parts(V v) { return _mm256_shuffle_epi32(v, 0xB1); }

// ---- Helpers of the first stage: exact sums on 32-bit lanes (the inputs have headroom). ----

// -j d for four interleaved values, as (d.im, -d.re).
SONVEL_LANES_TARGET inline V times_minus_j(V d) {
    return _mm256_sign_epi32(swap_parts(d), _mm256_setr_epi32(1, -1, 1, -1, 1, -1, 1, -1));
}

// The lowest and highest input word seen so far, for the headroom of the whole input.
struct Range {
    V lo;
    V hi;
    SONVEL_LANES_TARGET static Range start(int) {
        return {_mm256_setzero_si256(), _mm256_setzero_si256()};
    }
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

// In place of Range where the caller knows the input's headroom: the words are not looked at.
struct KnownRange {
    int h;
    static KnownRange start(int known) { return {known}; }
    SONVEL_LANES_TARGET static V add(V x) { return x; }
    int headroom() const { return h; }
};

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

// Butterflies k..k+3 of one group of a radix-4 stage in place at y, their twiddles at w.
template <int KZeroMask, bool Swap, int m, class Round>
SONVEL_LANES_TARGET inline void step(int32_t *y, const int32_t *w, const Round &round) {
    V d[4] = {load(y), load(y + 2 * m), load(y + 4 * m), load(y + 6 * m)};
    butterflies<KZeroMask, Swap>(d, {load(w), load(w + 2 * m), load(w + 4 * m)}, round);
    for (int q = 0; q < 4; ++q) store(y + 2 * q * m, d[q]);
}

// A radix-4 stage after the fused ones (m >= 8): four consecutive k of one group per step.
template <bool Swap, int n, int m, class Round>
SONVEL_LANES_TARGET void stage_wide(int32_t *dat, const int32_t *tw, const Round &round) {
    for (int base = 0; base < n; base += 4 * m) {
        step<0x03, Swap, m>(dat + 2 * base, tw, round);
        for (int k = 4; k < m; k += 4) step<0, Swap, m>(dat + 2 * (base + k), tw + 2 * k, round);
    }
}

// ---- The first two stages fused: each lane works on its own sub-transform. ----
//
// The first stage of radix R and the first radix-4 stage (m = R) together build sub-transforms
// of length L = 4R, each from the inputs x[o + j N/L], j = 0..L-1. Lane i of every vector below
// holds sub-transform o + i (four of them per step), so that the twiddles W_L^{qk} are the same
// in all lanes: the exact ones (1, -j) need no product and those at 45 degrees one product per
// part. The radix-R butterflies add on 32-bit lanes (exact with the headroom), the radix-4 ones
// on 64-bit lanes as in the later stages, and the results are transposed back into place.

// The parts of four interleaved values, each in the low 32 bits of a 64-bit lane (the high bits
// are ignored by the products), re / im exchanged with Swap.
struct Parts {
    V re;
    V im;
};
template <bool Swap>
SONVEL_LANES_TARGET inline Parts parts(V x) {
    const V high = _mm256_srli_epi64(x, 32);
    return Swap ? Parts{high, x} : Parts{x, high};
}

SONVEL_LANES_TARGET inline V round_product(V v) {
    const V bias = _mm256_set1_epi64x(INT64_MIN + (int64_t{1} << (kProductShift - 1)));
    return _mm256_srli_epi64(_mm256_add_epi64(v, bias), kProductShift);
}

// The factor of the widened values, 2^(kProductBits + bits): the first stage's guard bits can
// be applied here instead of to its 32-bit results (the same value when those fit 32 bits, as
// they do whenever the results count), up to kMaxScaleBits of them (the factor is a 32-bit word).
inline constexpr int kMaxScaleBits = 30 - kProductBits;
struct Scale {
    V up;    // 2^(kProductBits + bits) in every 64-bit lane
    V down;  // -2^(kProductBits + bits)
};
SONVEL_LANES_TARGET inline Scale scale_by(int bits) {
    const int64_t f = int64_t{1} << (kProductBits + bits);
    return {_mm256_set1_epi64x(f), _mm256_set1_epi64x(-f)};
}

// x * 2^kProductBits (times 2^bits of the scale).
template <bool Swap>
SONVEL_LANES_TARGET inline C4 widen_parts(V x, const Scale &scale) {
    const Parts p = parts<Swap>(x);
    return {_mm256_mul_epi32(p.re, scale.up), _mm256_mul_epi32(p.im, scale.up)};
}

// -j x * 2^kProductBits (times 2^bits of the scale) + kOffset (exact, offset like a rounded
// product).
template <bool Swap>
SONVEL_LANES_TARGET inline C4 minus_j(V x, const Scale &scale) {
    const V offset = _mm256_set1_epi64x(kOffset);
    const Parts p = parts<Swap>(x);
    return {_mm256_add_epi64(_mm256_mul_epi32(p.im, scale.up), offset),
            _mm256_add_epi64(_mm256_mul_epi32(p.re, scale.down), offset)};
}

// x * w, rounded like twiddle(), for the same w = (wr, wi) in every lane.
template <bool Swap>
SONVEL_LANES_TARGET inline C4 twiddle_all(V x, const int32_t *w) {
    const V wr = _mm256_set1_epi32(w[0]);
    const V wi = _mm256_set1_epi32(w[1]);
    const Parts p = parts<Swap>(x);
    const V re = _mm256_sub_epi64(_mm256_mul_epi32(p.re, wr), _mm256_mul_epi32(p.im, wi));
    const V im = _mm256_add_epi64(_mm256_mul_epi32(p.re, wi), _mm256_mul_epi32(p.im, wr));
    return {round_product(re), round_product(im)};
}

// The same for a twiddle at 45 degrees, w = (a, -a) (Anti: (a, a)): x.re w.re - x.im w.im and
// x.re w.im + x.im w.re are a (x.re + x.im) and a (x.im - x.re) (Anti: a (x.re - x.im) and
// a (x.re + x.im)), one product each. The 32-bit sum and difference are exact: the parts come
// from the first stage, at most 2^30 in magnitude with the headroom.
template <bool Swap, bool Anti>
SONVEL_LANES_TARGET inline C4 twiddle_diagonal(V x, const int32_t *w) {
    const V a = _mm256_set1_epi32(w[0]);
    const V other = swap_parts(x);
    const V sum = _mm256_add_epi32(x, other);
    // Low halves: x.im - x.re, or x.re - x.im for Anti (with Swap the halves hold im, re).
    const V diff = Anti != Swap ? _mm256_sub_epi32(x, other) : _mm256_sub_epi32(other, x);
    const V p = _mm256_mul_epi32(Anti ? diff : sum, a);
    const V q = _mm256_mul_epi32(Anti ? sum : diff, a);
    return {round_product(p), round_product(q)};
}

// One radix-4 butterfly of the fused stages: inputs a (inputs 1..3 carry kOffset, or none with
// Exact), rounded by 2^-6 into interleaved 32-bit values.
template <bool Exact>
SONVEL_LANES_TARGET inline void fused_butterfly(C4 (&a)[4], V (&out)[4]) {
    constexpr int64_t kHalf = int64_t{1} << (RoundMiddle::kShift - 1);
    const V lead = _mm256_set1_epi64x(Exact ? kHalf : kHalf + kOffset);
    a[0] = add(a[0], C4{lead, lead});
    radix4(a);
    pack_all<false>(out, a, RoundMiddle{});
}

// Butterfly outputs k (lo) and k + 1 (hi) of the four sub-transforms, each pair stored
// contiguously at element k + R q of sub-transform i (at y[i]).
SONVEL_LANES_TARGET inline void store_pairs(int32_t *const (&y)[4], int element, int stride,
                                            const V (&lo)[4], const V (&hi)[4]) {
    for (int q = 0; q < 4; ++q) {
        const V even = _mm256_unpacklo_epi64(lo[q], hi[q]);  // sub-transforms 0 and 2
        const V odd = _mm256_unpackhi_epi64(lo[q], hi[q]);   // sub-transforms 1 and 3
        const int at = 2 * (element + q * stride);
        store2x2(y[0] + at, y[2] + at, even);
        store2x2(y[1] + at, y[3] + at, odd);
    }
}

// R = 2: x[o + q N/8 + t N/2] (t = 0, 1) for the butterflies q = 0..3 (N/8 apart), times
// 2^rest with Rest, else without the guard bits.
template <int n, bool Rest, class R>
SONVEL_LANES_TARGET V first_pair(const int32_t *src, int q, R &range, const __m128i rest, V &diff) {
    const V a = range.add(load(src + 2 * (q * n / 8)));
    const V b = range.add(load(src + 2 * (q * n / 8 + n / 2)));
    diff = _mm256_sub_epi32(a, b);
    const V sum = _mm256_add_epi32(a, b);
    if constexpr (Rest) {
        diff = _mm256_sll_epi32(diff, rest);
        return _mm256_sll_epi32(sum, rest);
    }
    return sum;
}

template <bool Swap, int n, bool Rest, class R>
SONVEL_LANES_TARGET int first_stages2_with(const int32_t *src, int32_t *dst, const Layout &l,
                                           const int32_t *tw, int guard, int known) {
    const int scaled = Rest ? kMaxScaleBits : guard;
    const __m128i g = _mm_cvtsi32_si128(scaled);
    const __m128i rest = _mm_cvtsi32_si128(guard - scaled);
    R range = R::start(known);
    // W_8^1 = (a, -a), W_8^2 = -j, W_8^3 = (-a, -a): q k = 1, 2, 3 (m = 2 words per q).
    const int32_t *w1 = tw + 2;
    const int32_t *w3 = tw + 2 * (2 * 2) + 2;
    // The guard bits go into the scale of the widened values and -j d, into the 32-bit words only
    // where the 45-degree twiddles read them; with Rest those beyond kMaxScaleBits into all sums.
    const Scale scale = scale_by(scaled);
    for (int o = 0; o < n / 8; o += 4) {
        V e[4], d[4];  // outputs 0 and 1 of the radix-2 butterflies q
        for (int q = 0; q < 4; ++q) e[q] = first_pair<n, Rest>(src + 2 * o, q, range, rest, d[q]);
        C4 a[4] = {widen_parts<Swap>(e[0], scale), widen_parts<Swap>(e[1], scale),
                   widen_parts<Swap>(e[2], scale), widen_parts<Swap>(e[3], scale)};
        V lo[4], hi[4];
        fused_butterfly<true>(a, lo);
        C4 b[4] = {widen_parts<Swap>(d[0], scale),
                   twiddle_diagonal<Swap, false>(_mm256_sll_epi32(d[1], g), w1),
                   minus_j<Swap>(d[2], scale),
                   twiddle_diagonal<Swap, true>(_mm256_sll_epi32(d[3], g), w3)};
        fused_butterfly<false>(b, hi);
        int32_t *const y[4] = {dst + 2 * l.firstOut[o / 4], dst + 2 * (l.firstOut[o / 4] + n / 4),
                               dst + 2 * (l.firstOut[o / 4] + n / 2),
                               dst + 2 * (l.firstOut[o / 4] + 3 * n / 4)};
        store_pairs(y, 0, 2, lo, hi);
    }
    return range.headroom();
}

template <bool Swap, int n, class R>
SONVEL_LANES_TARGET int first_stages2(const int32_t *src, int32_t *dst, const Layout &l,
                                      const int32_t *tw, int guard, int known) {
    return guard > kMaxScaleBits
               ? first_stages2_with<Swap, n, true, R>(src, dst, l, tw, guard, known)
               : first_stages2_with<Swap, n, false, R>(src, dst, l, tw, guard, known);
}

// R = 4: the four-point DFTs of x[o + q N/16 + t N/4] (t = 0..3) for q = 0..3, times 2^guard.
// With Swap the lanes hold (im, re) of the transform's input: -j becomes +j on them.
template <bool Swap, int n, class R>
SONVEL_LANES_TARGET void first_quad(const int32_t *src, int q, R &range, const __m128i g,
                                    V (&y)[4]) {
    V x[4];
    for (int t = 0; t < 4; ++t) x[t] = range.add(load(src + 2 * (q * n / 16 + t * n / 4)));
    const V s02 = _mm256_add_epi32(x[0], x[2]);
    const V d02 = _mm256_sub_epi32(x[0], x[2]);
    const V s13 = _mm256_add_epi32(x[1], x[3]);
    const V d13 = _mm256_sub_epi32(x[1], x[3]);
    const V u =
        Swap ? _mm256_sign_epi32(swap_parts(d13), _mm256_setr_epi32(-1, 1, -1, 1, -1, 1, -1, 1))
             : times_minus_j(d13);
    y[0] = _mm256_sll_epi32(_mm256_add_epi32(s02, s13), g);
    y[1] = _mm256_sll_epi32(_mm256_add_epi32(d02, u), g);
    y[2] = _mm256_sll_epi32(_mm256_sub_epi32(s02, s13), g);
    y[3] = _mm256_sll_epi32(_mm256_sub_epi32(d02, u), g);
}

template <bool Swap, int n, class R>
SONVEL_LANES_TARGET int first_stages4(const int32_t *src, int32_t *dst, const Layout &l,
                                      const int32_t *tw, int guard, int known) {
    const __m128i g = _mm_cvtsi32_si128(guard);
    R range = R::start(known);
    const Scale scale = scale_by(0);
    // W_16^{qk} sits at tw + 2 ((q - 1) 4 + k); W_16^2 = (a, -a), W_16^4 = -j, W_16^6 = (-a, -a).
    const auto w = [tw](int q, int k) { return tw + 2 * ((q - 1) * 4 + k); };
    for (int o = 0; o < n / 16; o += 4) {
        V y[4][4];  // output k of the four-point DFT q
        for (int q = 0; q < 4; ++q) first_quad<Swap, n>(src + 2 * o, q, range, g, y[q]);
        int32_t *const at[4] = {dst + 2 * l.firstOut[o / 4], dst + 2 * (l.firstOut[o / 4] + n / 4),
                                dst + 2 * (l.firstOut[o / 4] + n / 2),
                                dst + 2 * (l.firstOut[o / 4] + 3 * n / 4)};
        V lo[4], hi[4];
        C4 a0[4] = {widen_parts<Swap>(y[0][0], scale), widen_parts<Swap>(y[1][0], scale),
                    widen_parts<Swap>(y[2][0], scale), widen_parts<Swap>(y[3][0], scale)};
        fused_butterfly<true>(a0, lo);
        C4 a1[4] = {widen_parts<Swap>(y[0][1], scale), twiddle_all<Swap>(y[1][1], w(1, 1)),
                    twiddle_diagonal<Swap, false>(y[2][1], w(2, 1)),
                    twiddle_all<Swap>(y[3][1], w(3, 1))};
        fused_butterfly<false>(a1, hi);
        store_pairs(at, 0, 4, lo, hi);
        C4 a2[4] = {widen_parts<Swap>(y[0][2], scale),
                    twiddle_diagonal<Swap, false>(y[1][2], w(1, 2)), minus_j<Swap>(y[2][2], scale),
                    twiddle_diagonal<Swap, true>(y[3][2], w(3, 2))};
        fused_butterfly<false>(a2, lo);
        C4 a3[4] = {widen_parts<Swap>(y[0][3], scale), twiddle_all<Swap>(y[1][3], w(1, 3)),
                    twiddle_diagonal<Swap, true>(y[2][3], w(2, 3)),
                    twiddle_all<Swap>(y[3][3], w(3, 3))};
        fused_butterfly<false>(a3, hi);
        store_pairs(at, 2, 4, lo, hi);
    }
    return range.headroom();
}

template <bool Swap, class Round>
SONVEL_LANES_TARGET void stage(int32_t *d, const Plan &p, const Layout &l, int s,
                               const Round &round) {
    const int32_t *tw = p.tw + l.twOffset[s];
    with_stage(l, s, Swap, [&](auto n, auto m, auto) { stage_wide<Swap, n, m>(d, tw, round); });
}

}  // namespace

SONVEL_LANES_TARGET int first_stages(const int32_t *src, int32_t *dst, const Plan &p,
                                     const Layout &l, int guard, bool swap, int known) {
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

int first_stages(const int32_t *, int32_t *, const Plan &, const Layout &, int, bool, int) {
    return 0;
}
void middle_stage(int32_t *, const Plan &, const Layout &, int) {}
void last_stage(int32_t *, const Plan &, const Layout &, int, bool, bool) {}

}  // namespace sonvel::fft::simd

#endif
