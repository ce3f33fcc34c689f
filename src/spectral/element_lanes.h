// Lane versions of the per-element definitions of spectral/kernel_elements.h, written once
// against the lane vocabulary: the same integer roundings, float products and sums in the same
// order, and saturation, several bins at a time. Used by the lane loops of the power and
// smoothing kernels and of the suppressor.
#pragma once

#include "spectral/kernel_elements.h"
#include "spectral/lanes.h"

#if SONVEL_HAS_LANES

namespace sp::lanes {

using ln::I32;

struct Mant {
    I32 m;
    I32 q;
};

// sp::normalise.
SONVEL_LANES_TARGET inline Mant normalise(I32 s, I32 q) {
    const I32 g = ln::hr(s);
    return {ln::shl(s, g), ln::add(q, g)};
}

// sp::smooth_element for factors a in 0..32767 (callers leave other factors to the per-element
// loop). The two weighted terms then stay below 2^31 * 32767/32768 + 1 in magnitude together,
// and truncating shifts only shrink them, so their sum never saturates.
SONVEL_LANES_TARGET inline Mant smooth(I32 x, I32 qx, I32 y, I32 qy, I32 a) {
    const I32 ys = ln::mul_rnd15(y, a);
    const I32 xs = ln::mul_rnd15(x, ln::sub(ln::dup(kOne15), a));
    const I32 qm = ln::min(qx, qy);
    const I32 xa = ln::shr_trunc(xs, ln::sub(qx, qm));
    const I32 ya = ln::shr_trunc(ys, ln::sub(qy, qm));
    return normalise(ln::add(xa, ya), qm);
}

// sp::bin_power_f: e and the common headroom h of the parts.
struct Power {
    I32 e;
    I32 h;
};

SONVEL_LANES_TARGET inline Power bin_power(ln::Bins x) {
    const I32 h = ln::hr_min(x.re, x.im);
    const ln::F32 r = ln::i2f(ln::shl(x.re, h));
    const ln::F32 i = ln::i2f(ln::shl(x.im, h));
    const ln::F32 sum = ln::fadd(ln::fmul(r, r), ln::fmul(i, i));
    return {ln::f2i(ln::fmul(sum, ln::dupf(kTwoPowM32))), h};
}

// sp::conj_mult_q: the parts (m) and the headroom sums that scaled them (q). Each product lies in
// [-2^62 + 2^31, 2^62], so the difference of two stays in range; the sum saturates.
struct ConjQ {
    Mant re;
    Mant im;
};

SONVEL_LANES_TARGET inline ConjQ conj_mult_q(ln::Bins a, ln::Bins b) {
    const I32 c = ln::neg_wrap(b.im);
    const I32 har = ln::hr(a.re), hai = ln::hr(a.im), hbr = ln::hr(b.re), hc = ln::hr(c);
    const I32 h_re = ln::min(ln::add(har, hbr), ln::add(hai, hc));
    const I32 h_im = ln::min(ln::add(har, hc), ln::add(hai, hbr));
    const ln::W64 re = ln::sub64(ln::mul_wide(a.re, b.re), ln::mul_wide(a.im, c));
    const ln::W64 im = ln::sat_add64(ln::mul_wide(a.re, c), ln::mul_wide(a.im, b.re));
    return {{ln::scale_rnd32(re, h_re), h_re}, {ln::scale_rnd32(im, h_im), h_im}};
}

}  // namespace sp::lanes

#endif
