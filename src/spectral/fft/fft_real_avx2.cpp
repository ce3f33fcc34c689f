// AVX2 steps of the FFT service's real-data paths: four bins (or eight words) per step, 64-bit
// lanes for the split and merge arithmetic, bit for bit the portable steps.
#include "spectral/fft/fft_real_simd.h"

#if defined(__x86_64__) && defined(__GNUC__)

#include <immintrin.h>

#include <initializer_list>

#include "fixedpoint/block_float.h"
#include "spectral/fft/fft_butterflies.h"
#include "spectral/processor.h"

namespace sonvel::fft::simd {
namespace {

using V = __m256i;

SONVEL_LANES_TARGET inline V load(const int32_t *p) {
    return _mm256_loadu_si256(reinterpret_cast<const V *>(p));
}
SONVEL_LANES_TARGET inline void store(int32_t *p, V v) {
    _mm256_storeu_si256(reinterpret_cast<V *>(p), v);
}

// Headroom of all words whose lanes are set in the OR of their magnitude bits.
SONVEL_LANES_TARGET inline int headroom_of(V bits) {
    __m128i b = _mm_or_si128(_mm256_castsi256_si128(bits), _mm256_extracti128_si256(bits, 1));
    b = _mm_or_si128(b, _mm_shuffle_epi32(b, 0x4E));
    b = _mm_or_si128(b, _mm_shuffle_epi32(b, 0xB1));
    return fx::hr(_mm_cvtsi128_si32(b));
}
SONVEL_LANES_TARGET inline V magnitude(V x) {
    return _mm256_xor_si256(x, _mm256_srai_epi32(x, 31));
}

// Four complex values as 64-bit re and im lanes, in order (Reverse: the last one first).
struct C4 {
    V re;
    V im;
};
template <bool Reverse>
SONVEL_LANES_TARGET inline C4 load4(const int32_t *p) {
    const V idx = Reverse ? _mm256_setr_epi32(6, 4, 2, 0, 7, 5, 3, 1)
                          : _mm256_setr_epi32(0, 2, 4, 6, 1, 3, 5, 7);
    const V x = _mm256_permutevar8x32_epi32(load(p), idx);
    return {_mm256_cvtepi32_epi64(_mm256_castsi256_si128(x)),
            _mm256_cvtepi32_epi64(_mm256_extracti128_si256(x, 1))};
}

// Arithmetic shift right of 64-bit lanes with rounding to nearest (ties up): the bias 2^63
// makes the logical shift act as the arithmetic one and is taken back after it.
template <int Shift>
SONVEL_LANES_TARGET inline V round_shift(V v) {
    const V bias = _mm256_set1_epi64x(INT64_MIN + (int64_t{1} << (Shift - 1)));
    const V back = _mm256_set1_epi64x(int64_t{1} << (63 - Shift));
    return _mm256_sub_epi64(_mm256_srli_epi64(_mm256_add_epi64(v, bias), Shift), back);
}
SONVEL_LANES_TARGET inline V round_shift(V v, int shift) {
    const V bias = _mm256_set1_epi64x(INT64_MIN + (int64_t{1} << (shift - 1)));
    const V back = _mm256_set1_epi64x(int64_t{1} << (63 - shift));
    return _mm256_sub_epi64(_mm256_srl_epi64(_mm256_add_epi64(v, bias), _mm_cvtsi32_si128(shift)),
                            back);
}

// Low 32 bits of re and im lanes interleaved as (re, im) pairs; Reverse puts the last pair first.
template <bool Reverse>
SONVEL_LANES_TARGET inline V interleave(V re, V im) {
    const V v = _mm256_blend_epi32(re, _mm256_slli_epi64(im, 32), 0xAA);
    return Reverse ? _mm256_permute4x64_epi64(v, 0x1B) : v;
}

// One step of four bins k..k+3 with their partners M-k-3..M-k (see the portable step): S 2^4
// and t = w' D with D = A - conj B. Forward, D may not fit 32 bits (the spectrum's words reach
// sqrt(2) 2^30), so t is w' A - w' conj B, every factor 32 bits. Inverse, the input has log2 N
// bits of headroom, D fits 32 bits and t takes half the products.
struct Pair {
    C4 s;  // S 2^kProductBits
    C4 t;
};
SONVEL_LANES_TARGET inline Pair pair(const int32_t *a, const int32_t *b, const int32_t *w,
                                     bool inverse) {
    const C4 A = load4<false>(a);
    const C4 B = load4<true>(b);
    const C4 W = load4<false>(w);
    // w' = (wi, -wr) forward, (wi, wr) inverse.
    const V w0 = W.im;
    const V w1 = inverse ? W.re : _mm256_sub_epi64(_mm256_setzero_si256(), W.re);
    // D = (ar - br, ai + bi); re = D.re w0 - D.im w1, im = D.re w1 + D.im w0.
    V re, im;
    if (inverse) {
        const V dr = _mm256_sub_epi64(A.re, B.re);
        const V di = _mm256_add_epi64(A.im, B.im);
        re = _mm256_sub_epi64(_mm256_mul_epi32(dr, w0), _mm256_mul_epi32(di, w1));
        im = _mm256_add_epi64(_mm256_mul_epi32(dr, w1), _mm256_mul_epi32(di, w0));
    } else {
        re = _mm256_sub_epi64(
            _mm256_sub_epi64(_mm256_mul_epi32(A.re, w0), _mm256_mul_epi32(B.re, w0)),
            _mm256_add_epi64(_mm256_mul_epi32(A.im, w1), _mm256_mul_epi32(B.im, w1)));
        im = _mm256_add_epi64(
            _mm256_sub_epi64(_mm256_mul_epi32(A.re, w1), _mm256_mul_epi32(B.re, w1)),
            _mm256_add_epi64(_mm256_mul_epi32(A.im, w0), _mm256_mul_epi32(B.im, w0)));
    }
    const C4 s{_mm256_slli_epi64(_mm256_add_epi64(A.re, B.re), kProductBits),
               _mm256_slli_epi64(_mm256_sub_epi64(A.im, B.im), kProductBits)};
    return {s, {round_shift<31 - kProductBits>(re), round_shift<31 - kProductBits>(im)}};
}

}  // namespace

SONVEL_LANES_TARGET int pack_real(const int32_t *src, int32_t *z, int n) {
    V bits = _mm256_setzero_si256();
    V imag = _mm256_setzero_si256();
    const V imMask = _mm256_setr_epi32(0, -1, 0, -1, 0, -1, 0, -1);
    const V idx = _mm256_setr_epi32(0, 2, 4, 6, 0, 2, 4, 6);
    for (int i = 0; i < 2 * n; i += 16) {
        const V x = load(src + i);
        const V y = load(src + i + 8);
        bits = _mm256_or_si256(bits, _mm256_or_si256(magnitude(x), magnitude(y)));
        imag = _mm256_or_si256(imag, _mm256_or_si256(x, y));
        const V a = _mm256_permutevar8x32_epi32(x, idx);
        const V b = _mm256_permutevar8x32_epi32(y, idx);
        store(z + i / 2, _mm256_blend_epi32(a, b, 0xF0));
    }
    if (!_mm256_testz_si256(imag, imMask)) return -1;
    return headroom_of(bits);
}

SONVEL_LANES_TARGET int symmetric_input_headroom(const int32_t *src, int n) {
    if (src[1] != 0 || src[n + 1] != 0) return -1;
    const int m = n / 2;
    const V conj = _mm256_setr_epi32(1, -1, 1, -1, 1, -1, 1, -1);
    const V rev = _mm256_setr_epi32(6, 7, 4, 5, 2, 3, 0, 1);
    V bits = _mm256_setzero_si256();
    V differ = _mm256_setzero_si256();
    // Bins k..k+3 against bins N-k-3..N-k reversed, k = 1, 5, ..: the last step reaches bin
    // M+2, whose pair (bin M-2) was compared already; bins 0 and M join the headroom below.
    for (int k = 1; k < m; k += 4) {
        const V a = load(src + 2 * k);
        const V b = _mm256_permutevar8x32_epi32(load(src + 2 * (n - k - 3)), rev);
        // -(-2^31) wraps here; such an input has no headroom and is refused below as well.
        differ = _mm256_or_si256(differ, _mm256_xor_si256(_mm256_sign_epi32(a, conj), b));
        bits = _mm256_or_si256(bits, magnitude(a));
    }
    if (!_mm256_testz_si256(differ, differ)) return -1;
    const int h = headroom_of(bits);
    const int edges = fx::hr((src[0] ^ (src[0] >> 31)) | (src[n] ^ (src[n] >> 31)));
    return h < edges ? h : edges;
}

SONVEL_LANES_TARGET void split(const int32_t *spectrum, const int32_t *w, int32_t *dst, int m,
                               int k) {
    const V conj = _mm256_setr_epi32(1, -1, 1, -1, 1, -1, 1, -1);
    for (int b = 1; b <= m / 2; b += 4) {
        const Pair p = pair(spectrum + 2 * b, spectrum + 2 * (m - b - 3), w + 2 * b, false);
        // Bins M-b-3..M-b first, then b..b+3 (for b + 3 = M/2 both write bin M/2 alike), each
        // with its conjugate at N - bin: M+b..M+b+3 and N-b-3..N-b (both write bin 3M/2 alike).
        const V jr = round_shift(_mm256_sub_epi64(p.s.re, p.t.re), k);
        const V ji = round_shift(_mm256_sub_epi64(p.t.im, p.s.im), k);
        const V j = interleave<false>(jr, ji);  // bins M-b, M-b-1, .., M-b-3
        store(dst + 2 * (m - b - 3), _mm256_permute4x64_epi64(j, 0x1B));
        store(dst + 2 * (m + b), _mm256_sign_epi32(j, conj));
        const V kr = round_shift(_mm256_add_epi64(p.s.re, p.t.re), k);
        const V ki = round_shift(_mm256_add_epi64(p.s.im, p.t.im), k);
        const V b4 = interleave<false>(kr, ki);
        store(dst + 2 * b, b4);
        store(dst + 2 * (2 * m - b - 3),
              _mm256_sign_epi32(_mm256_permute4x64_epi64(b4, 0x1B), conj));
    }
}

SONVEL_LANES_TARGET uint32_t merge(const int32_t *src, const int32_t *w, int32_t *out, int m) {
    V bits = _mm256_setzero_si256();
    for (int b = 1; b <= m / 2; b += 4) {
        const Pair p = pair(src + 2 * b, src + 2 * (m - b - 3), w + 2 * b, true);
        // Partner lanes 0..3 hold bins M-b, M-b-1, .., M-b-3.
        const V j =
            interleave<true>(_mm256_sub_epi64(p.s.re, p.t.re), _mm256_sub_epi64(p.t.im, p.s.im));
        const V k =
            interleave<false>(_mm256_add_epi64(p.s.re, p.t.re), _mm256_add_epi64(p.s.im, p.t.im));
        store(out + 2 * (m - b - 3), j);
        store(out + 2 * b, k);
        bits = _mm256_or_si256(bits, _mm256_or_si256(magnitude(j), magnitude(k)));
    }
    __m128i b = _mm_or_si128(_mm256_castsi256_si128(bits), _mm256_extracti128_si256(bits, 1));
    b = _mm_or_si128(b, _mm_shuffle_epi32(b, 0x4E));
    b = _mm_or_si128(b, _mm_shuffle_epi32(b, 0xB1));
    return static_cast<uint32_t>(_mm_cvtsi128_si32(b));
}

SONVEL_LANES_TARGET void unpack_real(const int32_t *z, int32_t *dst, int m) {
    // Pairs (re, im) of z become (re, 0, im, 0); from the front, as the portable loop.
    const V idx = _mm256_setr_epi32(0, 0, 1, 1, 2, 2, 3, 3);
    const V keep = _mm256_setr_epi32(-1, 0, -1, 0, -1, 0, -1, 0);
    for (int t = 0; t < m; t += 4) {
        const V v = load(z + 2 * t);
        const V a = _mm256_and_si256(_mm256_permutevar8x32_epi32(v, idx), keep);
        const V b = _mm256_and_si256(
            _mm256_permutevar8x32_epi32(v, _mm256_add_epi32(idx, _mm256_set1_epi32(4))), keep);
        store(dst + 4 * t, a);
        store(dst + 4 * t + 8, b);
    }
}

SONVEL_LANES_TARGET void round_words(int32_t *v, int n, int k) {
    const V half = _mm256_set1_epi32(1 << (k - 1));
    const __m128i count = _mm_cvtsi32_si128(k);
    for (int i = 0; i < n; i += 8)
        store(v + i, _mm256_sra_epi32(_mm256_add_epi32(load(v + i), half), count));
}

}  // namespace sonvel::fft::simd

#endif
