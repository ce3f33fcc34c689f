// The linear canceller's loops for x86-64 with AVX2: eight bins, words or samples per step (four
// bins where a step reads interleaved re / im words). Per-bin values that both parts of a bin use
// are loaded once per bin and spread to the bin's two lanes.
#include "linear/linear_loops_vec.h"

#if defined(__x86_64__)

#include "linear/linear_loops.h"
#include "spectral/reciprocal_vec.h"
#include "spectral/simd_avx2.h"

namespace lin::vec {
namespace {

using sp::simd::V;
namespace simd = sp::simd;

SONVEL_LANES_TARGET inline V set1(int32_t v) { return _mm256_set1_epi32(v); }

// Four per-bin values, each repeated for the re and im lanes of its bin.
SONVEL_LANES_TARGET inline V load_pairs(const int32_t *p) {
    const V four = _mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p)));
    return _mm256_permutevar8x32_epi32(four, _mm256_setr_epi32(0, 0, 1, 1, 2, 2, 3, 3));
}

// Eight int16 samples widened to int32 lanes.
SONVEL_LANES_TARGET inline V load_samples(const int16_t *p) {
    return _mm256_cvtepi16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p)));
}

// fx::shift_sat by one count c >= 1 for every lane (cnt holds c for the shift instruction).
SONVEL_LANES_TARGET inline V shift_left_sat(V x, V c, __m128i cnt) {
    const V left = _mm256_sll_epi32(x, cnt);
    const V nonzero_over = _mm256_andnot_si256(_mm256_cmpeq_epi32(x, _mm256_setzero_si256()),
                                               _mm256_cmpgt_epi32(c, simd::hr32(x)));
    return simd::select32(left, simd::sat_bound32(x), nonzero_over);
}

// Smallest lane, and OR of all lanes.
SONVEL_LANES_TARGET inline int32_t min_lane(V v) {
    __m128i m = _mm_min_epi32(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
    m = _mm_min_epi32(m, _mm_shuffle_epi32(m, 0x4E));
    m = _mm_min_epi32(m, _mm_shuffle_epi32(m, 0xB1));
    return _mm_cvtsi128_si32(m);
}

}  // namespace

// Eight bins of the reciprocal of the far-end power.
SONVEL_LANES_TARGET inline void reciprocal8(const int32_t *pow, V qbase, int32_t *man, int32_t *q) {
    const V p = simd::load8(pow);
    const V t = simd::sat_add32(_mm256_sub_epi32(p, _mm256_srai_epi32(p, 2)), set1(1));
    const __m256 inv = sp::recip8(simd::i2f(t));
    const V m = simd::f2i(_mm256_mul_ps(inv, _mm256_set1_ps(2147483648.0f)));
    const V c = simd::hr32(m);
    simd::store8(man, _mm256_sllv_epi32(m, c));
    simd::store8(q, _mm256_add_epi32(c, qbase));
}

// The bins left after the whole steps are done by one more step that ends at the last bin and
// repeats a few bins (the outputs are separate from the input).
SONVEL_LANES_TARGET int32_t reciprocal_far_power(const int32_t *pow, int32_t bins, int32_t s, int32_t *man,
                                     int32_t *q) {
    const V qbase = set1(s + 16);
    int32_t k = 0;
    for (; k + 8 <= bins; k += 8) reciprocal8(pow + k, qbase, man + k, q + k);
    if (k < bins && bins >= 8) {
        reciprocal8(pow + bins - 8, qbase, man + bins - 8, q + bins - 8);
        k = bins;
    }
    return k;
}

SONVEL_LANES_TARGET int32_t normalised_error(const int32_t *e, const int32_t *man, const int32_t *q,
                                 int32_t bins, int32_t *g, int32_t *qg) {
    int32_t k = 0;
    for (; k + 4 <= bins; k += 4) {
        const V x = simd::load8(e + 2 * k);
        const V c = simd::hr32(x);
        const V xn = _mm256_sllv_epi32(x, c);
        const V m = load_pairs(man + k);
        const V re = simd::rnd64(simd::mul_even(m, xn), 32);
        const V im = simd::rnd64(simd::mul_odd(m, xn), 32);
        simd::store8(g + 2 * k, simd::interleave_even(re, im));
        simd::store8(qg + 2 * k, _mm256_add_epi32(c, load_pairs(q + k)));
    }
    return k;
}

// The gain of eight bins from their power and its Q value.
SONVEL_LANES_TARGET inline V gain8(V e2, V qe2) {
    const V m = _mm256_max_epi32(e2, set1(1));
    const V c = _mm256_and_si256(simd::hr32(m), set1(~1));
    const __m256 r = sp::rsqrt8(simd::i2f(_mm256_sllv_epi32(m, c)));
    const __m256 kr = _mm256_mul_ps(_mm256_set1_ps(static_cast<float>(kGain)), r);
    const V v = simd::f2i(_mm256_mul_ps(kr, _mm256_set1_ps(16384.0f)));
    const V half_q = _mm256_srai_epi32(_mm256_add_epi32(qe2, c), 1);
    return simd::shift_sat32(v, _mm256_sub_epi32(half_q, set1(kGainShift)));
}

