// Extended operators: documented results, round trips of the double-precision format, and
// accuracy of the products, the division and the logarithms against double-precision references.
// The identity digest pins the logarithm and power tables.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>

#include "fixedpoint/extended_ops.h"

namespace {

constexpr int32_t kMax = INT32_MAX;
constexpr int32_t kMin = INT32_MIN;

TEST(ExtendedOps, DocumentedResults) {
    EXPECT_EQ(fx::Mpy_32_opt(kMin, kMin), kMax);
    EXPECT_EQ(fx::Mpy_32_opt(0x40000000, 0x40000000), 0x20000000);
    EXPECT_EQ(fx::Mpy_32_opt(kMin, kMax), -kMax);
    EXPECT_EQ(fx::Mpy_32_16_opt(kMin, -32768), kMin);  // 2^31 wraps; no saturation
    EXPECT_EQ(fx::Mpy_32_16_opt2(-1, 1), -1);  // arithmetic shift: rounds toward minus infinity
    EXPECT_EQ(fx::Div_32_OP(0x20000000, 0x40000000), 0x3FFFFFF8);
    EXPECT_EQ(fx::Div_32_OP(0x20000000, 0x60000000), 0x2AAAAAA4);
    EXPECT_EQ(fx::Div_32_OP(1, 0x0000FFFF), 0);  // upper half 0: no estimate
    EXPECT_EQ(fx::Div_32_OP(1, -0x10000), 0);    // negative upper half
    EXPECT_EQ(fx::subc(7, 3), 9);
    EXPECT_EQ(fx::subc(3, 7), 6);
    EXPECT_EQ(fx::subc(kMax, -1), -2);  // the difference wraps negative, then 2a wraps
    EXPECT_EQ(fx::L_qdadd(kMax - 5, 0x40000000), kMax);
    EXPECT_EQ(fx::L_qdsub(0, kMin), kMax);
    EXPECT_EQ(fx::smlabb(-32768, -32768, kMax), kMax);
    EXPECT_EQ(fx::smulwt(0x40000000, 0x40000000), 0x10000000);

    // Log2: exponent and fraction, zero for non-positive input (and the result too, as for 1).
    const struct {
        int32_t x;
        int16_t e, f;
    } logs[] = {{1, 0, 0}, {kMax, 30, 32766}, {3 << 20, 21, 19167},
                {0, 0, 0}, {-1, 0, 0},        {kMin, 0, 0}};
    for (const auto &c : logs) {
        int16_t e = 99, f = 99;
        const int32_t r = fx::Log2(c.x, &e, &f);
        EXPECT_EQ(e, c.e) << c.x;
        EXPECT_EQ(f, c.f) << c.x;
        if (c.x <= 1) {
            EXPECT_EQ(r, 0) << c.x;
        }
        if (c.x <= 0) {
            EXPECT_EQ(fx::Ln_OP(c.x), -340680) << c.x;
        }
    }
    for (int k = -15; k <= 15; ++k) {  // ln of 2^k in Q15 with ln 2 as 22712, bit 0 cleared
        const int32_t x = static_cast<int32_t>(int64_t{32768} << 15 >> (15 - k));
        EXPECT_EQ(fx::Ln_OP(x), (22712 * k) & ~1) << k;
    }
}

TEST(ExtendedOps, DoublePrecisionRoundTripAndProducts) {
    std::mt19937 rng(3);
    for (int i = 0; i < 200000; ++i) {
        const int32_t L = static_cast<int32_t>(rng());
        int16_t hi = 0, lo = 0;
        fx::L_Extract(L, &hi, &lo);
        ASSERT_EQ(hi, L >> 16);
        ASSERT_GE(lo, 0);  // (L - hi * 2^16) / 2, for either sign of L
        ASSERT_LE(lo, 32767);
        ASSERT_EQ(fx::L_Comp(hi, lo), L & ~1) << L;

        // The double-precision products stay within a few units of the exact Q31 products.
        const int32_t M = static_cast<int32_t>(rng());
        int16_t hm = 0, lm = 0;
        fx::L_Extract(M, &hm, &lm);
        const double exact = static_cast<double>(L) * M / 2147483648.0;
        if (std::fabs(exact) < 2147483647.0) {
            ASSERT_NEAR(fx::Mpy_32(hi, lo, hm, lm), exact,
                        8.0);  // truncations and the dropped bit 0
            ASSERT_NEAR(fx::Mpy_32_opt(L, M), exact, 1.0);
        }
        ASSERT_NEAR(fx::Mpy_32_opt2(L, M), static_cast<double>(L) * M / 4294967296.0, 4.0);
        const auto n = static_cast<int16_t>(M);
        ASSERT_NEAR(fx::Mpy_32_16(hi, lo, n), static_cast<double>(L) * n / 32768.0, 4.0);
        if (L != kMin || n != -32768) {  // the one product that wraps (see above)
            ASSERT_NEAR(fx::Mpy_32_16_opt(L, n), static_cast<double>(L) * n / 32768.0, 2.0);
        }
        ASSERT_NEAR(fx::smulwt(L, M), static_cast<double>(L) * hm / 65536.0, 2.0);
    }
}

TEST(ExtendedOps, DivisionAndLogarithmAccuracy) {
    std::mt19937 rng(5);
    int64_t worst = 0;
    for (int i = 0; i < 200000; ++i) {
        const int32_t den = 0x40000000 + static_cast<int32_t>(rng() % 0x3FFFFFFFu);
        const int32_t num = 1 + static_cast<int32_t>(rng() % static_cast<uint32_t>(den - 1));
        const int32_t q = fx::Div_32_OP(num, den);
        const auto exact =
            static_cast<int64_t>(std::floor(static_cast<double>(num) / den * 2147483648.0));
        worst = std::max(worst, q > exact ? q - exact : exact - q);
    }
    EXPECT_LE(worst, 64);  // a few units from the truncations after one Newton step

    for (int i = 0; i < 200000; ++i) {
        const int32_t x = std::max(1, static_cast<int32_t>(rng() >> 1) >> (rng() % 31));
        int16_t e = 0, f = 0;
        fx::Log2(x, &e, &f);
        ASSERT_GE(f, 0);
        ASSERT_NEAR(e + f / 32768.0, std::log2(static_cast<double>(x)), 3e-4) << x;
        // ln 2 enters as 22712 / 32768, slightly below the true value.
        ASSERT_NEAR(fx::Ln_OP(x) / 32768.0, (std::log2(x) - 15.0) * (22712.0 / 32768.0), 3e-4) << x;
    }
    int32_t prev = INT32_MIN;
    for (int64_t x = 1; x <= kMax;
         x += 1 + x / 4096) {  // the fraction never decreases within an octave
        int16_t e = 0, f = 0;
        fx::Log2(static_cast<int32_t>(x), &e, &f);
        ASSERT_GE(e * 32768 + f, prev) << x;
        prev = e * 32768 + f;
    }
}

}  // namespace
