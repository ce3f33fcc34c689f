// The portable loops of the filter update and the echo estimate. With the vector choice the
// vectorised head of each loop runs first and the loop here finishes the remaining elements.
#include "linear/linear_loops.h"

#include <algorithm>

#include "fixedpoint/block_float.h"
#include "linear/linear_loops_vec.h"
#include "spectral/reciprocal.h"

namespace lin {

namespace {

constexpr float kTwoPow31 = 2147483648.0f;
constexpr float kTwoPow14 = 16384.0f;
constexpr float kTwoPowM32 = 1.0f / 4294967296.0f;

bool vector(sp::Isa isa) { return isa == sp::Isa::kVector; }

// Right-shift count of a non-positive signed count, at most 31.
int right_count(int c) { return c <= -31 ? 31 : -c; }

// fx::sat_add without a branch, so that the portable loop vectorises: the wrapped sum overflowed
// when it differs in sign from both operands, and then saturates toward the sign of a.
inline int32_t sat_add_select(int32_t a, int32_t b) {
    const auto r = static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
    const int32_t sat = (a >> 31) ^ fx::kMax32;
    return ((a ^ r) & (b ^ r)) < 0 ? sat : r;
}

}  // namespace

void reciprocal_far_power(sp::Isa isa, const int32_t *pow, int bins, int s, int32_t *man,
                          int32_t *q) {
    int k = vector(isa) ? vec::reciprocal_far_power(pow, bins, s, man, q) : 0;
    for (; k < bins; ++k) {
        const int32_t t = fx::sat_add(pow[k] - (pow[k] >> 2), 1);
        const float inv = sp::recip(fx::i2f(t));
        const int32_t m = fx::f2i(inv * kTwoPow31);
        const int c = fx::hr(m);
        man[k] = fx::shift_wrap(m, c);
        q[k] = c + s + 16;
    }
}

void normalised_error(sp::Isa isa, const int32_t *e, const int32_t *man, const int32_t *q, int bins,
                      int32_t *g, int32_t *qg) {
    int k = vector(isa) ? vec::normalised_error(e, man, q, bins, g, qg) : 0;
    for (; k < bins; ++k) {
        for (int part = 0; part < 2; ++part) {
            const int32_t x = e[2 * k + part];
            const int c = fx::hr(x);
            const int64_t prod = static_cast<int64_t>(man[k]) * fx::shift_wrap(x, c);
            g[2 * k + part] = fx::rnd(prod, 32);
            qg[2 * k + part] = c + q[k];
        }
    }
}

void constant_magnitude_gain(sp::Isa isa, int32_t *e2, const int32_t *qe2, int bins) {
    int k = vector(isa) ? vec::constant_magnitude_gain(e2, qe2, bins) : 0;
    for (; k < bins; ++k) {
        const int32_t m = std::max(e2[k], 1);
        const int c = fx::hr(m) & ~1;
        const int32_t mn = fx::shift_wrap(m, c);
        const float r = sp::rsqrt(fx::i2f(mn));
        const float kr = fx::i2f(kGain) * r;
        const int32_t v = fx::f2i(kr * kTwoPow14);
        e2[k] = fx::shift_sat(v, ((qe2[k] + c) >> 1) - kGainShift);
    }
}

void apply_gain(sp::Isa isa, int32_t *g, const int32_t *gain, int bins) {
    int k = vector(isa) ? vec::apply_gain(g, gain, bins) : 0;
    for (; k < bins; ++k) {
        const float gk = fx::i2f(gain[k]);
        for (int part = 0; part < 2; ++part) {
            const float prod = fx::i2f(g[2 * k + part]) * gk;
            g[2 * k + part] = fx::f2i(prod * kTwoPowM32);
        }
    }
}

int common_q(sp::Isa isa, const int32_t *g, const int32_t *qg, int words) {
    int32_t q = kQCap;
    int w = vector(isa) ? vec::common_q(g, qg, words, &q) : 0;
    for (; w < words; ++w) {
        if (g[w] != 0) q = std::min(q, qg[w]);
    }
    return q;
}

void align_to_q(sp::Isa isa, int32_t *g, const int32_t *qg, int words, int q) {
    int w = vector(isa) ? vec::align_to_q(g, qg, words, q) : 0;
    for (; w < words; ++w) g[w] = fx::shift_wrap(g[w], q - qg[w]);
}

// The direction of the shift is decided once, so that each loop is a plain saturating sum.
void accumulate_into_filter(sp::Isa isa, int32_t *w, const int32_t *phi, int words, int shift) {
    if (shift <= 0) {
        const int r = right_count(shift);
        int i = vector(isa) ? vec::accumulate_right(w, phi, words, r) : 0;
        for (; i < words; ++i) w[i] = sat_add_select(w[i], phi[i] >> r);
    } else {
        int i = vector(isa) ? vec::accumulate_left(w, phi, words, shift) : 0;
        for (; i < words; ++i) w[i] = fx::sat_add(w[i], fx::shift_sat(phi[i], shift));
    }
}

void estimate_and_error(sp::Isa isa, int32_t *y, const int16_t *near, int l, int undo, int s,
                        int32_t *est, int32_t *err) {
    int i = vector(isa) ? vec::estimate_and_error(y, near, l, undo, s, est, err) : 0;
    for (; i < l; ++i) {
        const int32_t yhat = fx::shift_sat(y[l + i], undo);
        const int32_t d = fx::shift_sat(near[i], s);
        est[i] = yhat;
        const int32_t e = fx::sat_sub(d, yhat);
        err[i] = e;
        y[i] = 0;
        y[l + i] = e;
    }
}

}  // namespace lin
