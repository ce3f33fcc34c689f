// AVX2 steps of the FFT service's real-data paths: four bins (or eight words) per step, 64-bit
// lanes for the split and merge arithmetic, bit for bit the portable steps.
//
// The split and merge steps read each complex value as one 64-bit lane (re in the low, im in the
// high half): the 32 x 32-bit products take the low halves, so no value is widened, and results
// that are known to fit 32 bits are taken from the bits a shift brings into the half they belong
// to.
#include "spectral/fft/fft_real_simd.h"

#if defined(__x86_64__) && defined(__GNUC__)

#include <immintrin.h>

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

SONVEL_LANES_TARGET inline uint32_t or_lanes(V bits) {
    __m128i b = _mm_or_si128(_mm256_castsi256_si128(bits), _mm256_extracti128_si256(bits, 1));
    b = _mm_or_si128(b, _mm_shuffle_epi32(b, 0x4E));
    b = _mm_or_si128(b, _mm_shuffle_epi32(b, 0xB1));
    return static_cast<uint32_t>(_mm_cvtsi128_si32(b));
}
SONVEL_LANES_TARGET inline V magnitude(V x) {
    return _mm256_xor_si256(x, _mm256_srai_epi32(x, 31));
}
// The OR of the magnitude bits of all words between the lanes of lo and hi (lane by lane the
// least and the greatest word seen): the magnitudes of the two extremes have the highest bit
// of any word's magnitude.
SONVEL_LANES_TARGET inline uint32_t extreme_bits(V lo, V hi) {
    return or_lanes(_mm256_or_si256(magnitude(lo), magnitude(hi)));
}

// Four bins (re, im) as 64-bit lanes, the last one first.
SONVEL_LANES_TARGET inline V reversed(const int32_t *p) {
    return _mm256_permute4x64_epi64(load(p), 0x1B);
}
// re and im exchanged in each lane: the imaginary parts in the low halves.
SONVEL_LANES_TARGET inline V swapped(V x) { return _mm256_shuffle_epi32(x, 0xB1); }
// Products of the low halves of two lanes' 64 bits.
SONVEL_LANES_TARGET inline V mul(V a, V b) { return _mm256_mul_epi32(a, b); }

// Bins k..k+3 as lanes a, their partners M-k..M-k-3 as lanes b and W_N^k..k+3 as lanes w.
struct Quad {
    V a, as;  // as, bs, ws: re and im exchanged
    V b, bs;
    V w, ws;
};
SONVEL_LANES_TARGET inline Quad quad(const int32_t *a, const int32_t *b, const int32_t *w) {
    const V va = load(a), vb = reversed(b), vw = load(w);
    return {va, swapped(va), vb, swapped(vb), vw, swapped(vw)};
}

// Twiddle products before rounding, 2^31 t in the portable step's terms. Forward (w' = (wi,
// -wr)), D = A - conj B may not fit 32 bits (the spectrum's words reach sqrt(2) 2^30), so t is
// w' A - w' conj B, every factor 32 bits: re = (ar - br) wi + (ai + bi) wr,
// im = (br - ar) wr + (ai + bi) wi. Inverse (w' = (wi, wr)) D fits: re = dr wi - di wr,
// im = dr wr + di wi.
struct Products {
    V re, im;
};
SONVEL_LANES_TARGET inline Products forward_products(const Quad &q) {
    const V re = _mm256_add_epi64(_mm256_sub_epi64(mul(q.a, q.ws), mul(q.b, q.ws)),
                                  _mm256_add_epi64(mul(q.as, q.w), mul(q.bs, q.w)));
    const V im = _mm256_add_epi64(_mm256_sub_epi64(mul(q.b, q.w), mul(q.a, q.w)),
                                  _mm256_add_epi64(mul(q.as, q.ws), mul(q.bs, q.ws)));
    return {re, im};
}

// Low and high 32-bit halves of the lanes of lo and hi joined, lane by lane.
SONVEL_LANES_TARGET inline V join(V lo, V hi) { return _mm256_blend_epi32(lo, hi, 0xAA); }

}  // namespace

// The even words of x and y, in order.
SONVEL_LANES_TARGET inline V even_words(V x, V y) {
    const __m256 e = _mm256_shuffle_ps(_mm256_castsi256_ps(x), _mm256_castsi256_ps(y), 0x88);
    return _mm256_permute4x64_epi64(_mm256_castps_si256(e), 0xD8);
}

