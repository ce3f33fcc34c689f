// Scalar operators: documented boundary results, and randomized comparison with plain 64-bit
// reference formulas and with the literal step-by-step definitions (doubling loops, restoring
// division, counting loops).
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include "fixedpoint/basic_ops.h"

namespace {

constexpr int32_t kMax = INT32_MAX;
constexpr int32_t kMin = INT32_MIN;

int64_t clamp64(int64_t v, int64_t lo, int64_t hi) { return v < lo ? lo : (v > hi ? hi : v); }

// 16-bit operands that stress the boundaries, then random ones.
std::vector<int16_t> operands16() {
    std::vector<int16_t> v = {0, 1, -1, 2, -2, 32767, -32768, 32766, -32767, 16384, -16384, 255};
    std::mt19937 rng(7);
    for (int i = 0; i < 200; ++i) v.push_back(static_cast<int16_t>(rng()));
    return v;
}

std::vector<int32_t> operands32() {
    std::vector<int32_t> v = {0, 1, -1, kMax, kMin, kMax - 1, kMin + 1, 0x40000000, -0x40000000,
                              0x3FFFFFFF, -0x40000001, 0x8000, 0x7FFF7FFF, 0x7FFF8000};
    std::mt19937 rng(11);
    for (int i = 0; i < 300; ++i) {
        const int32_t r = static_cast<int32_t>(rng());
        v.push_back(r);
        v.push_back(r >> (rng() % 31));  // also small magnitudes
    }
    return v;
}

// L_shl by the literal definition: doubling with the overflow checks before each step.
int32_t L_shl_reference(int32_t a, int n) {
    if (n <= 0) return -n >= 31 ? (a < 0 ? -1 : 0) : (a >> -n);
    for (int i = 0; i < n; ++i) {
        if (a > 0x3FFFFFFF) return kMax;
        if (a < -0x40000000) return kMin;
        a *= 2;
    }
    return a;
}

int16_t norm_reference(int64_t a, int64_t top) {
    if (a == 0) return 0;
    int64_t x = a < 0 ? ~a : a;
    if (x == 0) return static_cast<int16_t>(top == 0x4000 ? 15 : 31);
    int16_t n = 0;
    while (x < top) {
        x *= 2;
        ++n;
    }
    return n;
}

int16_t div_s_reference(int16_t num, int16_t den) {
    if (num == 0 || den == 0 || num > den || num < 0 || den < 0) return 0;
    if (num == den) return 32767;
    int32_t q = 0, r = num;
    for (int i = 0; i < 15; ++i) {
        r *= 2;
        q *= 2;
        if (r >= den) {
            r -= den;
            q += 1;
        }
    }
    return static_cast<int16_t>(q);
}

TEST(BasicOps, DocumentedBoundaryResults) {
    EXPECT_EQ(fx::shr(-5, 1), -3);
    EXPECT_EQ(fx::shr(-5, 20), -1);
    EXPECT_EQ(fx::shr(5, -3), 40);
    EXPECT_EQ(fx::shr(-32768, 1), -16384);
    EXPECT_EQ(fx::shr(1, -32768), 32767);  // negating -32768 must not wrap back to a right shift
    EXPECT_EQ(fx::shl(0, 40), 0);
    EXPECT_EQ(fx::shl(1, 16), 32767);
    EXPECT_EQ(fx::shl(-1, 15), -32768);
    EXPECT_EQ(fx::shl(-20000, -32768), -1);
    EXPECT_EQ(fx::shl(16384, 1), 32767);
    EXPECT_EQ(fx::shl(-16384, 1), -32768);

    EXPECT_EQ(fx::L_shl(0x40000000, 1), kMax);
    EXPECT_EQ(fx::L_shl(-0x40000000, 1), kMin);
    EXPECT_EQ(fx::L_shl(-1, 31), kMin);
    EXPECT_EQ(fx::L_shl(100, -32768), 0);
    EXPECT_EQ(fx::L_shl(-100, -32768), -1);
    EXPECT_EQ(fx::L_shl(0, 32767), 0);
    EXPECT_EQ(fx::L_shl(1, 32767), kMax);
    EXPECT_EQ(fx::L_shr(-1, 40), -1);
    EXPECT_EQ(fx::L_shr(1, -32768), kMax);

    EXPECT_EQ(fx::mult(-32768, -32768), 32767);
    EXPECT_EQ(fx::L_mult(-32768, -32768), kMax);
    EXPECT_EQ(fx::L_mpy(-32768, -32768), 0x40000000);
    EXPECT_EQ(fx::L_mac(-1, -32768, -32768), kMax - 1);  // the saturated product, then the sum
    EXPECT_EQ(fx::round(0x7FFF8000), 32767);
    EXPECT_EQ(fx::round(0x00018000), 2);
    EXPECT_EQ(fx::round(kMin), -32768);

    EXPECT_EQ(fx::abs_s(-32768), 32767);
    EXPECT_EQ(fx::negate(-32768), 32767);
    EXPECT_EQ(fx::L_abs(kMin), kMax);
    EXPECT_EQ(fx::L_negate(kMin), kMax);
    EXPECT_EQ(fx::extract_h(kMin), -32768);
    EXPECT_EQ(fx::extract_l(0x12348765), static_cast<int16_t>(0x8765));
    EXPECT_EQ(fx::L_deposit_h(-32768), kMin);
    EXPECT_EQ(fx::sature(70000), 32767);
    EXPECT_EQ(fx::sature_L(INT64_MIN), kMin);
}

TEST(BasicOps, NormalisationOfZeroAndMinusOne) {
    EXPECT_EQ(fx::norm_l(0), 0);
    EXPECT_EQ(fx::norm_l_opt(0), 31);
    EXPECT_EQ(fx::norm_l(-1), 31);
    EXPECT_EQ(fx::norm_l_opt(-1), 31);
    EXPECT_EQ(fx::norm_l(0x40000000), 0);
    EXPECT_EQ(fx::norm_l_opt(0x40000000), 0);
    EXPECT_EQ(fx::norm_l(0x3FFFFFFF), 1);
    EXPECT_EQ(fx::norm_l_opt(0x3FFFFFFF), 1);
    EXPECT_EQ(fx::norm_l(kMin), 0);
    EXPECT_EQ(fx::norm_s(0), 0);
    EXPECT_EQ(fx::norm_s(-1), 15);
    EXPECT_EQ(fx::norm_s(-32768), 0);
    EXPECT_EQ(fx::norm_s(1), 14);
}

TEST(BasicOps, DivisionBoundaries) {
    EXPECT_EQ(fx::div_s(1, 3), 10922);
    EXPECT_EQ(fx::div_s(3, 3), 32767);
    EXPECT_EQ(fx::div_s(4, 3), 0);
    EXPECT_EQ(fx::div_s(1, 0), 0);
    EXPECT_EQ(fx::div_s(-1, 3), 0);
    EXPECT_EQ(fx::div_s(1, -3), 0);
    EXPECT_EQ(fx::div_s(32766, 32767), 32766);
}

TEST(BasicOps, ShiftsWithoutSaturation) {
    EXPECT_EQ(fx::L_shr_opt(-8, 40), -1);
    EXPECT_EQ(fx::L_shr_opt(0x40000000, -1), 0);  // -1 taken as 31
    EXPECT_EQ(fx::L_shr_opt(0x40000000, -30), 0x10000000);  // -30 taken as 2
    EXPECT_EQ(fx::L_shr_opt(kMin, -32768), kMin);  // -32768 taken as 0
    EXPECT_EQ(fx::shr_opt2(-32768, -1), -1);  // 31: sign fill
    EXPECT_EQ(fx::shr_opt2(0x4000, -30), 0x1000);
    EXPECT_EQ(fx::shr_opt2(1234, -32768), 1234);
    EXPECT_EQ(fx::L_shl_opt(0x40000001, 1), static_cast<int32_t>(0x80000002u));  // wraps
    EXPECT_EQ(fx::L_shl_opt(1, 32), 0);
    EXPECT_EQ(fx::L_shl_opt(-1, 40), 0);
    EXPECT_EQ(fx::L_shl_opt(5, 64), 5);    // 64 modulo 64
    EXPECT_EQ(fx::L_shl_opt(5, -63), 10);  // -63 modulo 64 is 1
    EXPECT_EQ(fx::L_shl_opt(7, -32768), 7);
}

TEST(BasicOps, SaturatingArithmeticMatchesWideReference) {
    const auto v16 = operands16();
    for (int16_t a : v16) {
        EXPECT_EQ(fx::abs_s(a), clamp64(a < 0 ? -int64_t{a} : a, -32768, 32767));
        EXPECT_EQ(fx::negate(a), clamp64(-int64_t{a}, -32768, 32767));
        for (int16_t b : v16) {
            const int64_t p = int64_t{a} * b;
            ASSERT_EQ(fx::add(a, b), clamp64(int64_t{a} + b, -32768, 32767)) << a << " " << b;
            ASSERT_EQ(fx::sub(a, b), clamp64(int64_t{a} - b, -32768, 32767)) << a << " " << b;
            ASSERT_EQ(fx::mult(a, b), clamp64(p >> 15, -32768, 32767)) << a << " " << b;
            ASSERT_EQ(fx::L_mult(a, b), clamp64(2 * p, kMin, kMax)) << a << " " << b;
            ASSERT_EQ(fx::L_mpy(a, b), p);
        }
    }
    const auto v32 = operands32();
    for (int32_t a : v32) {
        EXPECT_EQ(fx::L_abs(a), clamp64(a < 0 ? -int64_t{a} : a, kMin, kMax));
        EXPECT_EQ(fx::L_negate(a), clamp64(-int64_t{a}, kMin, kMax));
        EXPECT_EQ(fx::round(a), clamp64(int64_t{a} + 0x8000, kMin, kMax) >> 16);
        for (int32_t b : v32) {
            ASSERT_EQ(fx::L_add(a, b), clamp64(int64_t{a} + b, kMin, kMax));
            ASSERT_EQ(fx::L_sub(a, b), clamp64(int64_t{a} - b, kMin, kMax));
        }
        for (int16_t b : v16) {
            const int64_t p = clamp64(2 * int64_t{b} * b, kMin, kMax);
            ASSERT_EQ(fx::L_mac(a, b, b), clamp64(a + p, kMin, kMax));
            ASSERT_EQ(fx::L_msu(a, b, b), clamp64(a - p, kMin, kMax));
        }
    }
}

TEST(BasicOps, ShiftsMatchStepwiseDefinitions) {
    std::vector<int> counts;
    for (int n = -40; n <= 40; ++n) counts.push_back(n);
    for (int n : {-32768, -32767, -1000, 1000, 32767}) counts.push_back(n);
    for (int32_t a : operands32()) {
        for (int n : counts) {
            const auto c = static_cast<int16_t>(n);
            const int32_t ref = L_shl_reference(a, n);
            ASSERT_EQ(fx::L_shl(a, c), ref) << a << " << " << n;
            ASSERT_EQ(fx::L_shl_opt2(a, c), ref);
            if (n != -32768) {
                ASSERT_EQ(fx::L_shr(a, static_cast<int16_t>(-n)), ref) << a << " >> " << -n;
            }
            // Unsaturated forms: shifts modulo 64 / the count modulo 32, clamped to 31.
            const uint64_t wide = static_cast<uint64_t>(int64_t{a}) << (n & 63);
            ASSERT_EQ(fx::L_shl_opt(a, c), static_cast<int32_t>(static_cast<uint32_t>(wide)));
            const int r = n < 0 ? ((n % 32) + 32) % 32 : (n > 31 ? 31 : n);
            ASSERT_EQ(fx::L_shr_opt(a, c), a >> r);
        }
    }
    for (int16_t a : operands16()) {
        for (int n : counts) {
            const auto c = static_cast<int16_t>(n);
            // Left: exact product if it fits, else saturated (counts beyond 15 always saturate).
            if (n >= 0) {
                const int64_t wide = n > 15 ? (a == 0 ? 0 : a * (int64_t{1} << 20)) : a * (int64_t{1} << n);
                ASSERT_EQ(fx::shl(a, c), clamp64(wide, -32768, 32767)) << a << " << " << n;
                ASSERT_EQ(fx::shr(a, c), a >> (n > 15 ? 15 : n));
            } else {
                ASSERT_EQ(fx::shl(a, c), a >> (-n > 15 ? 15 : -n));
            }
            const int r = n < 0 ? ((n % 32) + 32) % 32 : n;
            ASSERT_EQ(fx::shr_opt2(a, c), a >> (r > 15 ? 15 : r));
        }
    }
}

TEST(BasicOps, NormalisationMatchesCountingLoop) {
    for (int32_t a : operands32()) {
        ASSERT_EQ(fx::norm_l(a), norm_reference(a, 0x40000000)) << a;
        ASSERT_EQ(fx::norm_l_opt(a), a == 0 ? 31 : norm_reference(a, 0x40000000)) << a;
    }
    for (int a = -32768; a <= 32767; ++a) {
        ASSERT_EQ(fx::norm_s(static_cast<int16_t>(a)), norm_reference(a, 0x4000)) << a;
    }
}

TEST(BasicOps, DivisionMatchesRestoringLoop) {
    for (int16_t den : {1, 2, 3, 7, 100, 16383, 16384, 32767}) {
        for (int num = -2; num <= den + 1 && num <= 32767; ++num) {
            const auto n = static_cast<int16_t>(num);
            ASSERT_EQ(fx::div_s(n, den), div_s_reference(n, den)) << num << "/" << den;
        }
    }
    const auto v16 = operands16();
    for (int16_t a : v16)
        for (int16_t b : v16) ASSERT_EQ(fx::div_s(a, b), div_s_reference(a, b)) << a << "/" << b;
}

}  // namespace
