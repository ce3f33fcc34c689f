// Every complex vector kernel against the slow reference, on all pairs of boundary values and on
// random operands with random Q values; counts that are not multiples of the kernel's step
// leave the elements behind the last whole step untouched.
#include <gtest/gtest.h>

#include <memory>

#include "sonvel_aec_spectral.h"
#include "spectral/kernels_reference.h"
#include "state/aec_state.h"

namespace {

using namespace kref;

TEST(KernelsVsReference, ComplexProducts) {
    const std::vector<int32_t> a = operands(1, false), b = operands(2, true), acc0 = operands(3, false);
    const int32_t n = static_cast<int32_t>(a.size() / 2);  // odd
    std::vector<int32_t> mult(a.size()), acc = acc0, conj(a.size()), cq(a.size());
    std::vector<int16_t> qo(a.size());
    Sonvel_AEC_Complex_Mult(a.data(), b.data(), mult.data(), n);
    Sonvel_AEC_Complex_Mla(a.data(), b.data(), acc.data(), n);
    Sonvel_AEC_Complex_ConjMult(a.data(), b.data(), conj.data(), n);
    Sonvel_AEC_Complex_ConjMult_Q(a.data(), b.data(), cq.data(), 7, qo.data(), n);
    EXPECT_EQ((std::vector{mult[2 * n - 2], conj[2 * n - 1], cq[2 * n - 2], acc[2 * n - 1] - acc0[2 * n - 1]}),
              (std::vector{0, 0, 0, 0}));
    for (size_t w = 0; w + 2 < a.size(); w += 2) {
        SCOPED_TRACE(testing::Message() << "bin " << w / 2);
        const i128 pr = s64(i128{a[w]} * b[w] - i128{a[w + 1]} * b[w + 1]);
        const i128 pi = s64(i128{a[w]} * b[w + 1] + i128{a[w + 1]} * b[w]);
        const i128 cr = s64(i128{a[w]} * b[w] - i128{a[w + 1]} * neg(b[w + 1]));
        const i128 ci = s64(i128{a[w]} * neg(b[w + 1]) + i128{a[w + 1]} * b[w]);
        int32_t want[2];
        int h[2];
        conj_q(&a[w], &b[w], want, h);
        EXPECT_EQ((std::vector{mult[w], mult[w + 1], conj[w], conj[w + 1], cq[w], cq[w + 1]}),
                  (std::vector{rnd(pr, 32), rnd(pi, 32), rnd(cr, 31), rnd(ci, 31), want[0], want[1]}));
        EXPECT_EQ(acc[w], s32(i128{acc0[w]} + rnd(pr, 31)));
        EXPECT_EQ(acc[w + 1], s32(i128{acc0[w + 1]} + rnd(pi, 31)));
        EXPECT_EQ(qo[w], h[0] - 18);
        EXPECT_EQ(qo[w + 1], h[1] - 18);
    }
}

TEST(KernelsVsReference, BinPowers) {
    const std::vector<int32_t> x = operands(4, false, 1001);
    const std::vector<int32_t> qx = q_values<int32_t>(5, x.size(), kMin, kMax);
    const int32_t n = static_cast<int32_t>(x.size() / 2);  // 1082: 1080 in steps of 4
    std::vector<int32_t> et(n), qt(n), ef(n, 77), qf(n), e(n, 77);
    std::vector<int16_t> qe(n, 77);
    Sonvel_AEC_Complex_Energy_DQ_T(x.data(), qx.data(), et.data(), qt.data(), n);
    Sonvel_AEC_Complex_Energy_DQ_F(x.data(), qx.data(), ef.data(), qf.data(), n);
    Sonvel_AEC_Complex_Energy_F(x.data(), e.data(), -5, qe.data(), n);
    for (int32_t k = 0; k < n; ++k) {
        SCOPED_TRACE(testing::Message() << "bin " << k);
        const int64_t q0 = qx[2 * k], q1 = qx[2 * k + 1], qm = std::min(q0, q1);
        const auto part = [&](i128 p, int64_t q) { return floor_shift(p, static_cast<int>(std::min<int64_t>(2 * (q - qm), 127))); };
        const auto part_f = [](int32_t v) { const float f = static_cast<float>(v), sq = f * f; return f2i(std::ldexp(sq, -32)); };
        EXPECT_EQ(et[k], s32(part(rnd(i128{x[2 * k]} * x[2 * k], 32), q0) + part(rnd(i128{x[2 * k + 1]} * x[2 * k + 1], 32), q1)));
        EXPECT_EQ(qt[k], static_cast<int32_t>(static_cast<uint32_t>(2 * qm - 32)));
        if (k >= 1080) {
            EXPECT_EQ((std::vector{ef[k], qf[k], e[k], int32_t{qe[k]}}), (std::vector{77, 0, 77, 77}));
            continue;
        }
        EXPECT_EQ(ef[k], s32(part(part_f(x[2 * k]), q0) + part(part_f(x[2 * k + 1]), q1)));
        EXPECT_EQ(qf[k], qt[k]);
        int h = 0;
        const int32_t p = power_f(x[2 * k], x[2 * k + 1], h);
        EXPECT_EQ(e[k], shift(p, hr(p)));
        EXPECT_EQ(qe[k], 2 * h - 42 + hr(p));
    }
    EXPECT_EQ((std::vector{e[40], int32_t{qe[40]}}), (std::vector{0, 2 * -5 + 61}));  // zero bin
}

TEST(KernelsVsReference, FarEndPowerAtBothRates) {
    auto state = std::make_unique<AecState>();
    for (int16_t len : {int16_t{64}, int16_t{128}}) {
        state->s16HalfFftLen = len;
        state->s16RateShift = len == 64 ? 8 : 7;
        const std::vector<int32_t> x = operands(6, true, len), p0 = operands(7, false, len);
        std::vector<int32_t> p = p0;
        Sonvel_AEC_Energy(state.get(), x.data(), p.data());
        for (int k = 0; k < len + 80; ++k) {
            int h = 0;
            const int32_t e = power_f(x[2 * k], x[2 * k + 1], h);
            const i128 es = 2 * (9 - state->s16RateShift) - 2 * h >= 0 ? s32(i128{e} << (2 * (9 - state->s16RateShift) - 2 * h)) : floor_shift(e, 2 * h - 2 * (9 - state->s16RateShift));
            const float fresh = static_cast<float>(es) * 3277.0f, old = static_cast<float>(p0[k]) * 29490.0f, sum = fresh + old;
            EXPECT_EQ(p[k], k < len + 4 ? f2i(std::ldexp(sum, -15)) : p0[k]) << "bin " << k << " L " << len;
        }
    }
}

TEST(KernelsVsReference, Smoothing) {
    const std::vector<int32_t> x = operands(8, false, 1001), y0 = operands(9, true, 1001);
    const std::vector<int16_t> qx = q_values<int16_t>(10, x.size(), -32768, 32767);
    const std::vector<int16_t> qy0 = q_values<int16_t>(11, x.size(), -32768, 32767);
    const std::vector<int16_t> a = q_values<int16_t>(12, x.size(), -32768, 32767);
    const int16_t n = static_cast<int16_t>(x.size() / 2);  // 1082: 1080 in steps of 4
    std::vector<int32_t> ydg = y0, y1 = y0, ye = y0, yc = y0;
    std::vector<int16_t> qdg = qy0, q1 = qy0, qe = qy0, qc = qy0;
    Sonvel_AEC_Smooth_DG_F(x.data(), ydg.data(), qx.data(), qdg.data(), a.data(), n);
    Sonvel_AEC_Smooth_F(x.data(), y1.data(), qx.data(), q1.data(), -32768, n);
    Sonvel_AEC_Complex_Energy_Smooth_F(x.data(), ye.data(), 8, qe.data(), 29490, n);
    Sonvel_AEC_Complex_ConjMult_Smooth_Q(x.data(), y0.data(), yc.data(), 7, qc.data(), 29490, n);
    // Element k of y / qy after smoothing x (Q qx) with factor a, or unchanged past the last step.
    const auto expect = [&](const auto &y, const auto &qy, int k, int32_t xv, int qxv, int av, bool done) {
        int q = qy0[k];
        EXPECT_EQ(y[k], done ? smooth(xv, qxv, y0[k], q, av) : y0[k]) << "element " << k;
        EXPECT_EQ(qy[k], static_cast<int16_t>(q)) << "element " << k;
    };
    for (int k = 0; k < n; ++k) {
        const bool done = k < 1080;
        expect(ydg, qdg, k, x[k], qx[k], a[k], done);
        expect(y1, q1, k, x[k], qx[k], -32768, done);
        int h = 0, hc[2];
        const int32_t e = power_f(x[2 * k], x[2 * k + 1], h);
        expect(ye, qe, k, e, 2 * h - 16, 29490, done);
        int32_t c[2];
        conj_q(&x[2 * k], &y0[2 * k], c, hc);
        expect(yc, qc, 2 * k, c[0], hc[0] - 18, 29490, true);
        expect(yc, qc, 2 * k + 1, c[1], hc[1] - 18, 29490, true);
    }
}

}  // namespace
