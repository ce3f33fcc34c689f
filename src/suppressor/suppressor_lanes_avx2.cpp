// Vectorised loops of the suppressor's frame step, gain shaping and synthesis for x86-64 with
// AVX2: eight elements (or bins) per step, sixteen for the 16-bit minimum and the overlap-add.
// Lane by lane they compute the scalar definitions of their callers: the same integer roundings
// and saturations, the same float products in the same order.
#include "suppressor/suppressor_lanes.h"

#if defined(__x86_64__)

#include "sonvel_aec_ops.h"
#include "spectral/kernel_elements.h"
#include "spectral/simd_avx2.h"

namespace sup::lanes {
namespace {

using sp::simd::V;
namespace simd = sp::simd;

// ---- Loads and stores ----

// Eight lanes stored as int16, saturated (lanes already in the int16 range keep their value).
SONVEL_LANES_TARGET inline void store16x8(int16_t *p, V v) {
    const V packed = _mm256_permute4x64_epi64(_mm256_packs_epi32(v, v), 0x08);
    _mm_storeu_si128(reinterpret_cast<__m128i *>(p), _mm256_castsi256_si128(packed));
}

// Adds the eight int32 lanes of v to the four int64 lanes of acc.
SONVEL_LANES_TARGET inline V add_wide(V acc, V v) {
    acc = _mm256_add_epi64(acc, _mm256_cvtepi32_epi64(_mm256_castsi256_si128(v)));
    return _mm256_add_epi64(acc, _mm256_cvtepi32_epi64(_mm256_extracti128_si256(v, 1)));
}

SONVEL_LANES_TARGET inline int64_t sum64(V acc) {
    alignas(32) int64_t lane[4];
    _mm256_store_si256(reinterpret_cast<V *>(lane), acc);
    return lane[0] + lane[1] + lane[2] + lane[3];
}

// ---- Lane versions of the scalar steps ----

// Low 32 bits of (a * b) >> 16 for each lane: bits 16..47 of the exact 64-bit products.
SONVEL_LANES_TARGET inline V mul_shr16(V a, V b) {
    const V even = _mm256_srli_epi64(simd::mul_even(a, b), 16);
    const V odd = _mm256_slli_epi64(simd::mul_odd(a, b), 16);
    return _mm256_blend_epi32(even, odd, 0xAA);
}

// The int16 entries of table at the indices of idx (the entry and the one after it are read).
SONVEL_LANES_TARGET inline V gather16(const int16_t *table, V idx) {
    const V pair = _mm256_i32gather_epi32(reinterpret_cast<const int *>(table), idx, 2);
    return _mm256_srai_epi32(_mm256_slli_epi32(pair, 16), 16);
}

// (wc * min(g, fb) + (32767 - wc) * g) >> 15 for g and fb in the int16 range and wc in 0..32767:
// the sum lies in [-32767 * 32768, 32767^2], so neither the int32 sum nor the result saturates.
SONVEL_LANES_TARGET inline V weigh8(V g, V fb, V wc) {
    const V toward = _mm256_mullo_epi32(wc, _mm256_min_epi32(g, fb));
    const V keep = _mm256_mullo_epi32(_mm256_sub_epi32(_mm256_set1_epi32(32767), wc), g);
    return _mm256_srai_epi32(_mm256_add_epi32(toward, keep), 15);
}

// g^(od / 512) as sonvel::shaping::overdrive_power, for g and od in the int16 range.
//  - log2 of g > 0: n = hr(g) in 16..30, y = g << n, table index (y >> 25) - 32 in 0..31, weight
//    (y >> 10) & 0x7FFF; the doubled product of the weight and the low half of the entry stays
//    inside the int32 range, the difference from the entry's high half saturates as L_sub.
//  - t = 15 - log2(g) in Q15 lies in 1..2^19 (491520 for g <= 0), so neither sum saturates and
//    t * od has at most 35 bits.
//  - u = t * od >> 16 lies in -2^18..2^18: its shift by 8 fits in int16 and is the shift count,
//    negative counts taken modulo 32; a count of 15 or more leaves the sign fill of the 16-bit
//    entry, which the 32-bit arithmetic shift by the count (saturating at 32) also gives.
SONVEL_LANES_TARGET inline V overdrive8(V g, V od) {
    const V one = _mm256_set1_epi32(1);
    const V positive = _mm256_cmpgt_epi32(g, _mm256_setzero_si256());
    const V x = _mm256_max_epi32(g, one);
    const V n = simd::hr32(x);
    const V y = _mm256_sllv_epi32(x, n);
    const V i = _mm256_sub_epi32(_mm256_srai_epi32(y, 25), _mm256_set1_epi32(32));
    const V a = _mm256_and_si256(_mm256_srai_epi32(y, 10), _mm256_set1_epi32(0x7FFF));
    const V e = _mm256_i32gather_epi32(reinterpret_cast<const int *>(Sonvel_AEC_gaiAecLog2Tab), i,
                                       4);
    const V top = _mm256_and_si256(e, _mm256_set1_epi32(static_cast<int32_t>(0xFFFF0000u)));
    const V low = _mm256_srai_epi32(_mm256_slli_epi32(e, 16), 16);
    const V r = simd::sat_sub32(top, _mm256_slli_epi32(_mm256_mullo_epi32(low, a), 1));
    const V exponent = _mm256_sub_epi32(_mm256_set1_epi32(30), n);
    const V log2 = _mm256_add_epi32(_mm256_slli_epi32(exponent, 15), _mm256_srai_epi32(r, 16));
    const V t = _mm256_sub_epi32(_mm256_set1_epi32(491520), _mm256_and_si256(log2, positive));

    const V u = mul_shr16(t, od);
    const V shift = _mm256_srai_epi32(u, 8);
    const V count = simd::select32(shift, _mm256_and_si256(shift, _mm256_set1_epi32(31)), shift);
    const V j = _mm256_srai_epi32(
        _mm256_mullo_epi32(_mm256_and_si256(u, _mm256_set1_epi32(255)), _mm256_set1_epi32(200)), 9);
    return _mm256_srav_epi32(gather16(Sonvel_AEC_gasAecpow2tab, j), count);
}

// Lane indices k..k+7.
SONVEL_LANES_TARGET inline V bin_index(int32_t k) {
    return _mm256_add_epi32(_mm256_set1_epi32(k), _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7));
}

// The overdrive cap of each lane's bin; 32767 (no cap) outside both ranges.
SONVEL_LANES_TARGET inline V cap8(V k, const OverdriveCaps &c) {
    const V in_lo = _mm256_cmpgt_epi32(_mm256_set1_epi32(c.lo + 1), k);
    const V in_hi = _mm256_andnot_si256(_mm256_cmpgt_epi32(k, _mm256_set1_epi32(c.hi_to)),
                                        _mm256_cmpgt_epi32(k, _mm256_set1_epi32(c.hi_from - 1)));
    V cap = _mm256_set1_epi32(32767);
    cap = simd::select32(cap, _mm256_set1_epi32(c.cap_hi), in_hi);
    return simd::select32(cap, _mm256_set1_epi32(c.cap_lo), in_lo);
}

}  // namespace

