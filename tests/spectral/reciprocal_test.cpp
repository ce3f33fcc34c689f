// Single-precision reciprocal helper: estimates worked out by hand from the estimate tables'
// integer definition, special operands and range boundaries, the steps' single rounding, accuracy
// of the refined results against double precision, and on aarch64 the portable emulation against
// the native instructions over whole binades.
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

// Results are compared bit for bit: signed zeros and NaN payloads count.
struct Unary {
    float (*fn)(float);
    float x, want;
};
struct Binary {
    float (*fn)(float, float);
    float x, y, want;
};

TEST(Reciprocal, PinnedEstimatesStepsAndSpecialOperands) {
    const auto re = &pt::recip_estimate, se = &pt::rsqrt_estimate, r = &sp::recip, rs = &sp::rsqrt,
               sq = &sp::sqrt;
    const auto b = from_bits;
    const float nan = b(0x7FC00000u), max = std::numeric_limits<float>::max();
    const Unary cases[] = {
        // Table values: 1.0 is index 256 -> 511; 1.5 is index 384 -> 341; rsqrt 2.0 -> 361.
        {re, 1.0f, 0.998046875f},
        {re, -2.0f, -0.4990234375f},
        {re, 1.5f, 341.0f / 512},
        {se, 1.0f, 0.998046875f},
        {se, 4.0f, 0.4990234375f},
        {se, 2.0f, 361.0f / 512},
        {re, 0.0f, kInf},
        {re, -0.0f, -kInf},
        {re, kInf, 0.0f},
        {re, -kInf, -0.0f},
        {se, 0.0f, kInf},
        {se, -0.0f, -kInf},
        {se, kInf, 0.0f},
        {se, -1.0f, nan},
        {se, -kInf, nan},
        {se, -b(1), nan},
        // NaNs come back quieted with their payload and sign.
        {re, b(0x7F800001), b(0x7FC00001)},
        {re, b(0xFFC01234), b(0xFFC01234)},
        {se, b(0xFF800010), b(0xFFC00010)},
        // Below 2^-128 the reciprocal overflows; 2^-128 and 2^-127 normalise by two / one places.
        {re, b(0x001FFFFF), kInf},
        {re, -b(1), -kInf},
        {re, b(0x00200000), b(0x7F7F8000)},
        {re, b(0x00400000), b(0x7EFF8000)},
        // Results below the normal range become denormal from 2^126 up.
        {re, 0x1p125f, b(0x00FF8000)},
        {re, 0x1p126f, b(0x007FC000)},
        {re, 0x1p127f, b(0x003FE000)},
        {re, max, b(0x00200000)},
        // Denormal operands of the square root estimate are normalised first.
        {se, b(1), 361.0f / 256 * 0x1p74f},
        {se, 0x1p-126f, 0.998046875f * 0x1p63f},
        {se, max, 0x1p-64f},
        // Refined: exact where the result is representable; below 2^-128 the first step
        // 2 - x*inf turns the infinite estimate negative.
        {r, 1.0f, 1.0f},
        {r, 4.0f, 0.25f},
        {r, -0.0f, -kInf},
        {r, kInf, 0.0f},
        {rs, 0.0f, kInf},
        {rs, kInf, 0.0f},
        {sq, 0.0f, 0.0f},
        {sq, kInf, kInf},
        {sq, 1.0f, 1.0f},
        {sq, 4.0f, 2.0f},
        {r, b(0x00100000), -kInf}};
    for (const Unary &c : cases) EXPECT_EQ(bits(c.fn(c.x)), bits(c.want)) << std::hexfloat << c.x;
    EXPECT_TRUE(std::isnan(sp::rsqrt(-1.0f)) && std::isnan(sp::sqrt(-4.0f)) &&
                std::isnan(sp::recip(nan)));
    const auto rc = &pt::recip_step, rq = &pt::rsqrt_step;
    const Binary steps[] = {
        {rc, 0.0f, kInf, 2.0f},
        {rc, -kInf, 0.0f, 2.0f},
        {rq, 0.0f, -kInf, 1.5f},
        {rq, kInf, 0.0f, 1.5f},
        {rc, kInf, 2.0f, -kInf},
        {rc, -kInf, 2.0f, kInf},
        {rq, 1.0f, kInf, -kInf},
        {rc, 0x1p127f, -2.0f, kInf},
        {rc, 2.0f, 1.0f, 0.0f},
        {rq, 1.0f, 3.0f, 0.0f},  // an exact zero is +0
        // (3 + 3 * 2^127) / 2 is finite: the halving is inside the single rounding.
        {rq, 0x1p127f, -3.0f, 0x1.8p127f},
        // x*r = 1 + 2^-24 - 2^-47 would round to 1 alone; fused, 2 - x*r rounds to 1 - 2^-24. The
        // square root step rounds once too (a separate product would give 0x1.0016b8p+0).
        {rc, 1.0f + 0x1p-23f, 1.0f - 0x1p-24f, 1.0f - 0x1p-24f},
        {rq, 0x1.8d0118p+0f, 0x1.49ec76p-1f, 0x1.0016bap+0f},
        // A NaN comes back quieted; the first operand is negated before its NaN is chosen, and a
        // signalling NaN wins over a quiet one.
        {rc, b(0x7FC00005), 1.0f, b(0xFFC00005)},
        {rc, 1.0f, b(0x7F800007), b(0x7FC00007)},
        {rq, b(0x7FC00005), b(0x7F800007), b(0x7FC00007)},
        {rq, b(0xFF800003), b(0x7F800007), b(0x7FC00003)}};
    for (const Binary &c : steps)
        EXPECT_EQ(bits(c.fn(c.x, c.y)), bits(c.want)) << std::hexfloat << c.x << " " << c.y;
    // The estimates are good to about 8 bits everywhere in two binades.
    for (uint32_t u = bits(1.0f); u < bits(4.0f); u += 5) {
        const float x = from_bits(u);
        ASSERT_NEAR(pt::recip_estimate(x) * x, 1.0, 1.0 / 256) << x;
        ASSERT_NEAR(pt::rsqrt_estimate(x) * std::sqrt(double{x}), 1.0, 1.0 / 256) << x;
    }
}

