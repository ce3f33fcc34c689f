// Every complex vector kernel against slow reference arithmetic written from the definitions with
// 128-bit integers: all combinations of boundary values over the operands of a bin, then random
// operands with random Q values. Counts that are not multiples of a kernel's step leave the
// elements behind the last whole step untouched. Then the block normaliser and the exchange sort.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <random>
#include <vector>

#include "sonvel_aec_spectral.h"
#include "state/aec_state.h"

namespace {

using i128 = __int128;
using Words = std::vector<int32_t>;
constexpr int32_t kMin = INT32_MIN, kMax = INT32_MAX;
constexpr int32_t kEdge[9] = {kMin, kMin + 1, -65536, -1, 0, 1, 65535, kMax - 1, kMax};
constexpr int kEdgeBins = 9 * 9 * 9 * 9, kBins = kEdgeBins + 1001;  // kBins % 4 == 2

int hr(int32_t x) {
    int n = 0;
    while (n < 31 && ((x >> (30 - n)) & 1) == ((x >> 31) & 1)) ++n;
    return n;
}
int32_t s32(i128 v) { return static_cast<int32_t>(std::clamp<i128>(v, kMin, kMax)); }
i128 s64(i128 v) { return std::clamp<i128>(v, INT64_MIN, INT64_MAX); }
i128 floor_shift(i128 v, int k) { return v >> std::min(k, 127); }
int32_t rnd(i128 v, int k) { return s32(floor_shift(v + (i128{1} << (k - 1)), k)); }
// Signed shift: left keeps the low 32 bits, right truncates.
int32_t shift(int32_t x, int c) {
    return c < 0 ? static_cast<int32_t>(floor_shift(x, -c))
                 : static_cast<int32_t>(c < 32 ? static_cast<uint32_t>(x) << c : 0u);
}
int32_t f2i(float f) {
    return s32(static_cast<i128>(std::clamp(std::trunc(double{f}), -3e9, 3e9)));
}
int32_t neg(int32_t x) { return x == kMin ? kMin : -x; }

// Single-precision power of a bin before normalisation; h is the headroom used.
int32_t power_f(int32_t re, int32_t im, int &h) {
    h = std::min(hr(re), hr(im));
    const float r = static_cast<float>(shift(re, h)), i = static_cast<float>(shift(im, h));
    const float rr = r * r, ii = i * i, sum = rr + ii;
    return f2i(std::ldexp(sum, -32));
}

// a*y + (32767 - a)*x in block floating point; returns the mantissa and sets q.
int32_t smooth(int32_t x, int qx, int32_t y, int &q, int a) {
    const int qm = std::min(qx, q);
    const int32_t s = s32(floor_shift(rnd(i128{x} * (32767 - a), 15), qx - qm) +
                          floor_shift(rnd(i128{y} * a, 15), q - qm));
    q = qm + hr(s);
    return shift(s, hr(s));
}

// a * conj(b) scaled per part by the summed headroom of its factors; h = {hr_re, hr_im}.
void conj_q(const int32_t *a, const int32_t *b, int32_t *out, int *h) {
    const int32_t c = neg(b[1]);
    h[0] = std::min(hr(a[0]) + hr(b[0]), hr(a[1]) + hr(c));
    h[1] = std::min(hr(a[0]) + hr(c), hr(a[1]) + hr(b[0]));
    out[0] = rnd(s64(s64(i128{a[0]} * b[0] - i128{a[1]} * c) << h[0]), 32);
    out[1] = rnd(s64(s64(i128{a[0]} * c + i128{a[1]} * b[0]) << h[1]), 32);
}

// kBins complex values: in the first kEdgeBins, bin k takes the boundary values numbered by the
// base-9 digits of k (digits 0 and 1 for operand 0, 2 and 3 for operand 1, so two operands meet
// in every combination), then random values of every magnitude.
Words operands(uint32_t seed, int operand) {
    std::mt19937 g(seed);
    Words v(2 * kBins);
    for (int w = 0; w < 2 * kBins; ++w) {
        const int scale = w % 2 ? (operand ? 729 : 9) : (operand ? 81 : 1);
        v[w] =
            w < 2 * kEdgeBins ? kEdge[w / 2 / scale % 9] : static_cast<int32_t>(g()) >> (g() % 32);
    }
    return v;
}

// Q values: mostly near each other, sometimes anywhere in [lo, hi].
template <class T>
std::vector<T> q_values(uint32_t seed, int lo, int hi) {
    std::mt19937 g(seed);
    std::vector<T> q(2 * kBins);
    for (auto &v : q)
        v = static_cast<T>(g() % 8 == 0 ? std::uniform_int_distribution<int>(lo, hi)(g)
                                        : int(g() % 50) - 10);
    return q;
}

TEST(KernelsVsReference, ComplexProducts) {
    const Words a = operands(1, 0), b = operands(2, 1), acc0 = operands(3, 1);
    const int32_t n = kBins - 1;  // odd: the last bin is left alone
    Words mult(a.size()), acc = acc0, conj(a.size()), cq(a.size());
    std::vector<int16_t> qo(a.size());
    Sonvel_AEC_Complex_Mult(a.data(), b.data(), mult.data(), n);
    Sonvel_AEC_Complex_Mla(a.data(), b.data(), acc.data(), n);
    Sonvel_AEC_Complex_ConjMult(a.data(), b.data(), conj.data(), n);
    Sonvel_AEC_Complex_ConjMult_Q(a.data(), b.data(), cq.data(), 7, qo.data(), n);
    EXPECT_EQ(
        (Words{mult[2 * n - 2], conj[2 * n - 1], cq[2 * n - 2], acc[2 * n - 1] - acc0[2 * n - 1]}),
        Words(4, 0));
    for (int32_t w = 0; w < 2 * (n - 1); w += 2) {
        SCOPED_TRACE(testing::Message() << "bin " << w / 2);
        const i128 pr = s64(i128{a[w]} * b[w] - i128{a[w + 1]} * b[w + 1]);
        const i128 pi = s64(i128{a[w]} * b[w + 1] + i128{a[w + 1]} * b[w]);
        const i128 cr = s64(i128{a[w]} * b[w] - i128{a[w + 1]} * neg(b[w + 1]));
        const i128 ci = s64(i128{a[w]} * neg(b[w + 1]) + i128{a[w + 1]} * b[w]);
        int32_t want[2];
        int h[2];
        conj_q(&a[w], &b[w], want, h);
        ASSERT_EQ((Words{mult[w], mult[w + 1], conj[w], conj[w + 1], cq[w], cq[w + 1], acc[w],
                         acc[w + 1], qo[w], qo[w + 1]}),
                  (Words{rnd(pr, 32), rnd(pi, 32), rnd(cr, 31), rnd(ci, 31), want[0], want[1],
                         s32(i128{acc0[w]} + rnd(pr, 31)), s32(i128{acc0[w + 1]} + rnd(pi, 31)),
                         h[0] - 18, h[1] - 18}));
    }
}

TEST(KernelsVsReference, BinPowers) {
    const Words x = operands(4, 0), qx = q_values<int32_t>(5, kMin, kMax);
    const int32_t n = kBins, done = n / 4 * 4;  // all bins in steps of 2, all but two in steps of 4
    Words et(n), qt(n), ef(n, 77), qf(n), e(n, 77);
    std::vector<int16_t> qe(n, 77);
    Sonvel_AEC_Complex_Energy_DQ_T(x.data(), qx.data(), et.data(), qt.data(), n);
    Sonvel_AEC_Complex_Energy_DQ_F(x.data(), qx.data(), ef.data(), qf.data(), n);
    Sonvel_AEC_Complex_Energy_F(x.data(), e.data(), -5, qe.data(), n);
    for (int32_t k = 0; k < n; ++k) {
        SCOPED_TRACE(testing::Message() << "bin " << k);
        const int64_t q0 = qx[2 * k], q1 = qx[2 * k + 1], qm = std::min(q0, q1);
        const auto part = [&](i128 p, int64_t q) {
            return floor_shift(p, static_cast<int>(std::min<int64_t>(2 * (q - qm), 127)));
        };
        const auto part_f = [](int32_t v) {
            const float f = static_cast<float>(v), sq = f * f;
            return f2i(std::ldexp(sq, -32));
        };
        ASSERT_EQ(et[k], s32(part(rnd(i128{x[2 * k]} * x[2 * k], 32), q0) +
                             part(rnd(i128{x[2 * k + 1]} * x[2 * k + 1], 32), q1)));
        ASSERT_EQ(qt[k], static_cast<int32_t>(static_cast<uint32_t>(2 * qm - 32)));
        int h = 0;
        const int32_t p = power_f(x[2 * k], x[2 * k + 1], h);
        if (k >= done)
            ASSERT_EQ((Words{ef[k], qf[k], e[k], qe[k]}), (Words{77, 0, 77, 77}));
        else
            ASSERT_EQ((Words{ef[k], qf[k], e[k], qe[k]}),
                      (Words{s32(part(part_f(x[2 * k]), q0) + part(part_f(x[2 * k + 1]), q1)),
                             qt[k], shift(p, hr(p)), 2 * h - 42 + hr(p)}));
    }
    EXPECT_EQ((Words{e[40], qe[40]}), (Words{0, 2 * -5 + 61}));  // zero bin
}

TEST(KernelsVsReference, FarEndPowerAtBothRates) {
    auto state = std::make_unique<AecState>();
    const Words x = operands(6, 0), p0 = operands(7, 0);
    for (int16_t len : {int16_t{64}, int16_t{128}}) {
        state->s16HalfFftLen = len;
        state->s16RateShift = len == 64 ? 8 : 7;
        Words p = p0;
        Sonvel_AEC_Energy(state.get(), x.data(), p.data());
        for (int k = 0; k < len + 8; ++k) {
            int h = 0;
            const int32_t e = power_f(x[2 * k], x[2 * k + 1], h),
                          up = 2 * (9 - state->s16RateShift) - 2 * h;
            const i128 es = up >= 0 ? s32(i128{e} << up) : floor_shift(e, -up);
            const float fresh = static_cast<float>(es) * 3277.0f,
                        old = static_cast<float>(p0[k]) * 29490.0f, sum = fresh + old;
            ASSERT_EQ(p[k], k < len + 4 ? f2i(std::ldexp(sum, -15)) : p0[k])
                << "bin " << k << " L " << len;
        }
    }
}

TEST(KernelsVsReference, Smoothing) {
    const Words x = operands(8, 0), y0 = operands(9, 1);
    const std::vector<int16_t> qx = q_values<int16_t>(10, -32768, 32767),
                               qy0 = q_values<int16_t>(11, -32768, 32767),
                               a = q_values<int16_t>(12, -32768, 32767);
    const int16_t n = kBins,
                  done = n / 4 *
                         4;  // elements of the real kernels (two left), bins of the complex one
    Words ydg = y0, y1 = y0, ye = y0, yc = y0;
    std::vector<int16_t> qdg = qy0, q1 = qy0, qe = qy0, qc = qy0;
    Sonvel_AEC_Smooth_DG_F(x.data(), ydg.data(), qx.data(), qdg.data(), a.data(), n);
    Sonvel_AEC_Smooth_F(x.data(), y1.data(), qx.data(), q1.data(), -32768, n);
    Sonvel_AEC_Complex_Energy_Smooth_F(x.data(), ye.data(), 8, qe.data(), 29490, n);
    Sonvel_AEC_Complex_ConjMult_Smooth_Q(x.data(), y0.data(), yc.data(), 7, qc.data(), 29490, n);
    // Element k of y / qy after smoothing x (Q qx) with factor a, or unchanged past the last step.
    const auto expect = [&](const Words &y, const std::vector<int16_t> &qy, int k, int32_t xv,
                            int qxv, int av, bool smoothed) {
        int q = qy0[k];
        const int32_t want = smoothed ? smooth(xv, qxv, y0[k], q, av) : y0[k];
        ASSERT_EQ((Words{y[k], qy[k]}), (Words{want, static_cast<int16_t>(q)})) << "element " << k;
    };
    for (int k = 0; k < n; ++k) {
        expect(ydg, qdg, k, x[k], qx[k], a[k], k < done);
        expect(y1, q1, k, x[k], qx[k], -32768, k < done);
        int h = 0, hc[2];
        const int32_t e = power_f(x[2 * k], x[2 * k + 1], h);
        expect(ye, qe, k, e, 2 * h - 16, 29490, k < done);
        int32_t c[2];
        conj_q(&x[2 * k], &y0[2 * k], c, hc);
        expect(yc, qc, 2 * k, c[0], hc[0] - 18, 29490, true);
        expect(yc, qc, 2 * k + 1, c[1], hc[1] - 18, 29490, true);
    }
}

// One common shift to q guard bits over the count rounded up to a multiple of 4; four guard words
// of value 1 behind the count bound the headroom of a zero spectrum to 30.
TEST(KernelEdges, BlockNormaliser) {
    std::mt19937 g(21);
    for (int32_t n : {257, 129, 64, 5, 0}) {
        for (int32_t q : {8, 7, 40, -3}) {
            Words v = operands(g(), 0);
            v.resize(n + 6);
            for (auto &x : v) x = n == 129 ? 0 : x >> g() % 24;
            Words want = v;
            for (int i = 1; i <= 4; ++i) want[n + i] = 1;
            const int32_t m = (n + 3) / 4 * 4;
            int h = 31;
            for (int i = 0; i < m; ++i) h = std::min(h, hr(want[i]));
            for (int i = 0; i < m; ++i) want[i] = shift(want[i], h - q);
            EXPECT_EQ(Sonvel_AEC_VetorNorm(v.data(), q, n), n == 129 ? 30 : h)
                << "n " << n << " q " << q;
            EXPECT_EQ(v, want) << "n " << n << " q " << q;
        }
    }
}

// Ascending, with many repeated values; a count below 2 leaves the vector alone.
TEST(KernelEdges, ExchangeSort) {
    std::mt19937 g(22);
    std::vector<int16_t> v(52);
    for (auto &x : v) x = static_cast<int16_t>(static_cast<int32_t>(g()) >> (16 + g() % 16));
    v[0] = INT16_MAX;
    std::vector<int16_t> want = v;
    EXPECT_EQ(Sonvel_AEC_Qsort(v.data(), 1) + Sonvel_AEC_Qsort(v.data(), -1), 0);
    EXPECT_EQ(v, want);
    std::sort(want.begin(), want.end());
    EXPECT_EQ(Sonvel_AEC_Qsort(v.data(), 52), 0);
    EXPECT_EQ(v, want);
}

}  // namespace
