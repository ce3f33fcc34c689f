// Vectorised comfort-noise floor estimate for aarch64 (NEON): four bins per step of each per-bin
// loop of comfort_noise.cpp, the same float products in the same order and the same integer
// shifts, with selects where the per-bin steps leave a bin unchanged.
#include "suppressor/comfort_noise_lanes.h"

#if defined(__aarch64__)

#include <arm_neon.h>

#include "spectral/simd_neon.h"

namespace sonvel::comfort_noise::lanes {
namespace {

using V = int32x4_t;
using M = uint32x4_t;  // all ones where a lane is selected

inline V set1(int32_t v) { return vdupq_n_s32(v); }

// Mantissas and Q values of four bins, the Q values widened.
struct Pair4 {
    V m;
    V q;
};

inline Pair4 load_pair(const int32_t *m, const int16_t *q) {
    return {vld1q_s32(m), vmovl_s16(vld1_s16(q))};
}

// The lanes of next where take is set, of old elsewhere; Q values wrapped to 16 bits.
inline void store_pair(Pow x, int k, Pair4 old, Pair4 next, M take) {
    vst1q_s32(x.man + k, vbslq_s32(take, next.m, old.m));
    vst1_s16(x.exp + k, vmovn_s32(vbslq_s32(take, next.q, old.q)));
}

// s shifted by its headroom, with the Q value q + headroom.
inline Pair4 normalised(V s, V q) {
    const V h = sp::simd::hr32(s);
    return {vshlq_s32(s, h), vaddq_s32(q, h)};
}

// Truncating alignment of mantissas in Q qx to the smaller Q value qm.
inline V align(V m, V qx, V qm) { return sp::simd::shr_trunc32(m, vsubq_s32(qx, qm)); }

// int(float(m) * w * 2^-16), truncating and saturating.
inline V weighted_half(V m, float w) {
    const float32x4_t p = vmulq_f32(sp::simd::i2f(m), vdupq_n_f32(w));
    return sp::simd::f2i(vmulq_f32(p, vdupq_n_f32(kTwoPowM16)));
}

// fx::L_shr_opt with counts d in 0..65535 that were wrapped to int16: up to 32767 the count is
// limited to 31, from 32768 on (negative as int16) it is taken modulo 32.
inline V shr_opt(V x, V d) {
    const V c = vbslq_s32(vcgtq_s32(d, set1(32767)), vandq_s32(d, set1(31)),
                          vminq_s32(d, set1(31)));
    return vshlq_s32(x, vnegq_s32(c));
}

}  // namespace

int average(Pow a, Power p, int n) {
    const M all = vdupq_n_u32(~0u);
    int k = 0;
    for (; k + 4 <= n; k += 4) {
        const Pair4 pw = load_pair(p.man + k, p.exp + k);
        const Pair4 av = load_pair(a.man + k, a.exp + k);
        const V qm = vminq_s32(pw.q, av.q);
        const V x = align(weighted_half(pw.m, kTenth), pw.q, qm);
        const V y = align(weighted_half(av.m, kNineTenths), av.q, qm);
        const V s = sp::simd::sat_add32(x, y);
        store_pair(a, k, av, normalised(s, vsubq_s32(qm, set1(1))), all);
    }
    return k;
}

int floor_down(Pow f, Pow a, int n) {
    int k = 0;
    for (; k + 4 <= n; k += 4) {
        const Pair4 av = load_pair(a.man + k, a.exp + k);
        const Pair4 fl = load_pair(f.man + k, f.exp + k);
        const V qm = vminq_s32(av.q, fl.q);
        const V aa = align(av.m, av.q, qm);
        const V fa = align(fl.m, fl.q, qm);
        const float32x4_t x = vmulq_f32(vmulq_f32(sp::simd::i2f(aa), vdupq_n_f32(kTenth)),
                                        vdupq_n_f32(kTwoPowM16));
        const float32x4_t y = vmulq_f32(vmulq_f32(sp::simd::i2f(fa), vdupq_n_f32(kNineTenths)),
                                        vdupq_n_f32(kTwoPowM16));
        const V s = sp::simd::f2i(vaddq_f32(x, y));
        store_pair(f, k, fl, normalised(s, vsubq_s32(qm, set1(1))), vcgtq_s32(fa, aa));
    }
    return k;
}

int count_persistence(int16_t *t, int16_t *above, Power p, Pow f, int n) {
    int k = 0;
    for (; k + 4 <= n; k += 4) {
        const Pair4 pw = load_pair(p.man + k, p.exp + k);
        const V qf4 = vsubq_s32(vmovl_s16(vld1_s16(f.exp + k)), set1(2));
        const V qm = vminq_s32(pw.q, qf4);
        const M up = vcgtq_s32(align(pw.m, pw.q, qm), align(vld1q_s32(f.man + k), qf4, qm));
        vst1_s16(above + k, vmovn_s32(vandq_s32(vreinterpretq_s32_u32(up), set1(1))));
        // +7 where up, -6 elsewhere; within 0..32760 the 16-bit saturation changes nothing.
        const V next = vaddq_s32(vmovl_s16(vld1_s16(t + k)),
                                 vbslq_s32(up, set1(kRiseStep), set1(-kFallStep)));
        const V clamped = vminq_s32(vmaxq_s32(next, set1(0)), set1(kRiseCntMax));
        vst1_s16(t + k, vmovn_s32(clamped));
    }
    return k;
}

int floor_up(Pow f, Power p, const int16_t *t, const int16_t *above, int n) {
    int k = 0;
    for (; k + 4 <= n; k += 4) {
        const Pair4 pw = load_pair(p.man + k, p.exp + k);
        const Pair4 fl = load_pair(f.man + k, f.exp + k);
        const V qm = vminq_s32(pw.q, fl.q);
        const V a = shr_opt(sp::simd::mpy_32_16_opt2(pw.m, set1(kRiseSlow)), vsubq_s32(pw.q, qm));
        const V b = shr_opt(sp::simd::mpy_32_16_opt2(fl.m, set1(kKeepSlow)), vsubq_s32(fl.q, qm));
        const Pair4 r = normalised(sp::simd::sat_add32(a, b), vsubq_s32(qm, set1(1)));
        // The Q value saturates to 16 bits here.
        const V q = vmovl_s16(vqmovn_s32(r.q));
        // Bins recently above four times the floor keep it.
        const M rise = vorrq_u32(vcgtq_s32(vmovl_s16(vld1_s16(t + k)), set1(kRiseCntLong)),
                                 vceqq_s32(vmovl_s16(vld1_s16(above + k)), set1(0)));
        store_pair(f, k, fl, {r.m, q}, rise);
    }
    return k;
}

int average_catch_up(Pow a, Power p, int n) {
    int k = 0;
    for (; k + 4 <= n; k += 4) {
        const Pair4 pw = load_pair(p.man + k, p.exp + k);
        const Pair4 av = load_pair(a.man + k, a.exp + k);
        const V qp2 = vsubq_s32(pw.q, set1(1));
        const V qm = vminq_s32(qp2, av.q);
        const V p2 = align(pw.m, qp2, qm);
        const V aa = align(av.m, av.q, qm);
        const V s = sp::simd::sat_add32(vshrq_n_s32(p2, 1), aa);
        store_pair(a, k, av, normalised(s, qm), vcgtq_s32(aa, p2));
    }
    return k;
}

}  // namespace sonvel::comfort_noise::lanes

#endif
