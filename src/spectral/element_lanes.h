// Lane versions of the per-element definitions of spectral/kernel_elements.h, written once
// against the lane vocabulary: the same integer roundings, float products and sums in the same
// order, and saturation, several bins at a time; and the masking of a loop's last, overlapping
// step. Used by the lane loops of the spectral kernels, the filter update and the suppressor.
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
    return {ln::f2i_not_nan(ln::fmul(sum, ln::dupf(kTwoPowM32))), h};
}

// sp::conj_mult_q in the back end's complex word order: the parts (m) and the headroom sums
// that scaled them (q).
struct ConjQ {
    ln::Cplx m;
    ln::Cplx q;
};

SONVEL_LANES_TARGET inline ConjQ conj_mult_q(ln::Cplx a, ln::Cplx b) {
    const ln::Cplx c = ln::conj(b);
    const ln::Cplx ha{{ln::hr(a.w[0]), ln::hr(a.w[1])}};
    const ln::Cplx hc{{ln::hr(c.w[0]), ln::hr(c.w[1])}};
    const ln::Cplx h = ln::cross_min_sums(ha, hc);
    return {ln::scale_rnd32(ln::cmul_wide(a, c), h), h};
}

// The last step of a loop whose count is not a whole number of steps ends at the last element
// and repeats some elements already done: it keeps their values (old) and takes the new ones only
// in the lanes from index first on (fresh); the whole steps take the new values as they are.
SONVEL_LANES_TARGET inline ln::Mask lanes_from(int first) {
    return ln::gt(ln::iota(0), ln::dup(first - 1));
}

template <bool kTail>
SONVEL_LANES_TARGET inline I32 fresh_only(I32 v, I32 old, ln::Mask fresh) {
    if constexpr (kTail) return ln::select(fresh, v, old);
    return v;
}

template <bool kTail>
SONVEL_LANES_TARGET inline ln::Cplx fresh_only(ln::Cplx v, ln::Cplx old, ln::CplxMask fresh) {
    if constexpr (kTail) return ln::select(fresh, v, old);
    return v;
}

}  // namespace sp::lanes

#endif
