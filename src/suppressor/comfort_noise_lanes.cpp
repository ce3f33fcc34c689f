// The comfort-noise lane loops, written once against the lane vocabulary: the noise components
// added to the interleaved error spectrum, and each per-bin loop of the floor estimate of
// comfort_noise.cpp with the same float products in the same order and the same integer shifts,
// with selects where the per-bin steps leave a bin unchanged.
#include "suppressor/comfort_noise_lanes.h"

#include "spectral/lanes.h"

#if SONVEL_HAS_LANES

namespace sup::lanes {
namespace {

using namespace comfort_noise;  // the shared weights and the Pow / Power pairs

using ln::I32;

// Mantissas and Q values of a step of bins, the Q values widened.
struct Pair {
    I32 m;
    I32 q;
};

SONVEL_LANES_TARGET inline Pair load_pair(const int32_t *m, const int16_t *q) {
    return {ln::load(m), ln::load16(q)};
}

// The lanes of next where take is set, of old elsewhere; Q values wrapped to 16 bits.
SONVEL_LANES_TARGET inline void store_pair(Pow x, int k, Pair old, Pair next, ln::Mask take) {
    ln::store(x.man + k, ln::select(take, next.m, old.m));
    ln::store16(x.exp + k, ln::select(take, next.q, old.q));
}

// s shifted by its headroom, with the Q value q + headroom.
SONVEL_LANES_TARGET inline Pair normalised(I32 s, I32 q) {
    const I32 h = ln::hr(s);
    return {ln::shl(s, h), ln::add(q, h)};
}

// Truncating alignment of mantissas in Q qx to the smaller Q value qm.
SONVEL_LANES_TARGET inline I32 align(I32 m, I32 qx, I32 qm) {
    return ln::shr_trunc(m, ln::sub(qx, qm));
}

// int(float(m) * w * 2^-16), truncating; for the weights, below 2^15, it lies inside the int32
// range.
SONVEL_LANES_TARGET inline I32 weighted_half(I32 m, float w) {
    return ln::f2i_in_range(ln::fmul(ln::fmul(ln::i2f(m), ln::dupf(w)), ln::dupf(kTwoPowM16)));
}

// fx::L_shr_opt with counts d in 0..65535 that were wrapped to int16: up to 32767 the count is
// limited to 31, from 32768 on (negative as int16) it is taken modulo 32.
SONVEL_LANES_TARGET inline I32 shr_opt(I32 x, I32 d) {
    const I32 c =
        ln::select(ln::gt(d, ln::dup(32767)), ln::band(d, ln::dup(31)), ln::min(d, ln::dup(31)));
    return ln::shr_trunc(x, c);
}

// Noise components of a step of bins: F = m' / 4^e2 with m' a non-negative 31-bit value. With
// kModerate, every m >= 0 and every g > -32768: the square roots' operands are 0 or moderate, and
// the scaled products, below 2^31 in magnitude, need no saturation.
template <bool kModerate>
[[gnu::always_inline]] SONVEL_LANES_TARGET inline ln::Bins noise(I32 m, I32 q, I32 g, I32 cs,
                                                                 I32 sn, I32 s) {
    const I32 n = ln::hr(m);
    const I32 e = ln::add(q, n);
    const I32 odd = ln::band(e, ln::dup(1));
    const I32 mm = ln::shr_trunc(ln::shl(m, n), odd);
    const I32 e2 = ln::shr_all(ln::sub(e, odd), 1);

    const ln::F32 gf = ln::i2f(g);
    const ln::F32 g2 = ln::fsub(ln::dupf(1073741824.0f), ln::fmul(gf, gf));
    const ln::F32 root =
        kModerate ? ln::sqrt_or_zero_moderate(ln::i2f(mm)) : ln::sqrt_or_zero(ln::i2f(mm));
    const ln::F32 amp = kModerate ? ln::sqrt_moderate(g2) : ln::sqrt(g2);

    const ln::F32 nr1 = ln::fmul(ln::fmul(root, ln::i2f(cs)), amp);
    const ln::F32 ni1 = ln::fmul(ln::fmul(root, ln::i2f(sn)), amp);
    const ln::F32 nr2 = ln::fmul(nr1, ln::dupf(1.0f / 32768.0f));
    const ln::F32 ni2 = ln::fmul(ni1, ln::dupf(-1.0f / 32768.0f));
    const I32 nr = kModerate ? ln::f2i_in_range(nr2) : ln::f2i(nr2);
    const I32 ni = kModerate ? ln::f2i_in_range(ni2) : ln::f2i(ni2);

    const I32 sh = ln::sub(ln::sub(s, ln::dup(15)), e2);
    return {ln::shift_sat(nr, sh), ln::shift_sat(ni, sh)};
}

[[gnu::noinline]] SONVEL_LANES_TARGET ln::Bins noise_any(I32 m, I32 q, I32 g, I32 cs, I32 sn,
                                                         I32 s) {
    return noise<false>(m, q, g, cs, sn, s);
}

}  // namespace

SONVEL_LANES_TARGET int add_noise(const comfort_noise::Bins &b, const int32_t *e, int32_t *out,
                                  int n) {
    const I32 s = ln::dup(b.s);
    int k = 0;
    for (; k + ln::kLanes <= n; k += ln::kLanes) {
        const I32 m = ln::load(b.floor_man + k);
        const I32 g = ln::load16(b.gain + k);
        const I32 q = ln::load16(b.floor_exp + k);
        const I32 cs = ln::load16(b.cos + k);
        const I32 sn = ln::load16(b.sin + k);
        const ln::Bins c = ln::any_negative(ln::bor(m, ln::add(g, ln::dup(32767))))
                               ? noise_any(m, q, g, cs, sn, s)
                               : noise<true>(m, q, g, cs, sn, s);
        const ln::Bins x = ln::load_bins(e + 2 * k);
        ln::store_bins(out + 2 * k, {ln::sat_add(x.re, c.re), ln::sat_add(x.im, c.im)});
    }
    return k;
}

SONVEL_LANES_TARGET int average(Pow a, Power p, int n) {
    int k = 0;
    for (; k + ln::kLanes <= n; k += ln::kLanes) {
        const Pair pw = load_pair(p.man + k, p.exp + k);
        const Pair av = load_pair(a.man + k, a.exp + k);
        const I32 qm = ln::min(pw.q, av.q);
        const I32 x = align(weighted_half(pw.m, kTenth), pw.q, qm);
        const I32 y = align(weighted_half(av.m, kNineTenths), av.q, qm);
        const Pair r = normalised(ln::sat_add(x, y), ln::sub(qm, ln::dup(1)));
        ln::store(a.man + k, r.m);
        ln::store16(a.exp + k, r.q);
    }
    return k;
}

SONVEL_LANES_TARGET int floor_down(Pow f, Pow a, int n) {
    int k = 0;
    for (; k + ln::kLanes <= n; k += ln::kLanes) {
        const Pair av = load_pair(a.man + k, a.exp + k);
        const Pair fl = load_pair(f.man + k, f.exp + k);
        const I32 qm = ln::min(av.q, fl.q);
        const I32 aa = align(av.m, av.q, qm);
        const I32 fa = align(fl.m, fl.q, qm);
        const ln::F32 x = ln::fmul(ln::fmul(ln::i2f(aa), ln::dupf(kTenth)), ln::dupf(kTwoPowM16));
        const ln::F32 y =
            ln::fmul(ln::fmul(ln::i2f(fa), ln::dupf(kNineTenths)), ln::dupf(kTwoPowM16));
        // |x + y| < 2^31 (3277 + 29490) / 2^16 < 2^30.
        const I32 s = ln::f2i_in_range(ln::fadd(x, y));
        store_pair(f, k, fl, normalised(s, ln::sub(qm, ln::dup(1))), ln::gt(fa, aa));
    }
    return k;
}

SONVEL_LANES_TARGET int count_persistence(int16_t *t, int16_t *above, Power p, Pow f, int n) {
    int k = 0;
    for (; k + ln::kLanes <= n; k += ln::kLanes) {
        const Pair pw = load_pair(p.man + k, p.exp + k);
        const I32 qf4 = ln::sub(ln::load16(f.exp + k), ln::dup(2));
        const I32 qm = ln::min(pw.q, qf4);
        const ln::Mask up = ln::gt(align(pw.m, pw.q, qm), align(ln::load(f.man + k), qf4, qm));
        ln::store16(above + k, ln::mask_and(up, ln::dup(1)));
        // +7 where up, -6 elsewhere; within 0..32760 the 16-bit saturation changes nothing.
        const I32 next =
            ln::add(ln::load16(t + k), ln::select(up, ln::dup(kRiseStep), ln::dup(-kFallStep)));
        ln::store16(t + k, ln::min(ln::max(next, ln::zero()), ln::dup(kRiseCntMax)));
    }
    return k;
}

SONVEL_LANES_TARGET int floor_up(Pow f, Power p, const int16_t *t, const int16_t *above, int n) {
    int k = 0;
    for (; k + ln::kLanes <= n; k += ln::kLanes) {
        const Pair pw = load_pair(p.man + k, p.exp + k);
        const Pair fl = load_pair(f.man + k, f.exp + k);
        const I32 qm = ln::min(pw.q, fl.q);
        const I32 a = shr_opt(ln::mpy_32_16(pw.m, ln::dup(kRiseSlow)), ln::sub(pw.q, qm));
        const I32 b = shr_opt(ln::mpy_32_16(fl.m, ln::dup(kKeepSlow)), ln::sub(fl.q, qm));
        const Pair r = normalised(ln::sat_add(a, b), ln::sub(qm, ln::dup(1)));
        // The Q value saturates to 16 bits here.
        const I32 q = ln::min(ln::max(r.q, ln::dup(INT16_MIN)), ln::dup(INT16_MAX));
        // Bins recently above four times the floor keep it.
        const ln::Mask rise = ln::mask_or(ln::gt(ln::load16(t + k), ln::dup(kRiseCntLong)),
                                          ln::eq(ln::load16(above + k), ln::zero()));
        store_pair(f, k, fl, {r.m, q}, rise);
    }
    return k;
}

SONVEL_LANES_TARGET int average_catch_up(Pow a, Power p, int n) {
    int k = 0;
    for (; k + ln::kLanes <= n; k += ln::kLanes) {
        const Pair pw = load_pair(p.man + k, p.exp + k);
        const Pair av = load_pair(a.man + k, a.exp + k);
        const I32 qp2 = ln::sub(pw.q, ln::dup(1));
        const I32 qm = ln::min(qp2, av.q);
        const I32 p2 = align(pw.m, qp2, qm);
        const I32 aa = align(av.m, av.q, qm);
        const I32 s = ln::sat_add(ln::shr_all(p2, 1), aa);
        store_pair(a, k, av, normalised(s, qm), ln::gt(aa, p2));
    }
    return k;
}

}  // namespace sup::lanes

#endif
