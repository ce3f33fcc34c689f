// Complex product kernels against a 128-bit reference: rounding, 64-bit saturation, the
// two's-complement negation of the conjugate, the normalised product and the pairwise counts.
#include <gtest/gtest.h>

#include "sonvel_aec_spectral.h"
#include "spectral/kernels_reference.h"

namespace {

using kref::i128;

struct RefProd {
    int64_t re, im;
};

RefProd ref_mul(int32_t ar, int32_t ai, int32_t br, int32_t bi) {
    return {kref::sat64(static_cast<i128>(ar) * br - static_cast<i128>(ai) * bi),
            kref::sat64(static_cast<i128>(ar) * bi + static_cast<i128>(ai) * br)};
}

int32_t ref_neg(int32_t x) { return x == kref::kMin ? kref::kMin : -x; }

// Every pair of boundary values as (a, b) bins, then random bins.
struct Operands {
    std::vector<int32_t> a, b;
    int32_t bins;
};

Operands make_operands(uint32_t seed) {
    Operands o;
    for (int32_t x : kref::kEdge)
        for (int32_t y : kref::kEdge) {
            o.a.insert(o.a.end(), {x, y});
            o.b.insert(o.b.end(), {y, x});
            o.a.insert(o.a.end(), {x, x});
            o.b.insert(o.b.end(), {y, y});
        }
    kref::Gen g(seed);
    for (int k = 0; k < 2000; ++k) {
        o.a.insert(o.a.end(), {g.i32(), g.i32()});
        o.b.insert(o.b.end(), {g.i32(), g.i32()});
    }
    o.bins = static_cast<int32_t>(o.a.size() / 2);
    return o;
}

TEST(ComplexMultiply, ProductsMatchReference) {
    const Operands o = make_operands(11);
    std::vector<int32_t> mult(o.a.size()), conj(o.a.size());
    std::vector<int32_t> acc = kref::Gen(12).i32s(o.a.size());
    const std::vector<int32_t> acc0 = acc;
    Sonvel_AEC_Complex_Mult(o.a.data(), o.b.data(), mult.data(), o.bins);
    Sonvel_AEC_Complex_Mla(o.a.data(), o.b.data(), acc.data(), o.bins);
    Sonvel_AEC_Complex_ConjMult(o.a.data(), o.b.data(), conj.data(), o.bins);
    for (size_t w = 0; w < o.a.size(); w += 2) {
        const RefProd p = ref_mul(o.a[w], o.a[w + 1], o.b[w], o.b[w + 1]);
        const RefProd c = ref_mul(o.a[w], o.a[w + 1], o.b[w], ref_neg(o.b[w + 1]));
        SCOPED_TRACE(testing::Message() << "bin " << w / 2);
        EXPECT_EQ(mult[w], kref::rnd(p.re, 32));
        EXPECT_EQ(mult[w + 1], kref::rnd(p.im, 32));
        EXPECT_EQ(acc[w], kref::sat32(static_cast<i128>(acc0[w]) + kref::rnd(p.re, 31)));
        EXPECT_EQ(acc[w + 1], kref::sat32(static_cast<i128>(acc0[w + 1]) + kref::rnd(p.im, 31)));
        EXPECT_EQ(conj[w], kref::rnd(c.re, 31));
        EXPECT_EQ(conj[w + 1], kref::rnd(c.im, 31));
    }
}

TEST(ComplexMultiply, RoundingAndSaturationAtTheLimits) {
    // (2^31-1)^2: Q30 product 2^30-1, Q31 product 2^31-2.
    const int32_t a[4] = {kref::kMax, 0, 0, 0};
    int32_t out[4] = {};
    Sonvel_AEC_Complex_Mult(a, a, out, 2);
    EXPECT_EQ(out[0], (1 << 30) - 1);
    EXPECT_EQ(out[1], 0);
    int32_t acc[4] = {1, 0, 0, 0};
    Sonvel_AEC_Complex_Mla(a, a, acc, 2);
    EXPECT_EQ(acc[0], kref::kMax);  // 1 + 2^31 - 2
    // Im (-2^31 - 2^31 j)^2 = 2^63 exceeds the 64-bit range: saturated, not wrapped to -2^63.
    const int32_t x[4] = {kref::kMin, kref::kMin, 0, 0};
    Sonvel_AEC_Complex_Mult(x, x, out, 2);
    EXPECT_EQ(out[0], 0);
    EXPECT_EQ(out[1], kref::kMax);
    // The accumulator saturates in both directions instead of wrapping.
    int32_t hi[4] = {kref::kMax - 5, kref::kMin + 5, 0, 0};
    const int32_t one_q31[4] = {kref::kMax, 0, 0, 0};
    const int32_t b[4] = {1 << 20, -(1 << 20), 0, 0};
    Sonvel_AEC_Complex_Mla(one_q31, b, hi, 2);
    EXPECT_EQ(hi[0], kref::kMax);
    EXPECT_EQ(hi[1], kref::kMin);
}

TEST(ComplexMultiply, ConjugateOfMostNegativeImaginaryPartStaysNegative) {
    // c = -(-2^31) wraps to -2^31, so Re(a * conj(b)) = -a.im * c is positive here.
    const int32_t a[4] = {0, kref::kMax, 0, 0};
    const int32_t b[4] = {0, kref::kMin, 0, 0};
    int32_t out[4] = {};
    Sonvel_AEC_Complex_ConjMult(a, b, out, 2);
    EXPECT_EQ(out[0], kref::rnd(static_cast<i128>(kref::kMax) << 31, 31));
    EXPECT_GT(out[0], 0);
    int16_t q[4] = {};
    Sonvel_AEC_Complex_ConjMult_Q(a, b, out, 0, q, 2);
    EXPECT_GT(out[0], 0);
}

TEST(ComplexMultiply, NormalisedConjugateProductMatchesReference) {
    const Operands o = make_operands(21);
    std::vector<int32_t> out(o.a.size());
    std::vector<int16_t> qout(o.a.size());
    for (int16_t q : {int16_t{7}, int16_t{-3}, int16_t{20000}}) {
        Sonvel_AEC_Complex_ConjMult_Q(o.a.data(), o.b.data(), out.data(), q, qout.data(), o.bins);
        for (size_t w = 0; w < o.a.size(); w += 2) {
            const int32_t ar = o.a[w], ai = o.a[w + 1], br = o.b[w], c = ref_neg(o.b[w + 1]);
            const int hre = std::min(kref::hr(ar) + kref::hr(br), kref::hr(ai) + kref::hr(c));
            const int him = std::min(kref::hr(ar) + kref::hr(c), kref::hr(ai) + kref::hr(br));
            const RefProd p = ref_mul(ar, ai, br, c);
            const i128 sre = kref::sat64(static_cast<i128>(p.re) * (static_cast<i128>(1) << hre));
            const i128 sim = kref::sat64(static_cast<i128>(p.im) * (static_cast<i128>(1) << him));
            SCOPED_TRACE(testing::Message() << "bin " << w / 2 << " q " << q);
            EXPECT_EQ(out[w], kref::rnd(sre, 32));
            EXPECT_EQ(out[w + 1], kref::rnd(sim, 32));
            EXPECT_EQ(qout[w], static_cast<int16_t>(hre + 2 * q - 32));
            EXPECT_EQ(qout[w + 1], static_cast<int16_t>(him + 2 * q - 32));
        }
    }
}

TEST(ComplexMultiply, NormalisedConjugateProductKeepsItsValue) {
    // a = 0.3 - 0.2j, b = -0.1 + 0.05j in Q20: a conj(b) = -0.04 + 0.005j, each part scaled up by
    // the headroom of its factors (the real part, without cancellation, near full scale).
    const int16_t q = 20;
    const int32_t a[4] = {314573, -209715, 0, 0};
    const int32_t b[4] = {-104858, 52429, 0, 0};
    int32_t out[4] = {};
    int16_t qo[4] = {};
    Sonvel_AEC_Complex_ConjMult_Q(a, b, out, q, qo, 2);
    const double re = (314573.0 * -104858.0 + -209715.0 * 52429.0) / std::ldexp(1.0, 40);
    const double im = (-209715.0 * -104858.0 - 314573.0 * 52429.0) / std::ldexp(1.0, 40);
    EXPECT_NEAR(re, -0.04, 1e-5);
    EXPECT_NEAR(im, 0.005, 1e-5);
    EXPECT_NEAR(std::ldexp(static_cast<double>(out[0]), -qo[0]), re, 1e-8);
    EXPECT_NEAR(std::ldexp(static_cast<double>(out[1]), -qo[1]), im, 1e-8);
    EXPECT_GE(std::abs(out[0]), 1 << 28);
}

TEST(ComplexMultiply, CountsAreRoundedDownToPairs) {
    std::vector<int32_t> a(12, 1 << 30), b(12, 1 << 30);
    for (size_t w = 1; w < 12; w += 2) a[w] = 1 << 29, b[w] = 1 << 28;
    for (int32_t n : {5, 6, 0, -1, -6}) {
        const size_t done = n > 0 ? static_cast<size_t>(n & ~1) * 2 : 0;
        std::vector<int32_t> mult(12, 77), acc(12, 77), conj(12, 77), cq(12, 77), sm(12, 77);
        std::vector<int16_t> q(12, 77), qs(12, 77);
        Sonvel_AEC_Complex_Mult(a.data(), b.data(), mult.data(), n);
        Sonvel_AEC_Complex_Mla(a.data(), b.data(), acc.data(), n);
        Sonvel_AEC_Complex_ConjMult(a.data(), b.data(), conj.data(), n);
        Sonvel_AEC_Complex_ConjMult_Q(a.data(), b.data(), cq.data(), 0, q.data(), n);
        Sonvel_AEC_Complex_ConjMult_Smooth_Q(a.data(), b.data(), sm.data(), 0, qs.data(), 100, n);
        for (size_t w = 0; w < 12; ++w) {
            SCOPED_TRACE(testing::Message() << "n " << n << " word " << w);
            const bool touched = w < done;
            EXPECT_EQ(mult[w] != 77, touched);
            EXPECT_EQ(acc[w] != 77, touched);
            EXPECT_EQ(conj[w] != 77, touched);
            EXPECT_EQ(cq[w] != 77 || q[w] != 77, touched);
            EXPECT_EQ(sm[w] != 77 || qs[w] != 77, touched);
        }
    }
}

}  // namespace
