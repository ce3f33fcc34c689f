// The exported kernels at their limits, with results worked out by hand: the complex products
// where all four parts are -2^31 (the 64-bit sum saturates, the accumulator saturates, the
// conjugate of -2^31 wraps) or full scale, the power of a zero bin, the block normaliser's guard
// words, rounded-up count and shifts beyond the word both ways, and the exchange sort. Random
// operands are pinned by the identity digest; the vectorised loops by the lane-equivalence tests.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

#include "sonvel_aec_spectral.h"

namespace {

using Words = std::vector<int32_t>;
constexpr int32_t kMin = INT32_MIN, kMax = INT32_MAX;

// Two bins (the kernels step in pairs), the second a copy of the first.
TEST(KernelLimits, ComplexProductsSaturate) {
    const Words corner{kMin, kMin, kMin, kMin}, full{kMax, 0, kMax, 0};
    Words out(4), acc{kMin, kMin, kMax, 0};
    Sonvel_AEC_Complex_Mult(corner.data(), corner.data(), out.data(), 2);
    EXPECT_EQ(out, (Words{0, kMax, 0, kMax}));  // re 2^62 - 2^62; im 2^63 saturates
    Sonvel_AEC_Complex_Mla(corner.data(), corner.data(), acc.data(), 2);
    EXPECT_EQ(acc, (Words{kMin, -1, kMax, kMax}));
    Sonvel_AEC_Complex_ConjMult(corner.data(), corner.data(), out.data(), 2);
    EXPECT_EQ(out, (Words{0, kMax, 0, kMax}));  // conj(-2^31) stays -2^31
    Sonvel_AEC_Complex_ConjMult(full.data(), full.data(), out.data(), 2);
    EXPECT_EQ(out, (Words{kMax - 1, 0, kMax - 1, 0}));                 // rnd_31((2^31 - 1)^2)
    Sonvel_AEC_Complex_Mult(full.data(), full.data(), out.data(), 1);  // one bin: none done
    EXPECT_EQ(out, (Words{kMax - 1, 0, kMax - 1, 0}));
}

TEST(KernelLimits, PowerOfAZeroBin) {
    const Words x(8, 0);
    Words e(4, 77);
    std::vector<int16_t> qe(4, 77);
    Sonvel_AEC_Complex_Energy_F(x.data(), e.data(), -5, qe.data(), 4);
    EXPECT_EQ(e, Words(4, 0));
    EXPECT_EQ(qe, std::vector<int16_t>(4, 2 * -5 + 61));
}

// One common shift over the count rounded up to a multiple of 4 (v[n] is read and shifted); four
// guard words of value 1 behind the count bound the headroom of a zero block of 4k + 1 words to 30.
TEST(KernelLimits, BlockNormaliser) {
    Words v{1 << 20, -3, 0, 7, 99, 5, 8, 8, 8, 8, 8};
    EXPECT_EQ(Sonvel_AEC_VetorNorm(v.data(), 7, 5), 10);
    EXPECT_EQ(v, (Words{1 << 23, -24, 0, 56, 792, 40, 8, 8, 1, 1, 8}));
    v.assign(11, 0);
    EXPECT_EQ(Sonvel_AEC_VetorNorm(v.data(), 0, 5), 30);
    EXPECT_EQ(v, (Words{0, 0, 0, 0, 0, 0, 1 << 30, 1 << 30, 1, 1, 0}));
    v = {5, -5, 1 << 28, -1};
    EXPECT_EQ(Sonvel_AEC_VetorNorm(v.data(), 45, -1), 31);  // a negative count touches nothing
    EXPECT_EQ(v, (Words{5, -5, 1 << 28, -1}));
    v.resize(12);
    EXPECT_EQ(Sonvel_AEC_VetorNorm(v.data(), 45, 4), 2);  // far right: the sign fill
    EXPECT_EQ(v, (Words{0, -1, 0, -1, 0, 1, 1, 1, 1, 0, 0, 0}));
    v = Words{5, -5, 1 << 28, -1, 0, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(Sonvel_AEC_VetorNorm(v.data(), -40, 4), 2);  // far left: 0
    EXPECT_EQ(v, (Words{0, 0, 0, 0, 0, 1, 1, 1, 1, 0, 0, 0}));
}

// Ascending, with many repeated values; a count below 2 leaves the vector alone.
TEST(KernelLimits, ExchangeSort) {
    std::mt19937 g(22);
    std::vector<int16_t> v(52);
    for (auto &x : v) x = static_cast<int16_t>(static_cast<int32_t>(g()) >> (16 + g() % 16));
    v[0] = INT16_MAX;
    std::vector<int16_t> want = v;
    EXPECT_EQ(Sonvel_AEC_Qsort(v.data(), 1) + Sonvel_AEC_Qsort(v.data(), -1), 0);
    EXPECT_EQ(v, want);
    std::sort(want.begin(), want.end());
    EXPECT_EQ(Sonvel_AEC_Qsort(v.data(), 52), 0);
    EXPECT_EQ(v, want);
}

}  // namespace
