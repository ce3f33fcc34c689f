// Single-precision reciprocal helper: estimates worked out by hand from the estimate tables'
// integer definition, special operands (zeros, infinities, NaNs, denormals, range boundaries),
// the steps' single rounding, accuracy of the refined results against double precision, and on
// aarch64 the portable emulation against the native instructions over whole binades.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <vector>

#include "spectral/reciprocal.h"

namespace {

namespace pt = sp::portable;

uint32_t bits(float f) { return std::bit_cast<uint32_t>(f); }
float from_bits(uint32_t u) { return std::bit_cast<float>(u); }

constexpr float kInf = std::numeric_limits<float>::infinity();
constexpr float kMaxF = std::numeric_limits<float>::max();

// Identical bit patterns (so that signed zeros and NaN payloads count).
#define EXPECT_SAME(a, b) EXPECT_EQ(bits(a), bits(b)) << (a) << " vs " << (b)

// Distance in units in the last place between a float and a double reference.
double ulps(float got, double want) {
    const int e = std::ilogb(static_cast<float>(want));
    return std::fabs(got - want) / std::ldexp(1.0, e - 23);
}

TEST(Reciprocal, EstimatesFromTheTableDefinition) {
    // 1.0: input index 256 gives 511 (1 + 255/256), exponent 253 - 127.
    EXPECT_SAME(pt::recip_estimate(1.0f), 0.998046875f);
    EXPECT_SAME(pt::recip_estimate(-2.0f), -0.4990234375f);
    // 1.5: index 384, (2^19 / 769 + 1) / 2 = 341.
    EXPECT_SAME(pt::recip_estimate(1.5f), 341.0f / 512.0f);
    // Odd exponent: index 128 + 0 gives 511; even exponent 2.0: index 256 gives 361.
    EXPECT_SAME(pt::rsqrt_estimate(1.0f), 0.998046875f);
    EXPECT_SAME(pt::rsqrt_estimate(4.0f), 0.4990234375f);
    EXPECT_SAME(pt::rsqrt_estimate(2.0f), 361.0f / 512.0f);
    // The estimates are good to about 8 bits everywhere in a binade.
    for (uint32_t u = bits(1.0f); u < bits(4.0f); u += 5) {
        const float x = from_bits(u);
        ASSERT_NEAR(pt::recip_estimate(x) * x, 1.0, 1.0 / 256) << x;
        ASSERT_NEAR(pt::rsqrt_estimate(x) * std::sqrt(static_cast<double>(x)), 1.0, 1.0 / 256) << x;
    }
}

TEST(Reciprocal, EstimatesOfSpecialOperands) {
    EXPECT_SAME(pt::recip_estimate(0.0f), kInf);
    EXPECT_SAME(pt::recip_estimate(-0.0f), -kInf);
    EXPECT_SAME(pt::recip_estimate(kInf), 0.0f);
    EXPECT_SAME(pt::recip_estimate(-kInf), -0.0f);
    EXPECT_SAME(pt::rsqrt_estimate(0.0f), kInf);
    EXPECT_SAME(pt::rsqrt_estimate(-0.0f), -kInf);
    EXPECT_SAME(pt::rsqrt_estimate(kInf), 0.0f);
    EXPECT_EQ(bits(pt::rsqrt_estimate(-1.0f)), 0x7FC00000u);  // default NaN
    EXPECT_EQ(bits(pt::rsqrt_estimate(-kInf)), 0x7FC00000u);
    EXPECT_EQ(bits(pt::rsqrt_estimate(-1e-45f)), 0x7FC00000u);
    // NaNs come back quieted with their payload and sign.
    EXPECT_EQ(bits(pt::recip_estimate(from_bits(0x7F800001u))), 0x7FC00001u);
    EXPECT_EQ(bits(pt::recip_estimate(from_bits(0xFFC01234u))), 0xFFC01234u);
    EXPECT_EQ(bits(pt::rsqrt_estimate(from_bits(0xFF800010u))), 0xFFC00010u);

    // Below 2^-128 the reciprocal overflows to infinity; 2^-128 itself still has an estimate.
    EXPECT_SAME(pt::recip_estimate(from_bits(0x001FFFFFu)), kInf);
    EXPECT_SAME(pt::recip_estimate(-from_bits(1u)), -kInf);
    EXPECT_EQ(bits(pt::recip_estimate(from_bits(0x00200000u))), 0x7F7F8000u);
    EXPECT_EQ(bits(pt::recip_estimate(from_bits(0x00400000u))), 0x7EFF8000u);  // 2^-127
    // Results below the normal range become denormal: 2^126 and up.
    EXPECT_EQ(bits(pt::recip_estimate(0x1p126f)), 0x007FC000u);
    EXPECT_EQ(bits(pt::recip_estimate(0x1p127f)), 0x003FE000u);
    EXPECT_EQ(bits(pt::recip_estimate(kMaxF)), 0x00200000u);
    EXPECT_EQ(bits(pt::recip_estimate(0x1p125f)), 0x00FF8000u);  // still normal
    // Denormal operands of the square root estimate are normalised first.
    EXPECT_SAME(pt::rsqrt_estimate(from_bits(1u)), 361.0f / 256.0f * 0x1p74f);  // 2^-149
    EXPECT_SAME(pt::rsqrt_estimate(0x1p-126f), 0.998046875f * 0x1p63f);
    EXPECT_SAME(pt::rsqrt_estimate(kMaxF), 256.0f / 256.0f * 0x1p-64f);
}

TEST(Reciprocal, StepsSpecialOperandsAndSingleRounding) {
    EXPECT_SAME(pt::recip_step(0.0f, kInf), 2.0f);
    EXPECT_SAME(pt::recip_step(-kInf, 0.0f), 2.0f);
    EXPECT_SAME(pt::rsqrt_step(0.0f, -kInf), 1.5f);
    EXPECT_SAME(pt::rsqrt_step(kInf, 0.0f), 1.5f);
    EXPECT_SAME(pt::recip_step(kInf, 2.0f), -kInf);
    EXPECT_SAME(pt::recip_step(-kInf, 2.0f), kInf);
    EXPECT_SAME(pt::rsqrt_step(1.0f, kInf), -kInf);
    EXPECT_SAME(pt::recip_step(2.0f, 1.0f), 0.0f);  // exact zero is +0
    EXPECT_SAME(pt::rsqrt_step(1.0f, 3.0f), 0.0f);
    EXPECT_SAME(pt::recip_step(0x1p127f, -2.0f), kInf);
    // (3 + 3 * 2^127) / 2 is finite although 3 + 3 * 2^127 is not: the halving is inside the
    // single rounding.
    EXPECT_SAME(pt::rsqrt_step(0x1p127f, -3.0f), 0x1.8p127f);
    // One rounding: x*r = 1 + 2^-24 - 2^-47 would round to 1 (giving 2 - 1 = 1); fused, the
    // result 1 - 2^-24 + 2^-47 rounds to 1 - 2^-24.
    EXPECT_SAME(pt::recip_step(1.0f + 0x1p-23f, 1.0f - 0x1p-24f), 1.0f - 0x1p-24f);
    // A NaN operand comes back quieted; the first operand is negated before its NaN is chosen.
    EXPECT_EQ(bits(pt::recip_step(from_bits(0x7FC00005u), 1.0f)), 0xFFC00005u);
    EXPECT_EQ(bits(pt::recip_step(1.0f, from_bits(0x7F800007u))), 0x7FC00007u);
    EXPECT_EQ(bits(pt::rsqrt_step(from_bits(0x7FC00005u), from_bits(0x7F800007u))), 0x7FC00007u);
    EXPECT_EQ(bits(pt::rsqrt_step(from_bits(0xFF800003u), from_bits(0x7F800007u))), 0x7FC00003u);
}

// The fused multiply-add without a fused instruction must round exactly like std::fma, also where
// the double sum is inexact (tiny products against 2, huge exponent gaps, cancellation).
TEST(Reciprocal, FusedMultiplyAddMatchesLibraryFma) {
    std::mt19937 rng(7);
    std::uniform_int_distribution<uint32_t> any;
    std::uniform_real_distribution<float> near_one(0.5f, 2.0f);
    for (int i = 0; i < 200000; ++i) {
        const float a = i % 2 ? near_one(rng) : from_bits(any(rng) & 0xBFFFFFFFu);
        const float b = i % 2 ? 1.0f / a * near_one(rng) : from_bits(any(rng) & 0xBFFFFFFFu);
        const float c = i % 3 ? -2.0f : from_bits(any(rng));
        if (std::isnan(a) || std::isnan(b) || std::isnan(c)) continue;
        EXPECT_SAME(sp::detail::fused_madd(a, b, c), std::fma(a, b, c));
    }
    EXPECT_SAME(sp::detail::fused_madd(0x1p-70f, 1.0f, 2.0f), std::fma(0x1p-70f, 1.0f, 2.0f));
    EXPECT_SAME(sp::detail::fused_madd(-0x1p-149f, 1.0f, 0x1p-149f), 0.0f);
}

TEST(Reciprocal, RefinedResultsWithinAnUlp) {
    std::mt19937 rng(1);
    std::uniform_real_distribution<float> mant(1.0f, 2.0f);
    for (int i = 0; i < 200000; ++i) {
        const float x = std::ldexp(mant(rng), static_cast<int>(rng() % 250) - 124);  // 2^-124 .. 2^126
        const double xd = x;
        ASSERT_LE(ulps(sp::recip(x), 1.0 / xd), 1.5) << x;  // the last rounding plus the step error
        ASSERT_LE(ulps(sp::rsqrt(x), 1.0 / std::sqrt(xd)), 2.0) << x;
        ASSERT_LE(ulps(sp::sqrt(x), std::sqrt(xd)), 3.5) << x;  // two refined results in a row
        ASSERT_EQ(bits(sp::recip(-x)), bits(sp::recip(x)) ^ 0x80000000u);
    }
}

TEST(Reciprocal, RefinedResultsOfSpecialOperands) {
    EXPECT_SAME(sp::recip(0.0f), kInf);
    EXPECT_SAME(sp::recip(-0.0f), -kInf);
    EXPECT_SAME(sp::recip(kInf), 0.0f);
    EXPECT_SAME(sp::rsqrt(0.0f), kInf);
    EXPECT_SAME(sp::rsqrt(kInf), 0.0f);
    EXPECT_SAME(sp::sqrt(0.0f), 0.0f);
    EXPECT_SAME(sp::sqrt(kInf), kInf);
    EXPECT_SAME(sp::sqrt(1.0f), 1.0f);
    EXPECT_SAME(sp::sqrt(4.0f), 2.0f);
    EXPECT_TRUE(std::isnan(sp::rsqrt(-1.0f)));
    EXPECT_TRUE(std::isnan(sp::sqrt(-4.0f)));
    EXPECT_TRUE(std::isnan(sp::recip(std::numeric_limits<float>::quiet_NaN())));
    // Below 2^-128 the estimate is infinite and the first step 2 - x*inf turns it negative.
    EXPECT_SAME(sp::recip(from_bits(0x00100000u)), -kInf);
    EXPECT_SAME(sp::recip(1.0f), 1.0f);
    EXPECT_SAME(sp::recip(4.0f), 0.25f);
}

#if defined(__aarch64__)
// Every mantissa of a few binades (normal, denormal, large), plus special values: the portable
// estimates and steps give the native instructions' bits.
TEST(Reciprocal, PortableMatchesNativeInstructions) {
    std::vector<uint32_t> specials = {0x00000000u, 0x7F800000u, 0x7F7FFFFFu, 0x7FC00000u, 0x7F800001u,
                                      0x7FFFFFFFu, 0x00000001u, 0x001FFFFFu, 0x00200000u, 0x00400000u,
                                      0x00800000u, 0x3F800000u, 0x7E800000u, 0x7F000000u, 0x7EFFFFFFu};
    for (std::size_t i = 0, n = specials.size(); i < n; ++i) specials.push_back(specials[i] | 0x80000000u);
    for (uint32_t a : specials) {
        const float x = from_bits(a);
        ASSERT_EQ(bits(pt::recip_estimate(x)), bits(sp::recip_estimate(x))) << std::hex << a;
        ASSERT_EQ(bits(pt::rsqrt_estimate(x)), bits(sp::rsqrt_estimate(x))) << std::hex << a;
        for (uint32_t b : specials) {
            const float y = from_bits(b);
            ASSERT_EQ(bits(pt::recip_step(x, y)), bits(sp::recip_step(x, y))) << std::hex << a << " " << b;
            ASSERT_EQ(bits(pt::rsqrt_step(x, y)), bits(sp::rsqrt_step(x, y))) << std::hex << a << " " << b;
        }
    }
    // Every mantissa of the binades of 1 (odd exponent), 3 (even), 1e30 and the denormals; every
    // seventh one of 0.5 and of the top binade (denormal reciprocal estimates).
    struct Binade {
        uint32_t exponent, stride;
    };
    for (const Binade b : {Binade{127, 1}, Binade{128, 1}, Binade{226, 1}, Binade{0, 1}, Binade{126, 7},
                           Binade{254, 7}}) {
        for (uint32_t m = 0; m < (1u << 23); m += b.stride) {
            const float x = from_bits(b.exponent << 23 | m);
            const float re = sp::recip_estimate(x), se = sp::rsqrt_estimate(x);
            ASSERT_EQ(bits(pt::recip_estimate(x)), bits(re)) << std::hex << bits(x);
            ASSERT_EQ(bits(pt::rsqrt_estimate(x)), bits(se)) << std::hex << bits(x);
            ASSERT_EQ(bits(pt::recip_step(x, re)), bits(sp::recip_step(x, re))) << std::hex << bits(x);
            const float p = se * se;
            ASSERT_EQ(bits(pt::rsqrt_step(x, p)), bits(sp::rsqrt_step(x, p))) << std::hex << bits(x);
        }
    }
    // Random operand pairs whose product is near the constants, where the single rounding shows.
    std::mt19937 rng(17);
    for (int i = 0; i < 500000; ++i) {
        const uint32_t a = rng();
        const uint32_t e = (253u - ((a >> 23) & 0xFFu) + rng() % 5) & 0xFFu;
        const uint32_t b = (rng() & 0x807FFFFFu) | e << 23;
        const float x = from_bits(a), y = from_bits(b);
        ASSERT_EQ(bits(pt::recip_step(x, y)), bits(sp::recip_step(x, y))) << std::hex << a << " " << b;
        ASSERT_EQ(bits(pt::rsqrt_step(x, y)), bits(sp::rsqrt_step(x, y))) << std::hex << a << " " << b;
    }
}
#endif

}  // namespace
