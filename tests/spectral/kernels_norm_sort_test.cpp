// Block normaliser (guard words, rounded-up span, common shift both ways) and exchange sort.
#include <gtest/gtest.h>

#include <algorithm>

#include "sonvel_aec_spectral.h"
#include "spectral/kernels_reference.h"

namespace {

// Normaliser written from its definition on a copy.
int32_t ref_norm(std::vector<int32_t> &v, int32_t q, int32_t n) {
    for (int i = 1; i <= 4; ++i) v[n + i] = 1;
    const int32_t m = (n + 3) / 4 * 4;
    int h = 31;
    for (int32_t i = 0; i < m; ++i) h = std::min(h, kref::hr(v[i]));
    for (int32_t i = 0; i < m; ++i) v[i] = kref::shift_wrap(v[i], h - q);
    return h;
}

TEST(VectorNorm, ZeroSpectrumIsBoundedByTheGuardWords) {
    for (int32_t fft_len : {128, 256}) {
        const int32_t q = fft_len == 128 ? 7 : 8;
        std::vector<int32_t> v(fft_len + 6, 0);
        EXPECT_EQ(Sonvel_AEC_VetorNorm(v.data(), q, fft_len + 1), 30);
        for (int32_t i = 0; i < fft_len + 2; ++i) ASSERT_EQ(v[i], 0) << i;
        // The first two guard words lie inside the rounded-up span and take the shift too.
        EXPECT_EQ(v[fft_len + 2], 1 << (30 - q));
        EXPECT_EQ(v[fft_len + 3], 1 << (30 - q));
        EXPECT_EQ(v[fft_len + 4], 1);
        EXPECT_EQ(v[fft_len + 5], 1);
    }
}

TEST(VectorNorm, MatchesReferenceForEveryShiftDirection) {
    kref::Gen g(91);
    for (int32_t n : {257, 129, 64, 5, 1, 0}) {
        for (int scale : {0, 4, 12, 31}) {
            for (int32_t q : {8, 0, 40, -3}) {
                std::vector<int32_t> v(n + 8);
                for (auto &x : v) x = g.i32() >> scale;
                std::vector<int32_t> want = v;
                const int32_t h_want = ref_norm(want, q, n);
                SCOPED_TRACE(testing::Message() << "n " << n << " scale " << scale << " q " << q);
                EXPECT_EQ(Sonvel_AEC_VetorNorm(v.data(), q, n), h_want);
                EXPECT_EQ(v, want);
            }
        }
    }
}

TEST(VectorNorm, MultipleOfFourLeavesTheWordAtNOut) {
    // With n = 8 only words 0..7 take part: word 8 neither bounds the headroom nor is shifted.
    std::vector<int32_t> v(13, 0);
    v[0] = 1 << 10;
    v[8] = kref::kMin;
    EXPECT_EQ(Sonvel_AEC_VetorNorm(v.data(), 4, 8), 20);
    EXPECT_EQ(v[0], 1 << 26);
    EXPECT_EQ(v[8], kref::kMin);
    EXPECT_EQ(v[9], 1);
}

TEST(ExchangeSort, SortsAscending) {
    int16_t v[4] = {3, -1, 3, 0};
    EXPECT_EQ(Sonvel_AEC_Qsort(v, 4), 0);
    EXPECT_EQ(std::vector<int16_t>(v, v + 4), (std::vector<int16_t>{-1, 0, 3, 3}));

    kref::Gen g(101);
    for (int16_t n : {int16_t{52}, int16_t{2}, int16_t{200}}) {
        std::vector<int16_t> w(n);
        for (auto &x : w) x = static_cast<int16_t>(g.range(-32768, 32767) >> g.range(0, 14));
        std::vector<int16_t> want = w;
        std::sort(want.begin(), want.end());
        Sonvel_AEC_Qsort(w.data(), n);
        EXPECT_EQ(w, want) << "n " << n;
    }
}

TEST(ExchangeSort, ShortAndNegativeCountsChangeNothing) {
    int16_t v[3] = {5, -7, 1};
    for (int16_t n : {int16_t{1}, int16_t{0}, int16_t{-3}}) {
        EXPECT_EQ(Sonvel_AEC_Qsort(v, n), 0);
        EXPECT_EQ(std::vector<int16_t>(v, v + 3), (std::vector<int16_t>{5, -7, 1}));
    }
}

}  // namespace
