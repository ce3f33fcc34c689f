// Per-element pieces of the complex vector kernels: complex products with 64-bit saturation, the
// single-precision power of one bin, renormalisation of a mantissa, first-order smoothing of one
// element in block floating point, the normalised conjugate product of one bin and the far-end
// power update. The kernels are loops over these; the stages call them directly where they
// compute the same thing inline. Every function is defined for every operand.
#pragma once

#include <algorithm>
#include <cstdint>

#include "fixedpoint/block_float.h"

namespace sp {

// A mantissa m with Q value q stands for m / 2^q.
struct Mant {
    int32_t m;
    int q;
};

// Exact 64-bit complex product, each part formed with 64-bit saturation.
struct Prod64 {
    int64_t re;
    int64_t im;
};

// Smoothing factors are Q15 with one = 32767.
inline constexpr int32_t kOne15 = 32767;

// 2^-32 and 2^-15 in single precision.
inline constexpr float kTwoPowM32 = 1.0f / 4294967296.0f;
inline constexpr float kTwoPowM15 = 1.0f / 32768.0f;

// Two's-complement negation: -2^31 stays -2^31.
inline constexpr int32_t neg_wrap(int32_t x) {
    return static_cast<int32_t>(0u - static_cast<uint32_t>(x));
}

// Left shift by 0..31 that keeps the low 32 bits (callers shift within the headroom).
inline constexpr int32_t shl_low(int32_t x, int c) {
    return static_cast<int32_t>(static_cast<uint32_t>(x) << c);
}

// Element count processed by a kernel of the given step (a power of two): floor(n/step)*step,
// nothing for a negative count.
inline constexpr int32_t stepped_count(int32_t n, int32_t step) {
    return n > 0 ? (n & ~(step - 1)) : 0;
}

// (a.re + j a.im)(b.re + j b.im).
inline constexpr Prod64 cmul(int32_t are, int32_t aim, int32_t bre, int32_t bim) {
    const int64_t rr = static_cast<int64_t>(are) * bre;
    const int64_t ii = static_cast<int64_t>(aim) * bim;
    const int64_t ri = static_cast<int64_t>(are) * bim;
    const int64_t ir = static_cast<int64_t>(aim) * bre;
    return {fx::sat_sub64(rr, ii), fx::sat_add64(ri, ir)};
}

// (a.re + j a.im) conj(b.re + j b.im), with the negated imaginary part of b in two's complement.
inline constexpr Prod64 cmul_conj(int32_t are, int32_t aim, int32_t bre, int32_t bim) {
    return cmul(are, aim, bre, neg_wrap(bim));
}

// Power of one bin in single precision before normalisation: r, i = the parts shifted left by
// their common headroom h; e = int((float(r)^2 + float(i)^2) * 2^-32). The Q value of e is
// 2h + 2q - 32 for parts in Q q.
struct BinPower {
    int32_t e;
    int h;
};

inline BinPower bin_power_f(int32_t re, int32_t im) {
    const int h = std::min(fx::hr(re), fx::hr(im));
    const float r = fx::i2f(shl_low(re, h));
    const float i = fx::i2f(shl_low(im, h));
    const float rr = r * r;
    const float ii = i * i;
    const float sum = rr + ii;
    return {fx::f2i(sum * kTwoPowM32), h};
}

// int(float(x)^2 * 2^-32) of one part.
inline int32_t part_power_f(int32_t x) {
    const float f = fx::i2f(x);
    const float sq = f * f;
    return fx::f2i(sq * kTwoPowM32);
}

// rnd_32(x^2) of one part.
inline constexpr int32_t part_power_t(int32_t x) {
    return fx::rnd(static_cast<int64_t>(x) * x, 32);
}

// Shift a mantissa left by its headroom: the result has headroom 0 (or is 0 / -2^31 for 0 / -1),
// and the Q value grows by the same amount.
inline constexpr Mant normalise(int32_t s, int q) {
    const int g = fx::hr(s);
    return {shl_low(s, g), q + g};
}

// Truncating right shift of a mantissa by qx - qm >= 0 (any size).
inline constexpr int32_t align_to(int32_t m, int qx, int qm) { return fx::shr_trunc(m, qx - qm); }

// One step of first-order smoothing in block floating point: old y (Q qy) weighted by a, new x
// (Q qx) weighted by 32767 - a, both rounded by 15 bits, aligned to the smaller Q by truncation,
// added with saturation and renormalised.
inline constexpr Mant smooth_element(int32_t x, int qx, int32_t y, int qy, int32_t a) {
    const int32_t ys = fx::rnd(static_cast<int64_t>(y) * a, 15);
    const int32_t xs = fx::rnd(static_cast<int64_t>(x) * (kOne15 - a), 15);
    const int qm = std::min(qx, qy);
    const int32_t s = fx::sat_add(align_to(xs, qx, qm), align_to(ys, qy, qm));
    return normalise(s, qm);
}

// a * conj(b) of one bin with each part scaled up by the summed headroom of its factors and
// rounded by 32 bits. The Q value of a part is its headroom + 2q - 32 for a and b in Q q.
struct ConjQ {
    int32_t re;
    int32_t im;
    int hr_re;
    int hr_im;
};

inline constexpr ConjQ conj_mult_q(int32_t are, int32_t aim, int32_t bre, int32_t bim) {
    const int32_t c = neg_wrap(bim);
    const int har = fx::hr(are), hai = fx::hr(aim), hbr = fx::hr(bre), hc = fx::hr(c);
    const int hre = std::min(har + hbr, hai + hc);
    const int him = std::min(har + hc, hai + hbr);
    const Prod64 p = cmul(are, aim, bre, c);
    return {fx::rnd(fx::shift_sat64(p.re, hre), 32), fx::rnd(fx::shift_sat64(p.im, him), 32), hre,
            him};
}

// Far-end power update of one bin: the bin power brought to the scale |X|^2 * 2^-14 of the
// unshifted samples (s = rate shift), then p = int((float(E') * 3277 + float(p) * 29490) * 2^-15).
inline int32_t far_power_element(int32_t re, int32_t im, int s, int32_t p) {
    const BinPower bp = bin_power_f(re, im);
    const int32_t e = fx::shift_sat(bp.e, 2 * (9 - s) - 2 * bp.h);
    const float fresh = fx::i2f(e) * 3277.0f;
    const float old = fx::i2f(p) * 29490.0f;
    const float sum = fresh + old;
    return fx::f2i(sum * kTwoPowM15);
}

}  // namespace sp
