// Vectorised comfort-noise floor estimate for x86-64 with AVX2: eight bins per step of each
// per-bin loop of comfort_noise.cpp, the same float products in the same order and the same
// integer shifts, with selects where the per-bin steps leave a bin unchanged.
#include "suppressor/comfort_noise_lanes.h"

#if defined(__x86_64__)

#include "spectral/simd_avx2.h"

namespace sonvel::comfort_noise::lanes {
namespace {

using sp::simd::V;

SONVEL_LANES_TARGET inline V set1(int32_t v) { return _mm256_set1_epi32(v); }

// Mantissas and Q values of eight bins, the Q values widened.
struct Pair8 {
    V m;
    V q;
};

SONVEL_LANES_TARGET inline Pair8 load_pair(const int32_t *m, const int16_t *q) {
    return {sp::simd::load8(m), sp::simd::load16x8(q)};
}

// The lanes of next where take is all ones, of old elsewhere; Q values wrapped to 16 bits.
SONVEL_LANES_TARGET inline void store_pair(Pow x, int k, Pair8 old, Pair8 next, V take) {
    sp::simd::store8(x.man + k, sp::simd::select32(old.m, next.m, take));
    sp::simd::store16x8_wrap(x.exp + k, sp::simd::select32(old.q, next.q, take));
}

// s shifted by its headroom, with the Q value q + headroom.
SONVEL_LANES_TARGET inline Pair8 normalised(V s, V q) {
    const V h = sp::simd::hr32(s);
    return {_mm256_sllv_epi32(s, h), _mm256_add_epi32(q, h)};
}

// Truncating alignment of mantissas in Q qx to the smaller Q value qm.
SONVEL_LANES_TARGET inline V align(V m, V qx, V qm) {
    return sp::simd::shr_trunc32(m, _mm256_sub_epi32(qx, qm));
}

// int(float(m) * w * 2^-16), truncating and saturating.
SONVEL_LANES_TARGET inline V weighted_half(V m, float w) {
    const __m256 p = _mm256_mul_ps(sp::simd::i2f(m), _mm256_set1_ps(w));
    return sp::simd::f2i(_mm256_mul_ps(p, _mm256_set1_ps(kTwoPowM16)));
}

// fx::L_shr_opt with counts d in 0..65535 that were wrapped to int16: up to 32767 the count is
// limited to 31, from 32768 on (negative as int16) it is taken modulo 32.
SONVEL_LANES_TARGET inline V shr_opt(V x, V d) {
    const V c = sp::simd::select32(_mm256_min_epi32(d, set1(31)), _mm256_and_si256(d, set1(31)),
                                   _mm256_cmpgt_epi32(d, set1(32767)));
    return _mm256_srav_epi32(x, c);
}

}  // namespace

SONVEL_LANES_TARGET int average(Pow a, Power p, int n) {
    const V all = set1(-1);
    int k = 0;
    for (; k + 8 <= n; k += 8) {
        const Pair8 pw = load_pair(p.man + k, p.exp + k);
        const Pair8 av = load_pair(a.man + k, a.exp + k);
        const V qm = _mm256_min_epi32(pw.q, av.q);
        const V x = align(weighted_half(pw.m, kTenth), pw.q, qm);
        const V y = align(weighted_half(av.m, kNineTenths), av.q, qm);
        const V s = sp::simd::sat_add32(x, y);
        store_pair(a, k, av, normalised(s, _mm256_sub_epi32(qm, set1(1))), all);
    }
    return k;
}

SONVEL_LANES_TARGET int floor_down(Pow f, Pow a, int n) {
    int k = 0;
    for (; k + 8 <= n; k += 8) {
        const Pair8 av = load_pair(a.man + k, a.exp + k);
        const Pair8 fl = load_pair(f.man + k, f.exp + k);
        const V qm = _mm256_min_epi32(av.q, fl.q);
        const V aa = align(av.m, av.q, qm);
        const V fa = align(fl.m, fl.q, qm);
        const __m256 x = _mm256_mul_ps(_mm256_mul_ps(sp::simd::i2f(aa), _mm256_set1_ps(kTenth)),
                                       _mm256_set1_ps(kTwoPowM16));
        const __m256 y =
            _mm256_mul_ps(_mm256_mul_ps(sp::simd::i2f(fa), _mm256_set1_ps(kNineTenths)),
                          _mm256_set1_ps(kTwoPowM16));
        const V s = sp::simd::f2i(_mm256_add_ps(x, y));
        store_pair(f, k, fl, normalised(s, _mm256_sub_epi32(qm, set1(1))),
                   _mm256_cmpgt_epi32(fa, aa));
    }
    return k;
}

SONVEL_LANES_TARGET int count_persistence(int16_t *t, int16_t *above, Power p, Pow f, int n) {
    int k = 0;
    for (; k + 8 <= n; k += 8) {
        const Pair8 pw = load_pair(p.man + k, p.exp + k);
        const V qf4 = _mm256_sub_epi32(sp::simd::load16x8(f.exp + k), set1(2));
        const V qm = _mm256_min_epi32(pw.q, qf4);
        const V up = _mm256_cmpgt_epi32(align(pw.m, pw.q, qm),
                                        align(sp::simd::load8(f.man + k), qf4, qm));
        sp::simd::store16x8_wrap(above + k, _mm256_and_si256(up, set1(1)));
        // +7 where up, -6 elsewhere; within 0..32760 the 16-bit saturation changes nothing.
        const V step =
            _mm256_add_epi32(set1(-kFallStep), _mm256_and_si256(up, set1(kRiseStep + kFallStep)));
        const V next = _mm256_add_epi32(sp::simd::load16x8(t + k), step);
        const V clamped = _mm256_min_epi32(_mm256_max_epi32(next, set1(0)), set1(kRiseCntMax));
        sp::simd::store16x8_wrap(t + k, clamped);
    }
    return k;
}

SONVEL_LANES_TARGET int floor_up(Pow f, Power p, const int16_t *t, const int16_t *above, int n) {
    int k = 0;
    for (; k + 8 <= n; k += 8) {
        const Pair8 pw = load_pair(p.man + k, p.exp + k);
        const Pair8 fl = load_pair(f.man + k, f.exp + k);
        const V qm = _mm256_min_epi32(pw.q, fl.q);
        const V a = shr_opt(sp::simd::mpy_32_16_opt2(pw.m, set1(kRiseSlow)),
                            _mm256_sub_epi32(pw.q, qm));
        const V b = shr_opt(sp::simd::mpy_32_16_opt2(fl.m, set1(kKeepSlow)),
                            _mm256_sub_epi32(fl.q, qm));
        const Pair8 r = normalised(sp::simd::sat_add32(a, b), _mm256_sub_epi32(qm, set1(1)));
        // The Q value saturates to 16 bits here.
        const V q = _mm256_min_epi32(_mm256_max_epi32(r.q, set1(INT16_MIN)), set1(INT16_MAX));
        // Bins recently above four times the floor keep it.
        const V rise = _mm256_or_si256(
            _mm256_cmpgt_epi32(sp::simd::load16x8(t + k), set1(kRiseCntLong)),
            _mm256_cmpeq_epi32(sp::simd::load16x8(above + k), _mm256_setzero_si256()));
        store_pair(f, k, fl, {r.m, q}, rise);
    }
    return k;
}

SONVEL_LANES_TARGET int average_catch_up(Pow a, Power p, int n) {
    int k = 0;
    for (; k + 8 <= n; k += 8) {
        const Pair8 pw = load_pair(p.man + k, p.exp + k);
        const Pair8 av = load_pair(a.man + k, a.exp + k);
        const V qp2 = _mm256_sub_epi32(pw.q, set1(1));
        const V qm = _mm256_min_epi32(qp2, av.q);
        const V p2 = align(pw.m, qp2, qm);
        const V aa = align(av.m, av.q, qm);
        const V s = sp::simd::sat_add32(_mm256_srai_epi32(p2, 1), aa);
        store_pair(a, k, av, normalised(s, qm), _mm256_cmpgt_epi32(aa, p2));
    }
    return k;
}

}  // namespace sonvel::comfort_noise::lanes

#endif