SONVEL_LANES_TARGET int pack_real(const int32_t *src, int32_t *z, int n) {
    V lo = _mm256_setzero_si256();
    V hi = _mm256_setzero_si256();
    V imag = _mm256_setzero_si256();
    // 32 words (16 complex values) per step; N is a multiple of 16.
#pragma GCC unroll 4
    for (const int32_t *end = src + 2 * n; src != end; src += 32, z += 16) {
        const V w0 = load(src), w1 = load(src + 8), w2 = load(src + 16), w3 = load(src + 24);
        imag = _mm256_or_si256(imag,
                               _mm256_or_si256(_mm256_or_si256(w0, w1), _mm256_or_si256(w2, w3)));
        const V a = even_words(w0, w1), b = even_words(w2, w3);
        store(z, a);
        store(z + 8, b);
        lo = _mm256_min_epi32(lo, _mm256_min_epi32(a, b));
        hi = _mm256_max_epi32(hi, _mm256_max_epi32(a, b));
    }
    const V imMask = _mm256_setr_epi32(0, -1, 0, -1, 0, -1, 0, -1);
    if (!_mm256_testz_si256(imag, imMask)) return -1;
    return fx::hr(static_cast<int32_t>(extreme_bits(lo, hi)));
}

SONVEL_LANES_TARGET void split(const int32_t *spectrum, const int32_t *w, int32_t *dst, int m,
                               int k) {
    const V conj = _mm256_setr_epi32(1, -1, 1, -1, 1, -1, 1, -1);
    constexpr int kT = 31 - kProductBits;
    // t = rnd(P, kT) as (P + bias) >> kT logical, which is t + 2^(63 - kT); the offsets
    // below take the 2^(63 - kT) back and add the final rounding's half.
    const V bias = _mm256_set1_epi64x(INT64_MIN + (int64_t{1} << (kT - 1)));
    const int64_t half = int64_t{1} << (k - 1), back = int64_t{1} << (63 - kT);
    const V plusT = _mm256_set1_epi64x(half - back);   // for S + t
    const V minusT = _mm256_set1_epi64x(half + back);  // for S - t
    const V sixteen = _mm256_set1_epi64x(int64_t{1} << kProductBits);
    const __m128i down = _mm_cvtsi32_si128(k);
    const __m128i up = _mm_cvtsi32_si128(32 - k);
    for (int b = 1; b <= m / 2; b += 4) {
        const Quad q = quad(spectrum + 2 * b, spectrum + 2 * (m - b - 3), w + 2 * b);
        const Products p = forward_products(q);
        const V tr = _mm256_srli_epi64(_mm256_add_epi64(p.re, bias), kT);
        const V ti = _mm256_add_epi64(_mm256_srli_epi64(_mm256_add_epi64(p.im, bias), kT), plusT);
        // S 2^kProductBits = ((ar + br), (ai - bi)) 2^kProductBits.
        const V sr = _mm256_add_epi64(mul(q.a, sixteen), mul(q.b, sixteen));
        const V si = _mm256_sub_epi64(mul(q.as, sixteen), mul(q.bs, sixteen));
        // The results fit 32 bits (k <= 32): the real parts from the bits a logical right shift
        // brings into the low halves, the imaginary parts from those a left shift brings into
        // the high halves. Bin b+i: (S + t); bin M-b-i: (conj S - conj t) turned, i.e.
        // (S.re - t.re, t.im - S.im).
        const V kr = _mm256_srl_epi64(_mm256_add_epi64(_mm256_add_epi64(sr, plusT), tr), down);
        const V jr = _mm256_srl_epi64(_mm256_sub_epi64(_mm256_add_epi64(sr, minusT), tr), down);
        const V ki = _mm256_sll_epi64(_mm256_add_epi64(ti, si), up);
        const V ji = _mm256_sll_epi64(_mm256_sub_epi64(ti, si), up);
        const V j = join(jr, ji);  // bins M-b, M-b-1, .., M-b-3
        const V kk = join(kr, ki);
        // Bins M-b-3..M-b first, then b..b+3 (for b + 3 = M/2 both write bin M/2 alike), each
        // with its conjugate at N - bin: M+b..M+b+3 and N-b-3..N-b (both write bin 3M/2 alike).
        store(dst + 2 * (m - b - 3), _mm256_permute4x64_epi64(j, 0x1B));
        store(dst + 2 * (m + b), _mm256_sign_epi32(j, conj));
        store(dst + 2 * b, kk);
        store(dst + 2 * (2 * m - b - 3),
              _mm256_sign_epi32(_mm256_permute4x64_epi64(kk, 0x1B), conj));
    }
}

