// Float-to-integer conversion of the block-floating-point helpers (the targets take different
// instruction paths): truncation, saturation at both ends, NaN and the values next to 2^31.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>

#include "fixedpoint/block_float.h"

namespace {

int32_t reference_f2i(float f) {
    if (std::isnan(f)) return 0;
    const double t = std::trunc(double{f});
    if (t >= 2147483647.0) return fx::kMax32;
    if (t <= -2147483648.0) return fx::kMin32;
    return static_cast<int32_t>(t);
}

TEST(BlockFloat, FloatToIntTruncatesAndSaturates) {
    const float inf = std::numeric_limits<float>::infinity();
    const float cases[] = {0.0f,          -0.0f,          0.99f,         -0.99f,
                           1.5f,          -1.5f,          2147483520.0f, -2147483520.0f,
                           2147483648.0f, -2147483648.0f, 4294967296.0f, -4294967296.0f,
                           1e30f,         -1e30f,         inf,           -inf,
                           std::nanf(""), -std::nanf(""), 0x1p-149f,     8388607.5f};
    for (float f : cases) EXPECT_EQ(fx::f2i(f), reference_f2i(f)) << f;
    std::mt19937 rng(3);
    for (int i = 0; i < 1000000; ++i) {
        const float f = std::bit_cast<float>(static_cast<uint32_t>(rng()));
        ASSERT_EQ(fx::f2i(f), reference_f2i(f)) << f;
    }
}

}  // namespace
