// Contract of the complex FFT service: refused arguments and plans, the scale factor, an
// untouched source, the inverse's 1/N and the clamping of inputs without headroom.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "sonvel_aec_fft.h"

namespace {

struct alignas(8) PlanArea {
    uint8_t bytes[SONVEL_FFT_PLAN_BYTES + 8];
};

using Block = std::vector<int32_t>;

Block random_block(int n, int bits, unsigned seed) {
    std::mt19937 rng(seed);
    std::uniform_int_distribution<int32_t> any(-(1 << bits), (1 << bits) - 1);
    Block x(2 * n);
    for (auto &v : x) v = any(rng);
    return x;
}

TEST(FftContract, InitRefusesBadArguments) {
    PlanArea plan{};
    for (int order : {-1, 0, 6, 9, 16}) EXPECT_NE(Sonvel_FFTInit_C_SC32(plan.bytes, order), 0);
    EXPECT_NE(Sonvel_FFTInit_C_SC32(nullptr, 8), 0);
    EXPECT_NE(Sonvel_FFTInit_C_SC32(plan.bytes + 4, 8), 0);
    // A refused set-up writes nothing.
    for (uint8_t b : plan.bytes) ASSERT_EQ(b, 0);
    EXPECT_EQ(Sonvel_FFTInit_C_SC32(plan.bytes, 7), 0);
    EXPECT_EQ(Sonvel_FFTInit_C_SC32(plan.bytes, 8), 0);
    // Only the plan's own bytes are written.
    plan.bytes[SONVEL_FFT_PLAN_BYTES] = 0xAB;
    EXPECT_EQ(Sonvel_FFTInit_C_SC32(plan.bytes, 8), 0);
    EXPECT_EQ(plan.bytes[SONVEL_FFT_PLAN_BYTES], 0xAB);
}

TEST(FftContract, TransformsRefuseBadArgumentsWithoutWriting) {
    PlanArea plan{};
    Block src = random_block(256, 20, 1);
    Block dst(512, 7);
    using Fn = int32_t (*)(const int32_t *, int32_t *, const void *, int32_t);
    for (Fn fn : {&Sonvel_FFTFwd_CToC_SC32_Sfs, &Sonvel_FFTInv_CToC_SC32_Sfs}) {
        // Unprepared (zeroed) plan.
        EXPECT_NE(fn(src.data(), dst.data(), plan.bytes, 0), 0);
        ASSERT_EQ(Sonvel_FFTInit_C_SC32(plan.bytes, 8), 0);
        EXPECT_NE(fn(nullptr, dst.data(), plan.bytes, 0), 0);
        EXPECT_NE(fn(src.data(), nullptr, plan.bytes, 0), 0);
        EXPECT_NE(fn(src.data(), dst.data(), nullptr, 0), 0);
        EXPECT_NE(fn(src.data(), dst.data(), plan.bytes + 4, 0), 0);
        EXPECT_NE(fn(src.data(), src.data(), plan.bytes, 0), 0);
        EXPECT_NE(fn(src.data(), src.data() + 2, plan.bytes, 0), 0);
        for (int32_t v : dst) ASSERT_EQ(v, 7);
        // A damaged plan is refused.
        PlanArea bad = plan;
        std::memset(bad.bytes, 0, 4);
        EXPECT_NE(fn(src.data(), dst.data(), bad.bytes, 0), 0);
        std::memset(plan.bytes, 0, sizeof plan.bytes);
    }
}

TEST(FftContract, SourceIsLeftUntouched) {
    PlanArea plan{};
    for (int order : {7, 8}) {
        ASSERT_EQ(Sonvel_FFTInit_C_SC32(plan.bytes, order), 0);
        const int n = 1 << order;
        // With and without headroom (the second takes the clamping path).
        for (int bits : {31 - order - 1, 30}) {
            const Block x = random_block(n, bits, 3);
            Block src = x;
            Block dst(2 * n);
            EXPECT_EQ(Sonvel_FFTFwd_CToC_SC32_Sfs(src.data(), dst.data(), plan.bytes, 0), 0);
            EXPECT_EQ(src, x);
            EXPECT_EQ(Sonvel_FFTInv_CToC_SC32_Sfs(src.data(), dst.data(), plan.bytes, 0), 0);
            EXPECT_EQ(src, x);
        }
    }
}

// Exact reference for a rounding shift: (v + 2^(k-1)) >> k.
int32_t round_shift(int64_t v, int k) { return static_cast<int32_t>((v + (int64_t{1} << (k - 1))) >> k); }

TEST(FftContract, ScaleFactorShiftsTheResult) {
    PlanArea plan{};
    ASSERT_EQ(Sonvel_FFTInit_C_SC32(plan.bytes, 8), 0);
    const int n = 256;
    // A DC block: every bin but 0 is exactly zero, bin 0 is exactly the sum.
    Block x(2 * n, 0);
    for (int i = 0; i < n; ++i) {
        x[2 * i] = 3001;
        x[2 * i + 1] = -1999;
    }
    Block y(2 * n);
    const int64_t re = 3001LL * n;
    const int64_t im = -1999LL * n;
    for (int sf : {0, 1, 3, 9, 20}) {
        ASSERT_EQ(Sonvel_FFTFwd_CToC_SC32_Sfs(x.data(), y.data(), plan.bytes, sf), 0);
        EXPECT_EQ(y[0], sf == 0 ? re : round_shift(re, sf)) << sf;
        EXPECT_EQ(y[1], sf == 0 ? im : round_shift(im, sf)) << sf;
    }
    for (int sf : {-1, -4}) {
        ASSERT_EQ(Sonvel_FFTFwd_CToC_SC32_Sfs(x.data(), y.data(), plan.bytes, sf), 0);
        EXPECT_EQ(y[0], re << -sf);
        EXPECT_EQ(y[1], im << -sf);
    }
    // Left shifts saturate; huge factors are accepted.
    ASSERT_EQ(Sonvel_FFTFwd_CToC_SC32_Sfs(x.data(), y.data(), plan.bytes, -20), 0);
    EXPECT_EQ(y[0], std::numeric_limits<int32_t>::max());
    EXPECT_EQ(y[1], std::numeric_limits<int32_t>::min());
    ASSERT_EQ(Sonvel_FFTFwd_CToC_SC32_Sfs(x.data(), y.data(), plan.bytes, 1000), 0);
    EXPECT_EQ(y[0], 0);
    ASSERT_EQ(Sonvel_FFTFwd_CToC_SC32_Sfs(x.data(), y.data(), plan.bytes, INT32_MIN), 0);
    EXPECT_EQ(y[0], std::numeric_limits<int32_t>::max());
    // The inverse divides by N first: a single bin 0 of value v gives v / N everywhere.
    Block spec(2 * n, 0);
    spec[0] = 5 * n + 100;
    for (int sf : {-2, 0, 2}) {
        ASSERT_EQ(Sonvel_FFTInv_CToC_SC32_Sfs(spec.data(), y.data(), plan.bytes, sf), 0);
        const int32_t want = round_shift(spec[0], 8 + sf);
        for (int i = 0; i < n; ++i) {
            ASSERT_EQ(y[2 * i], want) << sf;
            ASSERT_EQ(y[2 * i + 1], 0) << sf;
        }
    }
}

TEST(FftContract, InputsWithoutHeadroomAreClampedNotWrapped) {
    PlanArea plan{};
    for (int order : {7, 8}) {
        ASSERT_EQ(Sonvel_FFTInit_C_SC32(plan.bytes, order), 0);
        const int n = 1 << order;
        Block y(2 * n);
        // Full-scale DC: the forward sum saturates at both ends.
        Block hi(2 * n, std::numeric_limits<int32_t>::max());
        Block lo(2 * n, std::numeric_limits<int32_t>::min());
        ASSERT_EQ(Sonvel_FFTFwd_CToC_SC32_Sfs(hi.data(), y.data(), plan.bytes, 0), 0);
        EXPECT_EQ(y[0], std::numeric_limits<int32_t>::max());
        EXPECT_EQ(y[1], std::numeric_limits<int32_t>::max());
        ASSERT_EQ(Sonvel_FFTFwd_CToC_SC32_Sfs(lo.data(), y.data(), plan.bytes, 0), 0);
        EXPECT_EQ(y[0], std::numeric_limits<int32_t>::min());
        // Scaled down enough, a full-scale input comes out right.
        ASSERT_EQ(Sonvel_FFTFwd_CToC_SC32_Sfs(lo.data(), y.data(), plan.bytes, order), 0);
        EXPECT_EQ(y[0], std::numeric_limits<int32_t>::min());
        EXPECT_EQ(y[2], 0);
    }
}

}  // namespace