// Without a fused instruction the multiply-add must still round exactly like std::fma, also where
// the double sum is inexact (tiny products against 2, huge exponent gaps, cancellation).
TEST(Reciprocal, FusedMultiplyAddMatchesLibraryFma) {
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> near_one(0.5f, 2.0f);
    for (int i = 0; i < 200000; ++i) {
        const float a = i % 2 ? near_one(rng) : from_bits(rng() & 0xBFFFFFFFu);
        const float b = i % 2 ? 1.0f / a * near_one(rng) : from_bits(rng() & 0xBFFFFFFFu);
        const float c = i % 3 ? -2.0f : from_bits(rng());
        if (std::isnan(a) || std::isnan(b) || std::isnan(c)) continue;
        ASSERT_EQ(bits(sp::detail::fused_madd(a, b, c)), bits(std::fma(a, b, c)))
            << a << " " << b << " " << c;
    }
    EXPECT_EQ(bits(sp::detail::fused_madd(0x1p-70f, 1.0f, 2.0f)),
              bits(std::fma(0x1p-70f, 1.0f, 2.0f)));
    EXPECT_EQ(bits(sp::detail::fused_madd(-0x1p-149f, 1.0f, 0x1p-149f)), bits(0.0f));
}

TEST(Reciprocal, RefinedResultsWithinAnUlp) {
    const auto ulps = [](float got, double want) {
        return std::fabs(got - want) / std::ldexp(1.0, std::ilogb(static_cast<float>(want)) - 23);
    };
    std::mt19937 rng(1);
    std::uniform_real_distribution<float> mant(1.0f, 2.0f);
    for (int i = 0; i < 200000; ++i) {
        const float x =
            std::ldexp(mant(rng), static_cast<int>(rng() % 250) - 124);  // 2^-124 .. 2^126
        ASSERT_LE(ulps(sp::recip(x), 1.0 / x), 1.5) << x;  // the last rounding plus the step error
        ASSERT_LE(ulps(sp::rsqrt(x), 1.0 / std::sqrt(double{x})), 2.0) << x;
        ASSERT_LE(ulps(sp::sqrt(x), std::sqrt(double{x})), 3.5)
            << x;  // two refined results in a row
        ASSERT_EQ(bits(sp::recip(-x)), bits(sp::recip(x)) ^ 0x80000000u);
    }
}

