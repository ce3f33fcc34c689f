// Kernel behaviour at the limits: rounding of full-scale products, accumulator and 64-bit
// saturation, the wrapped conjugate, the block normaliser's guard words and span, and the
// exchange sort.
#include <gtest/gtest.h>

#include "sonvel_aec_spectral.h"
#include "spectral/kernels_reference.h"

namespace {

using namespace kref;

TEST(KernelEdges, FullScaleProducts) {
    const int32_t one[4] = {kMax, 0, 0, 0}, most_neg[4] = {kMin, kMin, 0, 0};
    int32_t out[4] = {}, acc[4] = {1, kMin + 5, 0, 0};
    Sonvel_AEC_Complex_Mult(one, one, out, 2);
    EXPECT_EQ(out[0], (1 << 30) - 1);  // rnd_32((2^31-1)^2)
    Sonvel_AEC_Complex_Mla(one, one, acc, 2);
    EXPECT_EQ(acc[0], kMax);  // 1 + rnd_31((2^31-1)^2) = 1 + 2^31 - 2
    const int32_t down[4] = {-(1 << 20), 0, 0, 0};
    Sonvel_AEC_Complex_Mla(down, one, acc, 2);
    EXPECT_EQ(acc[0], kMax - (1 << 20));
    const int32_t neg_im[4] = {0, -(1 << 20), 0, 0};
    Sonvel_AEC_Complex_Mla(one, neg_im, acc, 2);
    EXPECT_EQ(acc[1], kMin);  // saturates instead of wrapping
    Sonvel_AEC_Complex_Mult(most_neg, most_neg, out, 2);
    EXPECT_EQ(out[1], kMax);  // Im = 2^63: saturated at 64 bits, not wrapped to -2^63
    // conj of b.im = -2^31 keeps -2^31, so Re(a conj b) = -a.im * (-2^31) > 0.
    const int32_t a[4] = {0, kMax, 0, 0}, b[4] = {0, kMin, 0, 0};
    Sonvel_AEC_Complex_ConjMult(a, b, out, 2);
    EXPECT_EQ(out[0], kMax);
}

TEST(KernelEdges, BlockNormaliser) {
    for (int32_t len : {128, 256}) {  // zero spectrum: the guard words of value 1 bound h to 30
        const int32_t q = len == 128 ? 7 : 8;
        std::vector<int32_t> v(len + 6, 0), want(len + 6, 0);
        want[len + 2] = want[len + 3] = 1 << (30 - q);  // inside the rounded-up span
        want[len + 4] = want[len + 5] = 1;
        EXPECT_EQ(Sonvel_AEC_VetorNorm(v.data(), q, len + 1), 30);
        EXPECT_EQ(v, want);
    }
    std::mt19937 g(21);
    for (int32_t n : {257, 64, 5, 0}) {
        for (int32_t q : {8, 40, -3}) {
            std::vector<int32_t> v = operands(g(), false, n / 2);
            for (auto &x : v) x >>= g() % 24;
            std::vector<int32_t> want = v;
            for (int i = 1; i <= 4; ++i) want[n + i] = 1;
            const int32_t m = (n + 3) / 4 * 4;
            int h = 31;
            for (int i = 0; i < m; ++i) h = std::min(h, hr(want[i]));
            for (int i = 0; i < m; ++i) want[i] = shift(want[i], h - q);
            EXPECT_EQ(Sonvel_AEC_VetorNorm(v.data(), q, n), h) << "n " << n << " q " << q;
            EXPECT_EQ(v, want) << "n " << n << " q " << q;
        }
    }
}

TEST(KernelEdges, ExchangeSort) {
    std::vector<int16_t> v = {3, -1, 3, 0};
    EXPECT_EQ(Sonvel_AEC_Qsort(v.data(), 4), 0);
    EXPECT_EQ(v, (std::vector<int16_t>{-1, 0, 3, 3}));
    EXPECT_EQ(Sonvel_AEC_Qsort(v.data() + 1, -1), 0);
    v = {5, -7};
    Sonvel_AEC_Qsort(v.data(), 1);
    EXPECT_EQ(v, (std::vector<int16_t>{5, -7}));
    std::mt19937 g(22);
    v.resize(52);
    for (auto &x : v) x = static_cast<int16_t>(static_cast<int32_t>(g()) >> (16 + g() % 16));
    std::vector<int16_t> want = v;
    std::sort(want.begin(), want.end());
    Sonvel_AEC_Qsort(v.data(), 52);
    EXPECT_EQ(v, want);
}

}  // namespace