// ---- The loops ----

SONVEL_LANES_TARGET int32_t window_pcm(const int16_t *w, const int16_t *pcm, int32_t *out, int shift,
                           int32_t count) {
    const __m128i s = _mm_cvtsi32_si128(shift);
    int32_t i = 0;
    for (; i + 8 <= count; i += 8) {
        const V p = _mm256_mullo_epi32(simd::load16x8(w + i), simd::load16x8(pcm + i));
        simd::store8(out + i, _mm256_sra_epi32(p, s));
    }
    return i;
}

SONVEL_LANES_TARGET int32_t window_q15(const int16_t *w, const int32_t *in, int32_t *out, int32_t count) {
    int32_t i = 0;
    for (; i + 8 <= count; i += 8) {
        simd::store8(out + i, simd::mul_rnd15(simd::load8(in + i), simd::load16x8(w + i)));
    }
    return i;
}

SONVEL_LANES_TARGET int32_t mark_zero_words(int32_t *x, int32_t words) {
    const V zero = _mm256_setzero_si256();
    int32_t i = 0;
    for (; i + 8 <= words; i += 8) {
        const V v = simd::load8(x + i);
        simd::store8(x + i, _mm256_or_si256(v, _mm256_srli_epi32(_mm256_cmpeq_epi32(v, zero), 31)));
    }
    return i;
}

SONVEL_LANES_TARGET int32_t bin_powers(const int32_t *x, int32_t *man, int16_t *exp, int qoff, int toff,
                           int64_t *sum, int32_t bins) {
    const V q = _mm256_set1_epi32(qoff);
    const V to = _mm256_set1_epi32(toff);
    V acc = _mm256_setzero_si256();
    int32_t k = 0;
    for (; k + 8 <= bins; k += 8) {
        V re, im;
        simd::load_bins8(x + 2 * k, re, im);
        const simd::Power8 p = simd::bin_power8(re, im);
        const V h2 = _mm256_slli_epi32(p.h, 1);
        if (man != nullptr) {
            simd::store8(man + k, p.e);
            simd::store16x8_wrap(exp + k, _mm256_add_epi32(h2, q));
        }
        acc = add_wide(acc, simd::shift_sat32(p.e, _mm256_sub_epi32(to, h2)));
    }
    *sum += sum64(acc);
    return k;
}

SONVEL_LANES_TARGET int32_t min_q2(const int16_t *a, const int16_t *b, int16_t *lowest, int32_t count) {
    __m256i m = _mm256_set1_epi16(*lowest);
    int32_t i = 0;
    for (; i + 16 <= count; i += 16) {
        const __m256i va = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(a + i));
        const __m256i vb = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(b + i));
        m = _mm256_min_epi16(m, _mm256_min_epi16(va, vb));
    }
    __m128i h = _mm_min_epi16(_mm256_castsi256_si128(m), _mm256_extracti128_si256(m, 1));
    h = _mm_min_epi16(h, _mm_shuffle_epi32(h, 0x4E));
    h = _mm_min_epi16(h, _mm_shuffle_epi32(h, 0xB1));
    h = _mm_min_epi16(h, _mm_srli_epi32(h, 16));
    *lowest = static_cast<int16_t>(_mm_cvtsi128_si32(h));
    return i;
}

