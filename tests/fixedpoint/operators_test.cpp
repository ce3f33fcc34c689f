// Scalar operators: randomized and boundary comparison with plain 64-bit reference formulas and
// with the literal step-by-step definitions (doubling loops, restoring division, counting loops),
// documented results the sweeps do not reach, and the exported operators against their inline
// twins.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <tuple>
#include <vector>

#include "fixedpoint/basic_ops.h"
#include "fixedpoint/extended_ops.h"
#include "sonvel_aec_ops.h"

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

// Fifteen steps of restoring division give floor(num * 2^15 / den).
int16_t div_s_reference(int16_t num, int16_t den) {
    if (num <= 0 || den <= 0 || num > den) return 0;
    return static_cast<int16_t>(num == den ? 32767 : (int32_t{num} << 15) / den);
}

TEST(BasicOps, DocumentedResults) {
    EXPECT_EQ(fx::L_shr_opt(0x40000000, -30), 0x10000000);  // -30 taken as 2
    EXPECT_EQ(fx::shr_opt2(-32768, -1), -1);                // 31: sign fill
    EXPECT_EQ(fx::L_shl_opt(5, -63), 10);                   // -63 modulo 64 is 1
    EXPECT_EQ(fx::norm_l_opt(0), 31);
    EXPECT_EQ(fx::extract_l(0x12348765), static_cast<int16_t>(0x8765));
    EXPECT_EQ(fx::L_deposit_h(-32768), kMin);
    EXPECT_EQ(fx::sature_L(INT64_MIN), kMin);
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
        EXPECT_EQ(fx::sature(a), clamp64(a, -32768, 32767));
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
    counts.insert(counts.end(), {-32768, -32767, -1000, -63, 64, 1000, 32767});
    for (int32_t a : operands32()) {
        for (int n : counts) {
            const auto c = static_cast<int16_t>(n);
            ASSERT_EQ(fx::L_shl(a, c), L_shl_reference(a, n)) << a << " << " << n;
            ASSERT_EQ(fx::L_shl_opt2(a, c), L_shl_reference(a, n));
            ASSERT_EQ(fx::L_shr(a, c), L_shl_reference(a, -n)) << a << " >> " << n;
            // Unsaturated forms: shifts modulo 64 / the count modulo 32, clamped to 31.
            const uint64_t wide = static_cast<uint64_t>(int64_t{a}) << (n & 63);
            ASSERT_EQ(fx::L_shl_opt(a, c), static_cast<int32_t>(static_cast<uint32_t>(wide)));
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

// Every exported operator gives the same result as the inline operator the library uses internally.
// Draws from the boundary pools, with small shift counts and fresh random words mixed in.
struct Operands {
    std::mt19937 rng{2024};
    const std::vector<int16_t> v16 = operands16();
    const std::vector<int32_t> v32 = operands32();
    template <typename T>
    T next() {
        if constexpr (sizeof(T) == 2) {
            return rng() % 4 ? v16[rng() % v16.size()] : static_cast<int16_t>(int(rng() % 80) - 40);
        } else if constexpr (sizeof(T) == 4) {
            return rng() % 2 ? v32[rng() % v32.size()] : static_cast<int32_t>(rng());
        } else {
            return static_cast<int64_t>((uint64_t{rng()} << 32) | rng()) >> (rng() % 64);
        }
    }
};

template <typename R, typename... A, typename F>
void expect_same(const char *name, R (*exported)(A...), F twin, Operands &op) {
    for (int i = 0; i < 20000; ++i) {
        const std::tuple<A...> args{op.next<A>()...};
        ASSERT_EQ(std::apply(exported, args), std::apply(twin, args)) << name;
    }
}

#define SAME(name) \
    expect_same(   \
        #name, Sonvel_aec_##name, [](auto... v) { return fx::name(v...); }, op)

TEST(ExportedOperators, MatchInlineTwins) {
    Operands op;
    SAME(add);
    SAME(sub);
    SAME(abs_s);
    SAME(negate);
    SAME(mult);
    SAME(L_mult);
    SAME(L_mpy);
    SAME(L_mac);
    SAME(L_msu);
    SAME(L_add);
    SAME(L_sub);
    SAME(L_negate);
    SAME(L_abs);
    SAME(extract_h);
    SAME(extract_l);
    SAME(round);
    SAME(L_deposit_h);
    SAME(L_deposit_l);
    SAME(sature);
    SAME(sature_L);
    SAME(shl);
    SAME(shr);
    SAME(shr_opt2);
    SAME(L_shl);
    SAME(L_shl_opt2);
    SAME(L_shr);
    SAME(L_shl_opt);
    SAME(L_shr_opt);
    SAME(norm_s);
    SAME(norm_l);
    SAME(norm_l_opt);
    SAME(div_s);
    SAME(L_Comp);
    SAME(Mpy_32);
    SAME(Mpy_32_16);
    SAME(Mpy_32_opt);
    SAME(Mpy_32_16_opt);
    SAME(Mpy_32_16_opt2);
    SAME(Mpy_32_opt2);
    SAME(smulwt);
    SAME(smlabb);
    SAME(L_qdadd);
    SAME(L_qdsub);
    SAME(subc);
    SAME(Div_32_OP);
    SAME(Ln_OP);
    // Operators with output parameters.
    for (int i = 0; i < 20000; ++i) {
        const auto x = op.next<int32_t>();
        int16_t a[4] = {}, b[4] = {};
        Sonvel_aec_L_Extract(x, &a[0], &a[1]);
        fx::L_Extract(x, &b[0], &b[1]);
        ASSERT_EQ(Sonvel_aec_Log2(x, &a[2], &a[3]), fx::Log2(x, &b[2], &b[3]));
        ASSERT_TRUE(std::equal(a, a + 4, b)) << x;
    }
}

}  // namespace