// The refined results (on x86-64 a short path for moderate exponents) equal the estimate and the
// three steps of the portable definitions, composed one by one: every exponent field and sign,
// with the mantissas at both ends of every estimate table interval and random ones. A NaN result
// is compared as NaN only: its payload through r * t depends on the operand order chosen.
TEST(Reciprocal, RefinedResultsMatchPortableComposition) {
    const auto recip_ref = [](float x) {
        float r = pt::recip_estimate(x);
        for (int i = 0; i < 3; ++i) r = r * pt::recip_step(x, r);
        return r;
    };
    const auto rsqrt_ref = [](float x) {
        float r = pt::rsqrt_estimate(x);
        for (int i = 0; i < 3; ++i) r = r * pt::rsqrt_step(x, r * r);
        return r;
    };
    std::mt19937 rng(5);
    const auto check = [&](uint32_t u) {
        const float x = from_bits(u);
        const auto same = [](float got, float want) {
            return std::isnan(want) ? std::isnan(got) : bits(got) == bits(want);
        };
        ASSERT_TRUE(same(sp::recip(x), recip_ref(x))) << std::hex << u;
        ASSERT_TRUE(same(sp::rsqrt(x), rsqrt_ref(x))) << std::hex << u;
        ASSERT_TRUE(same(sp::sqrt(x), recip_ref(rsqrt_ref(x)))) << std::hex << u;
    };
    for (uint32_t sign = 0; sign < 2; ++sign) {
        for (uint32_t e = 0; e < 256; ++e) {
            for (uint32_t m = 0; m < (1u << 23); m += 1u << 15) {
                const uint32_t u = sign << 31 | e << 23 | m;
                check(u);
                check(u | ((1u << 15) - 1));
                check(u | (rng() & ((1u << 15) - 1)));
            }
        }
    }
    for (int i = 0; i < 300000; ++i) check(rng());
}

#if defined(__aarch64__)
// The portable estimates and steps give the native instructions' bits: special values against each
// other, every mantissa of a few binades, and random pairs whose product is near the constants.
TEST(Reciprocal, PortableMatchesNativeInstructions) {
    std::vector<uint32_t> specials = {0x00000000u, 0x7F800000u, 0x7F7FFFFFu, 0x7FC00000u,
                                      0x7F800001u, 0x7FFFFFFFu, 0x00000001u, 0x001FFFFFu,
                                      0x00200000u, 0x00400000u, 0x00800000u, 0x3F800000u,
                                      0x7E800000u, 0x7F000000u, 0x7EFFFFFFu};
    for (std::size_t i = 0, n = specials.size(); i < n; ++i)
        specials.push_back(specials[i] | 0x80000000u);
    const auto steps_agree = [](float x, float y) {
        return bits(pt::recip_step(x, y)) == bits(sp::recip_step(x, y)) &&
               bits(pt::rsqrt_step(x, y)) == bits(sp::rsqrt_step(x, y));
    };
    const auto estimates_agree = [](float x) {
        return bits(pt::recip_estimate(x)) == bits(sp::recip_estimate(x)) &&
               bits(pt::rsqrt_estimate(x)) == bits(sp::rsqrt_estimate(x));
    };
    for (uint32_t a : specials) {
        ASSERT_TRUE(estimates_agree(from_bits(a))) << std::hex << a;
        for (uint32_t b : specials)
            ASSERT_TRUE(steps_agree(from_bits(a), from_bits(b))) << std::hex << a << " " << b;
    }
    // Every mantissa of the binades of 1 (odd exponent), 3 (even), 1e30 and the denormals; every
    // seventh one of 0.5 and of the top binade (denormal reciprocal estimates).
    const uint32_t binades[][2] = {{127, 1}, {128, 1}, {226, 1}, {0, 1}, {126, 7}, {254, 7}};
    for (const auto &[exponent, stride] : binades) {
        for (uint32_t m = 0; m < (1u << 23); m += stride) {
            const float x = from_bits(exponent << 23 | m),
                        p = sp::rsqrt_estimate(x) * sp::rsqrt_estimate(x);
            ASSERT_TRUE(estimates_agree(x) && steps_agree(x, sp::recip_estimate(x)) &&
                        steps_agree(x, p))
                << std::hex << bits(x);
        }
    }
    std::mt19937 rng(17);
    for (int i = 0; i < 500000; ++i) {
        const uint32_t a = rng();
        const uint32_t e = (253u - ((a >> 23) & 0xFFu) + rng() % 5) & 0xFFu;
        const uint32_t b = (rng() & 0x807FFFFFu) | e << 23;
        ASSERT_TRUE(steps_agree(from_bits(a), from_bits(b))) << std::hex << a << " " << b;
    }
}
#endif

}  // namespace