SONVEL_LANES_TARGET int32_t band_sum(const int32_t *man, const int16_t *exp, int c, int64_t *sum,
                         int32_t count) {
    const V cv = _mm256_set1_epi32(c);
    V acc = _mm256_setzero_si256();
    int32_t i = 0;
    for (; i + 8 <= count; i += 8) {
        const V shift = _mm256_sub_epi32(simd::load16x8(exp + i), cv);
        acc = add_wide(acc, simd::shr_trunc32(simd::load8(man + i), shift));
    }
    *sum += sum64(acc);
    return i;
}

SONVEL_LANES_TARGET int32_t shape_gains(int16_t *g, int32_t fb, const int16_t *wc, const int16_t *ovrd,
                            const int16_t *oc, const OverdriveCaps &caps, int32_t count) {
    if (fb < -32768 || fb > 32767) return 0;
    const V fbv = _mm256_set1_epi32(fb);
    int32_t k = 0;
    for (; k + 8 <= count; k += 8) {
        const V weighed = weigh8(simd::load16x8(g + k), fbv, simd::load16x8(wc + k));
        const V prod = _mm256_mullo_epi32(simd::load16x8(ovrd + k), simd::load16x8(oc + k));
        const V raw = _mm256_srai_epi32(prod, 14);
        const V od = _mm256_max_epi32(_mm256_min_epi32(raw, _mm256_set1_epi32(32767)),
                                      _mm256_set1_epi32(-32768));
        const V capped = _mm256_min_epi32(od, cap8(bin_index(k), caps));
        store16x8(g + k, overdrive8(weighed, capped));
    }
    return k;
}

SONVEL_LANES_TARGET int32_t apply_gains(const int16_t *g, int32_t *E, int32_t words) {
    const V pairs = _mm256_setr_epi32(0, 0, 1, 1, 2, 2, 3, 3);
    const __m256 scale = _mm256_set1_ps(sp::kTwoPowM15);
    int32_t w = 0;
    for (; w + 8 <= words; w += 8) {
        const __m128i g16 = _mm_loadl_epi64(reinterpret_cast<const __m128i *>(g + w / 2));
        const V g4 = _mm256_cvtepi16_epi32(g16);
        const __m256 gf = simd::i2f(_mm256_permutevar8x32_epi32(g4, pairs));
        const __m256 prod = _mm256_mul_ps(gf, simd::i2f(simd::load8(E + w)));
        simd::store8(E + w, simd::f2i(_mm256_mul_ps(prod, scale)));
    }
    return w;
}

// k = 16 - t. For k in 1..32 the result is fx::rnd(p, k) of the product p (|p| <= 2^46), whose
// shift by t <= 15 never saturates. For k in 33..62 the floor of p / 2^(k-1) fits in 15 bits: it
// is taken exactly from the non-negative p + 2^62 by a logical shift, and rounded in 32 bits.
SONVEL_LANES_TARGET int32_t unwindow(const int32_t *x, const int16_t *w, int t, int32_t *frame,
                         int32_t count) {
    const int k = 16 - t;
    if (k < 1 || k > 62) return 0;
    const V bias = _mm256_set1_epi64x(int64_t{1} << 62);
    const V unbias = _mm256_set1_epi64x(int64_t{1} << (63 - k));
    const __m128i s = _mm_cvtsi32_si128(k - 1);
    int32_t i = 0;
    for (; i + 8 <= count; i += 8) {
        const V xv = simd::load8(x + i);
        const V wv = simd::load16x8(w + i);
        const V pe = simd::mul_even(xv, wv);
        const V po = simd::mul_odd(xv, wv);
        V r;
        if (k <= 32) {
            r = simd::interleave_even(simd::rnd64(pe, k), simd::rnd64(po, k));
        } else {
            const V qe = _mm256_sub_epi64(_mm256_srl_epi64(_mm256_add_epi64(pe, bias), s), unbias);
            const V qo = _mm256_sub_epi64(_mm256_srl_epi64(_mm256_add_epi64(po, bias), s), unbias);
            const V q = simd::interleave_even(qe, qo);
            r = _mm256_srai_epi32(_mm256_add_epi32(q, _mm256_set1_epi32(1)), 1);
        }
        simd::store8(frame + i, r);
    }
    return i;
}

SONVEL_LANES_TARGET int32_t overlap_add(const int32_t *a, const int32_t *b, int16_t *out, int32_t count) {
    int32_t i = 0;
    for (; i + 16 <= count; i += 16) {
        const V lo = simd::sat_add32(simd::load8(a + i), simd::load8(b + i));
        const V hi = simd::sat_add32(simd::load8(a + i + 8), simd::load8(b + i + 8));
        const V packed = _mm256_permute4x64_epi64(_mm256_packs_epi32(lo, hi), 0xD8);
        _mm256_storeu_si256(reinterpret_cast<V *>(out + i), packed);
    }
    return i;
}

}  // namespace sup::lanes

#endif
