// The complex FFT service and the real FFT pair over it: accuracy against a long-double DFT for
// every input shape the service tells apart (worst errors in units of the last place, printed and
// bounded), refused arguments, the scale factor and clamping, and the real pair against direct
// calls of the service. The vectorised stages are compared with the portable ones in
// transform_lanes_test.cpp.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <random>
#include <utility>
#include <vector>

#include "sonvel_aec_fft.h"
#include "sonvel_aec_spectral.h"

namespace {

constexpr int32_t kMin = std::numeric_limits<int32_t>::min(),
                  kMax = std::numeric_limits<int32_t>::max();

struct alignas(8) PlanArea {
    uint8_t bytes[SONVEL_FFT_PLAN_BYTES + 8];
};  // 8 marker bytes behind

using Block = std::vector<int32_t>;  // re / im interleaved unless said otherwise

PlanArea prepared(int order) {
    PlanArea plan{};
    EXPECT_EQ(Sonvel_FFTInit_C_SC32(plan.bytes, order), 0);
    return plan;
}

// count words in [-lim, lim - 1].
Block random_block(int count, int64_t lim, std::mt19937 &rng) {
    std::uniform_int_distribution<int64_t> any(-lim, lim - 1);
    Block x(count);
    for (auto &v : x) v = static_cast<int32_t>(any(rng));
    return x;
}

// Worst |y - DFT(x) / divisor| over all words, the reference clamped to the 32-bit range; sign -1
// is the forward transform.
long double dft_error(const Block &x, const Block &y, int sign, long double divisor) {
    const int n = static_cast<int>(x.size() / 2);
    const long double pi = 3.141592653589793238462643383279502884L;
    std::vector<long double> cs(n), sn(n);
    for (int t = 0; t < n; ++t)
        cs[t] = std::cos(2 * pi * t / n), sn[t] = sign * std::sin(2 * pi * t / n);
    const auto error = [&](int32_t got, long double want) {
        return std::fabs(got - std::clamp(want / divisor, -0x1p31L, 0x1p31L - 1));
    };
    long double worst = 0, re, im;
    for (int k = 0; k < n; ++k) {
        re = im = 0;
        for (int t = 0; t < n; ++t) {
            re += x[2 * t] * cs[(k * t) % n] - x[2 * t + 1] * sn[(k * t) % n];
            im += x[2 * t] * sn[(k * t) % n] + x[2 * t + 1] * cs[(k * t) % n];
        }
        worst = std::max({worst, error(y[2 * k], re), error(y[2 * k + 1], im)});
    }
    return worst;
}

// Blocks with the log2 N bits of headroom every caller gives: random complex parts; real ones (the
// forward real-data path), also 16-bit samples scaled as the stages scale them; conjugate-symmetric
// ones (the inverse real-data path); those shapes with one large word off them (which the
// real-data paths must refuse); a negative full-scale real constant, alternating full-scale real
// signs, a complex corner constant.
enum Shape { kComplex, kReal, kSamples, kSymmetric, kOffReal, kOffSymmetric, kConstant, kShapes };
const char *const kShapeNames[] = {"complex",  "real",          "16-bit samples", "symmetric",
                                   "real + 1", "symmetric + 1", "constants"};

Block shaped(int shape, int order, int r, std::mt19937 &rng) {
    const int n = 1 << order;
    const int64_t lim = int64_t{1} << (31 - order);
    Block x = random_block(2 * n, lim, rng);
    if (shape != kComplex && shape != kConstant)
        for (int t = 0; t < n; ++t) x[2 * t + 1] = 0;
    if (shape == kSamples)
        for (int t = 0; t < n; ++t) x[2 * t] = static_cast<int16_t>(rng()) * (1 << (15 - order));
    if (shape == kSymmetric || shape == kOffSymmetric) {
        x = random_block(2 * n, lim / 2, rng);
        x[1] = x[n + 1] = 0;
        for (int k = 1; k < n / 2; ++k)
            x[2 * (n - k)] = x[2 * k], x[2 * (n - k) + 1] = -x[2 * k + 1];
    }
    if (shape == kOffReal || shape == kOffSymmetric)
        x[rng() % (2 * n)] ^= static_cast<int32_t>(lim / 2);
    for (int t = 0; shape == kConstant && t < n; ++t) {
        x[2 * t] = static_cast<int32_t>(r % 3 == 1 && t % 2 ? lim - 1 : -lim);
        x[2 * t + 1] = static_cast<int32_t>(r % 3 == 2 ? -lim : 0);
    }
    return x;
}

// Every shape, and full-scale complex blocks with the forward result scaled down by N.
TEST(FftService, MatchesLongDoubleDft) {
    for (int order : {7, 8}) {
        const PlanArea plan = prepared(order);
        const int n = 1 << order;
        std::mt19937 rng(static_cast<unsigned>(order));
        for (int shape = 0; shape <= kShapes; ++shape) {
            const bool full_scale = shape == kShapes;
            long double fwd = 0, inv = 0;
            for (int r = 0; r < 6; ++r) {
                const Block x = full_scale ? random_block(2 * n, int64_t{1} << 31, rng)
                                           : shaped(shape, order, r, rng);
                Block y(2 * n);
                const int fwd_shift = full_scale ? order : 0;
                ASSERT_EQ(Sonvel_FFTFwd_CToC_SC32_Sfs(x.data(), y.data(), plan.bytes, fwd_shift),
                          0);
                fwd = std::fmax(fwd, dft_error(x, y, -1, std::ldexp(1.0L, fwd_shift)));
                ASSERT_EQ(Sonvel_FFTInv_CToC_SC32_Sfs(x.data(), y.data(), plan.bytes, 0), 0);
                inv = std::fmax(inv, dft_error(x, y, +1, n));
            }
            std::printf(
                "N = %d, %s: worst error forward %.3Lf, inverse %.3Lf (units of the last "
                "place)\n",
                n, full_scale ? "full scale (forward / N)" : kShapeNames[shape], fwd, inv);
            EXPECT_LE(fwd, shape == kComplex || full_scale ? 3.0L : 2.0L);
            EXPECT_LE(inv, full_scale ? 3.0L : 0.75L);
        }
    }
}

TEST(FftService, RefusedArgumentsWriteNothing) {
    PlanArea plan{};
    for (int order : {-1, 0, 6, 9, 16}) EXPECT_NE(Sonvel_FFTInit_C_SC32(plan.bytes, order), 0);
    EXPECT_NE(Sonvel_FFTInit_C_SC32(nullptr, 8), 0);
    EXPECT_NE(Sonvel_FFTInit_C_SC32(plan.bytes + 4, 8), 0);
    for (uint8_t b : plan.bytes) ASSERT_EQ(b, 0);
    Block src(512, 1000), dst(512, 7);
    for (auto *fn : {&Sonvel_FFTFwd_CToC_SC32_Sfs, &Sonvel_FFTInv_CToC_SC32_Sfs}) {
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
        plan = PlanArea{};
    }
}

// A constant block: bin 0 is exactly the sum, every other bin exactly zero. Right shifts round
// (v + 2^(k-1)) >> k, left shifts saturate, any factor is accepted; the inverse divides by N and
// scales in one rounding; overflowing sums clamp instead of wrapping.
TEST(FftService, ScaleFactorRoundsSaturatesAndClamps) {
    const PlanArea plan = prepared(8);
    const auto round_shift = [](int64_t v, int k) -> int32_t {
        return k <= 0 ? v << -k : (v + (int64_t{1} << (k - 1))) >> k;
    };
    Block x(512), y(512), spectrum(512, 0);
    for (int i = 0; i < 256; ++i) x[2 * i] = 3001, x[2 * i + 1] = -1999;
    const Block original = x;
    for (int sf : {-4, -1, 0, 1, 3, 9, 20}) {
        ASSERT_EQ(Sonvel_FFTFwd_CToC_SC32_Sfs(x.data(), y.data(), plan.bytes, sf), 0);
        EXPECT_EQ((Block{y[0], y[1], y[2]}),
                  (Block{round_shift(3001 * 256, sf), round_shift(-1999 * 256, sf), 0}))
            << sf;
    }
    ASSERT_EQ(Sonvel_FFTFwd_CToC_SC32_Sfs(x.data(), y.data(), plan.bytes, -20), 0);
    EXPECT_EQ((Block{y[0], y[1]}), (Block{kMax, kMin}));
    for (const auto &[sf, want] : {std::pair{kMin, kMax}, std::pair{kMax, 0}}) {
        ASSERT_EQ(Sonvel_FFTFwd_CToC_SC32_Sfs(x.data(), y.data(), plan.bytes, sf), 0);
        EXPECT_EQ(y[0], want) << sf;
    }
    EXPECT_EQ(x, original);
    spectrum[0] = 5 * 256 + 100;
    for (int sf : {-2, 0, 2}) {
        ASSERT_EQ(Sonvel_FFTInv_CToC_SC32_Sfs(spectrum.data(), y.data(), plan.bytes, sf), 0);
        for (int i = 0; i < 256; ++i)
            ASSERT_EQ((Block{y[2 * i], y[2 * i + 1]}), (Block{round_shift(spectrum[0], 8 + sf), 0}))
                << sf;
    }
    for (int order : {7, 8}) {
        for (int32_t v : {kMax, kMin}) {
            const Block in(2 << order, v);
            ASSERT_EQ(Sonvel_FFTFwd_CToC_SC32_Sfs(in.data(), y.data(), prepared(order).bytes, 0),
                      0);
            EXPECT_EQ((Block{y[0], y[1]}), (Block{v, v})) << order;
        }
    }
}

// Forward: bins 0..N/2 exactly as the service computes them for zero imaginary parts, the words
// behind left alone. Inverse: the service's result for the conjugate-symmetric completion, whose
// imaginary parts are negated with saturation except for bin N-1 (two's complement); buf[N],
// buf[N+1] and the words behind keep their values.
TEST(RealFft, MatchesTheService) {
    for (int order : {7, 8}) {
        const PlanArea plan = prepared(order);
        const int n = 1 << order, lim = 1 << (31 - order);
        std::mt19937 rng(static_cast<unsigned>(order));
        const Block x = random_block(n, lim, rng);
        Block c(2 * n, 0), want(2 * n), buf = x;
        for (int i = 0; i < n; ++i) c[2 * i] = x[i];
        ASSERT_EQ(Sonvel_FFTFwd_CToC_SC32_Sfs(c.data(), want.data(), plan.bytes, 0), 0);
        buf.resize(n + 6, 77);
        ASSERT_EQ(Sonvel_AEC_Realfft(buf.data(), n, plan.bytes), 0);
        EXPECT_EQ(Block(buf.begin(), buf.begin() + n + 2),
                  Block(want.begin(), want.begin() + n + 2));
        EXPECT_EQ(Block(buf.begin() + n + 2, buf.end()), Block(4, 77));

        Block spectrum = random_block(n + 2, lim, rng);
        spectrum[1] = 12345, spectrum[n + 1] = -54321,
        spectrum[3] = spectrum[5] = spectrum[n - 1] = kMin;
        c.assign(spectrum.begin(), spectrum.end());
        for (int k = n / 2 + 1; k < n; ++k) {
            const int32_t im = spectrum[2 * (n - k) + 1];
            c.insert(c.end(),
                     {spectrum[2 * (n - k)], im == kMin ? (k == n - 1 ? kMin : kMax) : -im});
        }
        ASSERT_EQ(Sonvel_FFTInv_CToC_SC32_Sfs(c.data(), want.data(), plan.bytes, 0), 0);
        buf = spectrum;
        buf.insert(buf.end(), {4, 5});
        ASSERT_EQ(Sonvel_AEC_Realifft(buf.data(), n, plan.bytes), 0);
        for (int i = 0; i < n; ++i) ASSERT_EQ(buf[i], want[2 * i]) << i;
        EXPECT_EQ((Block{buf[n], buf[n + 1], buf[n + 2], buf[n + 3]}),
                  (Block{spectrum[n], spectrum[n + 1], 4, 5}));
        // Lengths the work arrays cannot hold or that are not the plan's are refused, and a plan
        // the service refuses transforms nothing: the buffer stays untouched.
        for (int32_t bad : {0, n + 4, 2 * n + 8, n / 2, order == 7 ? 2 * n : 64}) {
            Block b(n + 2, 3);
            EXPECT_EQ(Sonvel_AEC_Realfft(b.data(), bad, plan.bytes), -1);
            EXPECT_EQ(Sonvel_AEC_Realifft(b.data(), bad, plan.bytes), -1);
            EXPECT_EQ(b, Block(n + 2, 3));
        }
        Block b(n + 2, 3);
        EXPECT_NE(Sonvel_AEC_Realfft(b.data(), n, nullptr), 0);
        EXPECT_NE(Sonvel_AEC_Realifft(b.data(), n, nullptr), 0);
        EXPECT_EQ(b, Block(n + 2, 3));
    }
}

}  // namespace