// In place: the bins left after the whole steps are done by one more step over the last eight
// bins, from their powers as they were before the whole steps overwrote some of them.
SONVEL_LANES_TARGET int32_t constant_magnitude_gain(int32_t *e2, const int32_t *qe2, int32_t bins) {
    const bool tail = bins >= 8 && bins % 8 != 0;
    const V last_e2 = tail ? simd::load8(e2 + bins - 8) : _mm256_setzero_si256();
    int32_t k = 0;
    for (; k + 8 <= bins; k += 8) {
        simd::store8(e2 + k, gain8(simd::load8(e2 + k), simd::load8(qe2 + k)));
    }
    if (tail) {
        simd::store8(e2 + bins - 8, gain8(last_e2, simd::load8(qe2 + bins - 8)));
        k = bins;
    }
    return k;
}

SONVEL_LANES_TARGET int32_t apply_gain(int32_t *g, const int32_t *gain, int32_t bins) {
    const __m256 scale = _mm256_set1_ps(1.0f / 4294967296.0f);
    int32_t k = 0;
    for (; k + 4 <= bins; k += 4) {
        const __m256 gk = simd::i2f(load_pairs(gain + k));
        const __m256 prod = _mm256_mul_ps(simd::i2f(simd::load8(g + 2 * k)), gk);
        simd::store8(g + 2 * k, simd::f2i(_mm256_mul_ps(prod, scale)));
    }
    return k;
}

SONVEL_LANES_TARGET int32_t common_q(const int32_t *g, const int32_t *qg, int32_t words, int32_t *q) {
    const V cap = set1(*q);
    V low = cap;
    int32_t w = 0;
    for (; w + 8 <= words; w += 8) {
        const V zero = _mm256_cmpeq_epi32(simd::load8(g + w), _mm256_setzero_si256());
        low = _mm256_min_epi32(low, simd::select32(simd::load8(qg + w), cap, zero));
    }
    *q = min_lane(low);
    return w;
}

// fx::shift_wrap by q - qg per word: the left shift gives 0 from 32 on, the right shift the sign
// fill; the count's sign picks one.
SONVEL_LANES_TARGET int32_t align_to_q(int32_t *g, const int32_t *qg, int32_t words, int32_t q) {
    int32_t w = 0;
    for (; w + 8 <= words; w += 8) {
        const V x = simd::load8(g + w);
        const V c = _mm256_sub_epi32(set1(q), simd::load8(qg + w));
        const V left = _mm256_sllv_epi32(x, c);
        const V right = _mm256_srav_epi32(x, _mm256_sub_epi32(_mm256_setzero_si256(), c));
        simd::store8(g + w, simd::select32(left, right, c));
    }
    return w;
}

SONVEL_LANES_TARGET int32_t accumulate_right(int32_t *w, const int32_t *phi, int32_t words, int32_t r) {
    const __m128i cnt = _mm_cvtsi32_si128(r);
    int32_t i = 0;
    for (; i + 8 <= words; i += 8) {
        const V p = _mm256_sra_epi32(simd::load8(phi + i), cnt);
        simd::store8(w + i, simd::sat_add32(simd::load8(w + i), p));
    }
    return i;
}

SONVEL_LANES_TARGET int32_t accumulate_left(int32_t *w, const int32_t *phi, int32_t words, int32_t c) {
    const V count = set1(c);
    const __m128i cnt = _mm_cvtsi32_si128(c);
    int32_t i = 0;
    for (; i + 8 <= words; i += 8) {
        const V p = shift_left_sat(simd::load8(phi + i), count, cnt);
        simd::store8(w + i, simd::sat_add32(simd::load8(w + i), p));
    }
    return i;
}

SONVEL_LANES_TARGET int32_t estimate_and_error(int32_t *y, const int16_t *near, int32_t l, int32_t undo,
                                   int32_t s, int32_t *est, int32_t *err) {
    const V undo_count = set1(undo);
    const V near_count = set1(s);
    int32_t i = 0;
    for (; i + 8 <= l; i += 8) {
        const V yhat = simd::shift_sat32(simd::load8(y + l + i), undo_count);
        const V d = simd::shift_sat32(load_samples(near + i), near_count);
        const V e = simd::sat_sub32(d, yhat);
        simd::store8(est + i, yhat);
        simd::store8(err + i, e);
        simd::store8(y + i, _mm256_setzero_si256());
        simd::store8(y + l + i, e);
    }
    return i;
}

}  // namespace lin::vec

#endif
