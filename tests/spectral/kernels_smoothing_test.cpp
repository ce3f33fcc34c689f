// Block-floating-point smoothing kernels against a reference written from the definition, their
// int16 counts, and the steady state of a constant input.
#include <gtest/gtest.h>

#include <cmath>

#include "sonvel_aec_spectral.h"
#include "spectral/kernels_reference.h"

namespace {

using kref::i128;

struct RefMant {
    int32_t m;
    int q;
};

// y = a*y + (32767 - a)*x, aligned to the smaller Q, saturated and renormalised.
RefMant ref_smooth(int32_t x, int qx, int32_t y, int qy, int a) {
    const int32_t ys = kref::rnd(static_cast<i128>(y) * a, 15);
    const int32_t xs = kref::rnd(static_cast<i128>(x) * (32767 - a), 15);
    const int qm = std::min(qx, qy);
    const i128 s = kref::floor_shift(xs, qx - qm) + kref::floor_shift(ys, qy - qm);
    const int32_t sat = kref::sat32(s);
    const int g = kref::hr(sat);
    return {kref::shift_wrap(sat, g), qm + g};
}

struct Elements {
    std::vector<int32_t> x, y;
    std::vector<int16_t> qx, qy, a;
};

Elements make_elements(uint32_t seed, size_t n) {
    kref::Gen g(seed);
    Elements e;
    e.x = g.i32s(n);
    e.y = g.i32s(n);
    for (size_t i = 0; i < n; ++i) {
        const bool wide = g.range(0, 7) == 0;
        e.qx.push_back(static_cast<int16_t>(wide ? g.range(-32768, 32767) : g.range(-10, 50)));
        e.qy.push_back(static_cast<int16_t>(wide ? g.range(-32768, 32767) : g.range(-10, 50)));
        const int pick = g.range(0, 5);
        e.a.push_back(static_cast<int16_t>(pick == 0 ? -32768 : pick == 1 ? 32767 : pick == 2 ? 0
                                                                         : g.range(-32768, 32767)));
    }
    return e;
}

TEST(Smoothing, ElementSmoothingMatchesReference) {
    const int16_t n = 4000;
    const Elements in = make_elements(61, n);
    Elements dg = in, one = in;
    Sonvel_AEC_Smooth_DG_F(in.x.data(), dg.y.data(), in.qx.data(), dg.qy.data(), in.a.data(), n);
    Sonvel_AEC_Smooth_F(in.x.data(), one.y.data(), in.qx.data(), one.qy.data(), 29490, n);
    for (int i = 0; i < n; ++i) {
        SCOPED_TRACE(testing::Message() << "element " << i);
        const RefMant r = ref_smooth(in.x[i], in.qx[i], in.y[i], in.qy[i], in.a[i]);
        EXPECT_EQ(dg.y[i], r.m);
        EXPECT_EQ(dg.qy[i], static_cast<int16_t>(r.q));
        const RefMant c = ref_smooth(in.x[i], in.qx[i], in.y[i], in.qy[i], 29490);
        EXPECT_EQ(one.y[i], c.m);
        EXPECT_EQ(one.qy[i], static_cast<int16_t>(c.q));
    }
}

TEST(Smoothing, SpectrumPowerSmoothingMatchesReference) {
    kref::Gen g(71);
    const int32_t bins = 3000;
    const std::vector<int32_t> x = g.i32s(2 * bins);
    const Elements in = make_elements(72, bins);
    for (int16_t q : {int16_t{8}, int16_t{-4}}) {
        std::vector<int32_t> y = in.y;
        std::vector<int16_t> qy = in.qy;
        Sonvel_AEC_Complex_Energy_Smooth_F(x.data(), y.data(), q, qy.data(), 29490, bins);
        for (int32_t k = 0; k < bins; ++k) {
            const int32_t re = x[2 * k], im = x[2 * k + 1];
            const int h = std::min(kref::hr(re), kref::hr(im));
            const float r = static_cast<float>(kref::shift_wrap(re, h));
            const float i = static_cast<float>(kref::shift_wrap(im, h));
            const float rr = r * r, ii = i * i;
            const float sum = rr + ii;
            const int32_t e = kref::f2i(std::ldexp(sum, -32));
            const RefMant m = ref_smooth(e, 2 * h + 2 * q - 32, in.y[k], in.qy[k], 29490);
            SCOPED_TRACE(testing::Message() << "bin " << k << " q " << q);
            EXPECT_EQ(y[k], m.m);
            EXPECT_EQ(qy[k], static_cast<int16_t>(m.q));
        }
    }
}

TEST(Smoothing, CrossSpectrumSmoothingMatchesReference) {
    kref::Gen g(81);
    const int32_t bins = 3000;
    const std::vector<int32_t> a = g.i32s(2 * bins), b = g.i32s(2 * bins);
    const Elements in = make_elements(82, 2 * bins);
    for (int16_t s : {int16_t{29490}, int16_t{0}, int16_t{-32768}}) {
        std::vector<int32_t> y = in.y;
        std::vector<int16_t> qy = in.qy;
        const int16_t q = 7;
        Sonvel_AEC_Complex_ConjMult_Smooth_Q(a.data(), b.data(), y.data(), q, qy.data(), s, bins);
        for (int32_t k = 0; k < bins; ++k) {
            const int32_t ar = a[2 * k], ai = a[2 * k + 1], br = b[2 * k];
            const int32_t c = b[2 * k + 1] == kref::kMin ? kref::kMin : -b[2 * k + 1];
            const int hre = std::min(kref::hr(ar) + kref::hr(br), kref::hr(ai) + kref::hr(c));
            const int him = std::min(kref::hr(ar) + kref::hr(c), kref::hr(ai) + kref::hr(br));
            const i128 pre = kref::sat64(static_cast<i128>(ar) * br - static_cast<i128>(ai) * c);
            const i128 pim = kref::sat64(static_cast<i128>(ar) * c + static_cast<i128>(ai) * br);
            const int32_t ore = kref::rnd(kref::sat64(pre * (static_cast<i128>(1) << hre)), 32);
            const int32_t oim = kref::rnd(kref::sat64(pim * (static_cast<i128>(1) << him)), 32);
            const RefMant mre = ref_smooth(ore, hre + 2 * q - 32, in.y[2 * k], in.qy[2 * k], s);
            const RefMant mim =
                ref_smooth(oim, him + 2 * q - 32, in.y[2 * k + 1], in.qy[2 * k + 1], s);
            SCOPED_TRACE(testing::Message() << "bin " << k << " s " << s);
            EXPECT_EQ(y[2 * k], mre.m);
            EXPECT_EQ(qy[2 * k], static_cast<int16_t>(mre.q));
            EXPECT_EQ(y[2 * k + 1], mim.m);
            EXPECT_EQ(qy[2 * k + 1], static_cast<int16_t>(mim.q));
        }
    }
}

TEST(Smoothing, ZeroAndMinusOneSumsRenormaliseByThirtyOneBits) {
    // S = 0 keeps 0 with Q + 31; S = -1 becomes -2^31 with Q + 31.
    const int32_t x[4] = {0, -1, 0, 0};
    int32_t y[4] = {0, 0, 0, 0};
    const int16_t qx[4] = {5, 5, 5, 5};
    int16_t qy[4] = {9, 9, 9, 9};
    Sonvel_AEC_Smooth_F(x, y, qx, qy, 0, 4);
    EXPECT_EQ(y[0], 0);
    EXPECT_EQ(qy[0], 36);
    EXPECT_EQ(y[1], kref::kMin);  // rnd_15(-32767) = -1
    EXPECT_EQ(qy[1], 36);
}

TEST(Smoothing, ConstantInputSettlesAtItsValue) {
    // 0.75 in Q20 smoothed into y = 0 with 0.9: y / 2^qy approaches 0.75 (32767 is one).
    const int32_t x[4] = {786432, 786432, 786432, 786432};
    const int16_t qx[4] = {20, 20, 20, 20};
    int32_t y[4] = {};
    int16_t qy[4] = {40, 40, 40, 40};
    for (int it = 0; it < 400; ++it) Sonvel_AEC_Smooth_F(x, y, qx, qy, 29490, 4);
    EXPECT_NEAR(std::ldexp(static_cast<double>(y[0]), -qy[0]), 0.75, 0.75 * 1e-3);
    EXPECT_EQ(kref::hr(y[0]), 0);
}

TEST(Smoothing, Int16CountsAreRoundedDownToFours) {
    const std::vector<int32_t> x(80, 1 << 20);
    const std::vector<int16_t> qx(80, 3), a(80, 100);
    for (int16_t n : {int16_t{65}, int16_t{3}, int16_t{-8}}) {
        const int by4 = n > 0 ? n & ~3 : 0;
        std::vector<int32_t> y1(80, 77), y2(80, 77);
        std::vector<int16_t> q1(80, 77), q2(80, 77);
        Sonvel_AEC_Smooth_DG_F(x.data(), y1.data(), qx.data(), q1.data(), a.data(), n);
        Sonvel_AEC_Smooth_F(x.data(), y2.data(), qx.data(), q2.data(), 100, n);
        for (int i = 0; i < 80; ++i) {
            SCOPED_TRACE(testing::Message() << "n " << n << " element " << i);
            EXPECT_EQ(q1[i] != 77, i < by4);
            EXPECT_EQ(q2[i] != 77, i < by4);
        }
    }
}

}  // namespace