SONVEL_LANES_TARGET Merged merge(const int32_t *src, const int32_t *w, int32_t *out, int m) {
    const int n = 2 * m;
    const V conj = _mm256_setr_epi32(1, -1, 1, -1, 1, -1, 1, -1);
    constexpr int kT = 31 - kProductBits;
    const V half = _mm256_set1_epi64x(int64_t{1} << (kT - 1));
    V inLo = _mm256_setzero_si256(), inHi = _mm256_setzero_si256();
    V outBits = _mm256_setzero_si256();
    V differ = _mm256_setzero_si256();
    for (int b = 1; b <= m / 2; b += 4) {
        const Quad q = quad(src + 2 * b, src + 2 * (m - b - 3), w + 2 * b);
        // Recognition: bins N-b-i = conj(bin b+i) and bins M+b+i = conj(bin M-b-i). The lanes
        // cover bins 1..M-1 and M+1..N-1. -(-2^31) wraps here; such an input has no headroom
        // and is refused by it as well.
        differ = _mm256_or_si256(
            differ,
            _mm256_or_si256(
                _mm256_xor_si256(_mm256_sign_epi32(q.a, conj), reversed(src + 2 * (n - b - 3))),
                _mm256_xor_si256(_mm256_sign_epi32(q.b, conj), load(src + 2 * (m + b)))));
        inLo = _mm256_min_epi32(inLo, _mm256_min_epi32(q.a, q.b));
        inHi = _mm256_max_epi32(inHi, _mm256_max_epi32(q.a, q.b));
        // With the headroom, D = (ar - br, ai + bi), S 2^kProductBits = (ar + br, ai - bi)
        // 2^kProductBits and the results fit 32 bits; their low 32 bits are what the 64-bit step
        // gives. (Without it, the words computed here are discarded.)
        const V sum = _mm256_add_epi32(q.a, q.b), dif = _mm256_sub_epi32(q.a, q.b);
        const V dr = dif, di = swapped(sum);
        const V pr = _mm256_sub_epi64(mul(dr, q.ws), mul(di, q.w));
        const V pi = _mm256_add_epi64(mul(dr, q.w), mul(di, q.ws));
        // t's low 32 bits: bits kT.. of P + half, by a right shift into the low halves (re) and
        // a left shift into the high halves (im).
        const V t = join(_mm256_srli_epi64(_mm256_add_epi64(pr, half), kT),
                         _mm256_slli_epi64(_mm256_add_epi64(pi, half), 32 - kT));
        const V s = _mm256_slli_epi32(join(sum, dif), kProductBits);
        const V kk = _mm256_add_epi32(s, t);                          // bins b..b+3
        const V j = _mm256_sign_epi32(_mm256_sub_epi32(s, t), conj);  // bins M-b, .., M-b-3
        store(out + 2 * b, kk);
        store(out + 2 * (m - b - 3), _mm256_permute4x64_epi64(j, 0x1B));
        outBits = _mm256_or_si256(outBits, _mm256_or_si256(magnitude(kk), magnitude(j)));
    }
    return {_mm256_testz_si256(differ, differ) != 0, extreme_bits(inLo, inHi), or_lanes(outBits)};
}

// Four words of p widened to (word, 0) pairs.
SONVEL_LANES_TARGET inline V widened(const int32_t *p) {
    return _mm256_cvtepu32_epi64(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p)));
}

SONVEL_LANES_TARGET void unpack_real(const int32_t *z, int32_t *dst, int m) {
    // Pairs (re, im) of z become (re, 0, im, 0), each word widened without sign; from the front,
    // as the portable loop (M is a multiple of 8; every step reads its words before it stores).
#pragma GCC unroll 4
    for (int t = 0; t < m; t += 8) {
        const V a = widened(z + 2 * t), b = widened(z + 2 * t + 4);
        const V c = widened(z + 2 * t + 8), d = widened(z + 2 * t + 12);
        store(dst + 4 * t, a);
        store(dst + 4 * t + 8, b);
        store(dst + 4 * t + 16, c);
        store(dst + 4 * t + 24, d);
    }
}

SONVEL_LANES_TARGET void round_words(int32_t *v, int n, int k) {
    const V half = _mm256_set1_epi32(1 << (k - 1));
    const __m128i count = _mm_cvtsi32_si128(k);
#pragma GCC unroll 4
    for (int32_t *end = v + n; v != end; v += 32) {
        for (int i = 0; i < 32; i += 8)
            store(v + i, _mm256_sra_epi32(_mm256_add_epi32(load(v + i), half), count));
    }
}

}  // namespace sonvel::fft::simd

#endif
