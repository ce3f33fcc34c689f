// Scalar operators: randomized and boundary comparison with plain 64-bit reference formulas and
// with the literal step-by-step definitions (doubling loops, restoring division, counting loops),
// and documented results the sweeps do not reach. The exported operators forward to these; the
// identity digest pins their results on every target.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

#include "fixedpoint/basic_ops.h"
#include "fixedpoint/extended_ops.h"

namespace {

int64_t clamp64(int64_t v, int64_t lo, int64_t hi) { return v < lo ? lo : (v > hi ? hi : v); }

// Operands that stress the boundaries (saturation limits, sign changes, powers of two, small
// shift counts), then random ones.
std::vector<int16_t> operands16() {
    std::vector<int16_t> v = {0,   1,   -1,  2,     -2,     15,    16,     31,    32,
                              -16, -32, 255, 16384, -16384, 32767, -32768, 32766, -32767};
    std::mt19937 rng(7);
    for (int i = 0; i < 200; ++i) v.push_back(static_cast<int16_t>(rng()));
    return v;
}

std::vector<int32_t> operands32() {
    std::vector<int32_t> v = {
        0,          1,           -1,         INT32_MAX,   INT32_MIN, INT32_MAX - 1, INT32_MIN + 1,
        0x40000000, -0x40000000, 0x3FFFFFFF, -0x40000001, 0x8000,    0x7FFF7FFF,    0x7FFF8000};
    std::mt19937 rng(11);
    for (int i = 0; i < 300; ++i) {
        const int32_t r = static_cast<int32_t>(rng());
        v.push_back(r);
        v.push_back(r >> (rng() % 31));  // also small magnitudes
    }
    return v;
}

constexpr int32_t kMax = INT32_MAX;
constexpr int32_t kMin = INT32_MIN;

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
    for (; x < top; x *= 2) ++n;
    return n;
}

// Fifteen steps of restoring division; num == den gives 32767, invalid operands 0.
int16_t div_s_reference(int16_t num, int16_t den) {
    if (num <= 0 || den <= 0 || num > den) return 0;
    int32_t r = num, q = 0;
    for (int i = 0; i < 15; ++i) {
        r *= 2, q *= 2;
        if (r >= den) r -= den, ++q;
    }
    return static_cast<int16_t>(num == den ? 32767 : q);
}

// The saturation corners and results the sweeps do not reach; the identity digest pins the
// operators on random and boundary operands on every target.
TEST(BasicOps, DocumentedResults) {
    EXPECT_EQ(fx::add(32767, 1), 32767);
    EXPECT_EQ(fx::sub(-32768, 1), -32768);
    EXPECT_EQ(fx::abs_s(-32768), 32767);
    EXPECT_EQ(fx::negate(-32768), 32767);
    EXPECT_EQ(fx::mult(-32768, -32768), 32767);
    EXPECT_EQ(fx::mult(-1, 1), -1);  // the product shifted right: towards minus infinity
    EXPECT_EQ(fx::L_mult(-32768, -32768), kMax);
    EXPECT_EQ(fx::L_mpy(-32768, -32768), 0x40000000);
    EXPECT_EQ(fx::L_mac(kMax, 1, 1), kMax);
    EXPECT_EQ(fx::L_msu(kMin, -32768, -32768), kMin);
    EXPECT_EQ(fx::L_add(kMax, 1), kMax);
    EXPECT_EQ(fx::L_sub(kMin, 1), kMin);
    EXPECT_EQ(fx::L_abs(kMin), kMax);
    EXPECT_EQ(fx::L_negate(kMin), kMax);
    EXPECT_EQ(fx::round(0x7FFF7FFF), 32767);
    EXPECT_EQ(fx::round(0x7FFF8000), 32767);  // saturates before the upper half is taken
    EXPECT_EQ(fx::round(-0x8001), -1);
    EXPECT_EQ(fx::sature(-32769), -32768);
    EXPECT_EQ(fx::sature_L(INT64_MIN), kMin);
    EXPECT_EQ(fx::sature_L(int64_t{kMax} + 1), kMax);
    EXPECT_EQ(fx::L_shr_opt(0x40000000, -30), 0x10000000);  // -30 taken as 2
    EXPECT_EQ(fx::shr_opt2(-32768, -1), -1);                // 31: sign fill
    EXPECT_EQ(fx::L_shl_opt(5, -63), 10);                   // -63 modulo 64 is 1
    EXPECT_EQ(fx::norm_l_opt(0), 31);
    EXPECT_EQ(fx::extract_l(0x12348765), static_cast<int16_t>(0x8765));
    EXPECT_EQ(fx::L_deposit_h(-32768), kMin);
}

TEST(BasicOps, ShiftsMatchStepwiseDefinitions) {
    std::vector<int> counts;
    for (int n = -40; n <= 40; ++n) counts.push_back(n);
    counts.insert(counts.end(), {-32768, -32767, -1000, -63, 64, 1000, 32767});
    for (int32_t a : operands32()) {
        for (int n : counts) {
            const auto c = static_cast<int16_t>(n);
            ASSERT_EQ(fx::L_shl(a, c), L_shl_reference(a, n)) << a << " << " << n;
            ASSERT_EQ(fx::L_shl_opt2(a, c), L_shl_reference(a, n));
            ASSERT_EQ(fx::L_shr(a, c), L_shl_reference(a, -n)) << a << " >> " << n;
            // The unsaturated right shift: the count modulo 32, clamped to 31.
            const int r = n < 0 ? ((n % 32) + 32) % 32 : (n > 31 ? 31 : n);
            ASSERT_EQ(fx::L_shr_opt(a, c), a >> r);
        }
    }
    for (int16_t a : operands16()) {
        for (int n : counts) {
            // A negative count shifts the other way; left shifts saturate, right ones stop at 15.
            const auto c = static_cast<int16_t>(n);
            const int m = n < 0 ? -n : n;
            const int64_t left = clamp64(a * (int64_t{1} << std::min(m, 16)), -32768, 32767);
            const int64_t right = a >> std::min(m, 15);
            ASSERT_EQ(fx::shl(a, c), n >= 0 ? left : right) << a << " << " << n;
            ASSERT_EQ(fx::shr(a, c), n >= 0 ? right : left) << a << " >> " << n;
            const int r = n < 0 ? ((n % 32) + 32) % 32 : n;
            ASSERT_EQ(fx::shr_opt2(a, c), a >> (r > 15 ? 15 : r));
        }
    }
}

TEST(BasicOps, NormalisationAndDivisionMatchTheLoops) {
    for (int32_t a : operands32()) {
        ASSERT_EQ(fx::norm_l(a), norm_reference(a, 0x40000000)) << a;
        ASSERT_EQ(fx::norm_l_opt(a), a == 0 ? 31 : norm_reference(a, 0x40000000)) << a;
    }
    for (int a = -32768; a <= 32767; ++a) {
        ASSERT_EQ(fx::norm_s(static_cast<int16_t>(a)), norm_reference(a, 0x4000)) << a;
    }
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
