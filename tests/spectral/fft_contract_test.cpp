// Contract of the complex FFT service: refused arguments and plans (nothing written), an
// untouched source, the scale factor in both directions and clamping instead of wrap-around.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

#include "sonvel_aec_fft.h"

namespace {

constexpr int32_t kMax = std::numeric_limits<int32_t>::max();
constexpr int32_t kMin = std::numeric_limits<int32_t>::min();

struct alignas(8) PlanArea {
    uint8_t bytes[SONVEL_FFT_PLAN_BYTES + 8];
};

using Block = std::vector<int32_t>;
using Transform = int32_t (*)(const int32_t *, int32_t *, const void *, int32_t);

TEST(FftContract, RefusedArgumentsWriteNothing) {
    PlanArea plan{};
    for (int order : {-1, 0, 6, 9, 16}) EXPECT_NE(Sonvel_FFTInit_C_SC32(plan.bytes, order), 0);
    EXPECT_NE(Sonvel_FFTInit_C_SC32(nullptr, 8), 0);
    EXPECT_NE(Sonvel_FFTInit_C_SC32(plan.bytes + 4, 8), 0);
    for (uint8_t b : plan.bytes) ASSERT_EQ(b, 0);

    Block src(512, 1000);
    Block dst(512, 7);
    for (Transform fn : {&Sonvel_FFTFwd_CToC_SC32_Sfs, &Sonvel_FFTInv_CToC_SC32_Sfs}) {
        EXPECT_NE(fn(src.data(), dst.data(), plan.bytes, 0), 0);  // never prepared
        ASSERT_EQ(Sonvel_FFTInit_C_SC32(plan.bytes, 8), 0);
        EXPECT_EQ(plan.bytes[SONVEL_FFT_PLAN_BYTES], 0);  // stays inside its area
        EXPECT_NE(fn(nullptr, dst.data(), plan.bytes, 0), 0);
        EXPECT_NE(fn(src.data(), nullptr, plan.bytes, 0), 0);
        EXPECT_NE(fn(src.data(), dst.data(), nullptr, 0), 0);
        EXPECT_NE(fn(src.data(), dst.data(), plan.bytes + 4, 0), 0);
        EXPECT_NE(fn(src.data(), src.data() + 2, plan.bytes, 0), 0);  // overlapping
        PlanArea damaged = plan;
        damaged.bytes[0] ^= 1;
        EXPECT_NE(fn(src.data(), dst.data(), damaged.bytes, 0), 0);
        for (int32_t v : dst) ASSERT_EQ(v, 7);
        std::memset(plan.bytes, 0, sizeof plan.bytes);
    }
}

// (v + 2^(k-1)) >> k.
int32_t round_shift(int64_t v, int k) {
    return static_cast<int32_t>((v + (int64_t{1} << (k - 1))) >> k);
}

TEST(FftContract, ScaleFactorShiftsTheResult) {
    PlanArea plan{};
    ASSERT_EQ(Sonvel_FFTInit_C_SC32(plan.bytes, 8), 0);
    const int n = 256;
    // A constant block: bin 0 is exactly the sum, every other bin exactly zero.
    Block x(2 * n);
    for (int i = 0; i < n; ++i) {
        x[2 * i] = 3001;
        x[2 * i + 1] = -1999;
    }
    const Block original = x;
    const int64_t re = 3001LL * n;
    const int64_t im = -1999LL * n;
    Block y(2 * n);
    for (int sf : {-4, -1, 0, 1, 3, 9, 20}) {
        ASSERT_EQ(Sonvel_FFTFwd_CToC_SC32_Sfs(x.data(), y.data(), plan.bytes, sf), 0);
        EXPECT_EQ(y[0], sf <= 0 ? re << -sf : round_shift(re, sf)) << sf;
        EXPECT_EQ(y[1], sf <= 0 ? im << -sf : round_shift(im, sf)) << sf;
        EXPECT_EQ(y[2], 0);
    }
    // Left shifts saturate; any factor is accepted.
    ASSERT_EQ(Sonvel_FFTFwd_CToC_SC32_Sfs(x.data(), y.data(), plan.bytes, -20), 0);
    EXPECT_EQ(y[0], kMax);
    EXPECT_EQ(y[1], kMin);
    ASSERT_EQ(Sonvel_FFTFwd_CToC_SC32_Sfs(x.data(), y.data(), plan.bytes, kMin), 0);
    EXPECT_EQ(y[0], kMax);
    ASSERT_EQ(Sonvel_FFTFwd_CToC_SC32_Sfs(x.data(), y.data(), plan.bytes, kMax), 0);
    EXPECT_EQ(y[0], 0);
    EXPECT_EQ(x, original);
    // The inverse divides by N and scales in one rounding: bin 0 alone gives v / N everywhere.
    Block spec(2 * n, 0);
    spec[0] = 5 * n + 100;
    for (int sf : {-2, 0, 2}) {
        ASSERT_EQ(Sonvel_FFTInv_CToC_SC32_Sfs(spec.data(), y.data(), plan.bytes, sf), 0);
        for (int i = 0; i < n; ++i) {
            ASSERT_EQ(y[2 * i], round_shift(spec[0], 8 + sf)) << sf;
            ASSERT_EQ(y[2 * i + 1], 0) << sf;
        }
    }
}

TEST(FftContract, OverflowingResultsAreClamped) {
    PlanArea plan{};
    for (int order : {7, 8}) {
        ASSERT_EQ(Sonvel_FFTInit_C_SC32(plan.bytes, order), 0);
        const int n = 1 << order;
        const Block hi(2 * n, kMax);
        const Block lo(2 * n, kMin);
        Block y(2 * n);
        ASSERT_EQ(Sonvel_FFTFwd_CToC_SC32_Sfs(hi.data(), y.data(), plan.bytes, 0), 0);
        EXPECT_EQ(y[0], kMax);
        EXPECT_EQ(y[1], kMax);
        ASSERT_EQ(Sonvel_FFTFwd_CToC_SC32_Sfs(lo.data(), y.data(), plan.bytes, 0), 0);
        EXPECT_EQ(y[0], kMin);
        EXPECT_EQ(y[1], kMin);
    }
}

}  // namespace
