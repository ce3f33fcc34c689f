// The real-data paths of the FFT service: accuracy against a double-precision DFT on inputs with
// the headroom the callers give (worst and RMS errors printed and bounded, beside those of the
// N-point stages on the same inputs), exact recognition of the two input shapes (one word off
// sends the input to the N-point stages), and the vectorised stages' bits on both paths.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <random>
#include <vector>

#include "sonvel_aec_fft.h"
#include "spectral/fft/fft_plan.h"
#include "spectral/fft/fft_transform.h"

namespace {

using namespace sonvel::fft;
using Block = std::vector<int32_t>;

struct alignas(8) PlanArea {
    uint8_t bytes[SONVEL_FFT_PLAN_BYTES];
};

PlanArea prepared(int order) {
    PlanArea plan{};
    EXPECT_EQ(Sonvel_FFTInit_C_SC32(plan.bytes, order), 0);
    return plan;
}
const Plan &plan_of(const PlanArea &a) { return *reinterpret_cast<const Plan *>(a.bytes); }

// DFT of the interleaved block x in double precision, divided by divisor; sign -1 forward.
std::vector<double> dft(const Block &x, int sign, double divisor) {
    const int n = static_cast<int>(x.size() / 2);
    std::vector<double> y(2 * n);
    for (int k = 0; k < n; ++k) {
        double re = 0, im = 0;
        for (int t = 0; t < n; ++t) {
            const double a = 6.283185307179586 * ((static_cast<long>(k) * t) % n) / n;
            const double c = std::cos(a), s = sign * std::sin(a);
            re += x[2 * t] * c - x[2 * t + 1] * s;
            im += x[2 * t] * s + x[2 * t + 1] * c;
        }
        y[2 * k] = re / divisor, y[2 * k + 1] = im / divisor;
    }
    return y;
}

struct Error {
    double worst = 0, squares = 0;
    long count = 0;
    void add(const Block &got, const std::vector<double> &want) {
        for (size_t i = 0; i < got.size(); ++i) {
            const double e = std::fabs(got[i] - want[i]);
            worst = std::fmax(worst, e), squares += e * e, ++count;
        }
    }
    double rms() const { return std::sqrt(squares / count); }
};

// Real blocks: uniform over the log2 N headroom, and 16-bit samples shifted left by 15 - log2 N
// as the far and near ends arrive. Conjugate-symmetric spectra: the forward DFTs of real blocks
// normalised so that their largest part uses the room log2 N (or log2 N + 1) guard bits leave,
// and uniform parts over that room.
Block real_block(int n, int order, int kind, std::mt19937 &rng) {
    const int64_t lim = kind == 0 ? int64_t{1} << (31 - order) : int64_t{1} << 15;
    std::uniform_int_distribution<int64_t> any(-lim, lim - 1);
    Block x(2 * n, 0);
    for (int t = 0; t < n; ++t)
        x[2 * t] = static_cast<int32_t>(any(rng) * (kind == 0 ? 1 : int64_t{1} << (15 - order)));
    return x;
}

Block symmetric_spectrum(int n, int order, int kind, std::mt19937 &rng) {
    const int guard = order + kind % 2;
    const double room = std::ldexp(1.0, 31 - guard) - 1;
    Block s(2 * n, 0);
    if (kind < 2) {
        const std::vector<double> y = dft(real_block(n, order, 0, rng), -1, 1);
        double peak = 0;
        for (double v : y) peak = std::fmax(peak, std::fabs(v));
        for (int i = 0; i < 2 * n; ++i)
            s[i] = static_cast<int32_t>(std::lround(y[i] * room / peak));
    } else {
        std::uniform_real_distribution<double> any(-room, room);
        for (int i = 0; i <= n; ++i) s[i] = static_cast<int32_t>(std::lround(any(rng)));
    }
    s[1] = s[n + 1] = 0;
    for (int k = 1; k < n / 2; ++k) s[2 * (n - k)] = s[2 * k], s[2 * (n - k) + 1] = -s[2 * k + 1];
    return s;
}

TEST(FftRealPaths, AccuracyWithTheCallersHeadroom) {
    for (int order : {7, 8}) {
        const PlanArea area = prepared(order);
        const Plan &plan = plan_of(area);
        const int n = 1 << order;
        std::mt19937 rng(static_cast<unsigned>(order) * 11u);
        Error fwd, inv, fwdFull, invFull;
        for (int r = 0; r < 60; ++r) {
            const Block x = real_block(n, order, r % 2, rng);
            const std::vector<double> X = dft(x, -1, 1);
            Block y(2 * n);
            ASSERT_TRUE(real_forward(x.data(), y.data(), plan, 0, Kernels::Best));
            fwd.add(y, X);
            complex_transform(x.data(), y.data(), plan, plan.full, 0, false, Kernels::Best);
            fwdFull.add(y, X);

            const Block s = symmetric_spectrum(n, order, r % 4, rng);
            const std::vector<double> z = dft(s, +1, n);
            ASSERT_TRUE(real_inverse(s.data(), y.data(), plan, order, Kernels::Best));
            inv.add(y, z);
            complex_transform(s.data(), y.data(), plan, plan.full, order, true, Kernels::Best);
            invFull.add(y, z);
        }
        std::printf(
            "N = %d real-data paths: forward worst %.3f RMS %.3f, inverse worst %.3f RMS %.3f "
            "(LSB)\n",
            n, fwd.worst, fwd.rms(), inv.worst, inv.rms());
        std::printf(
            "N = %d N-point stages:  forward worst %.3f RMS %.3f, inverse worst %.3f RMS %.3f "
            "(LSB)\n",
            n, fwdFull.worst, fwdFull.rms(), invFull.worst, invFull.rms());
        EXPECT_LE(fwd.worst, 2.0);
        EXPECT_LE(inv.worst, 1.0);
        EXPECT_LE(fwd.rms(), fwdFull.rms());
    }
}

// One word off either shape, or a word without the headroom, and the service computes what the
// N-point stages compute; the exact shapes go through the real-data paths (whose bits differ
// from the N-point stages' in some words), the vectorised stages giving the portable bits.
TEST(FftRealPaths, ExactRecognitionAndVectorisedBits) {
    for (int order : {7, 8}) {
        const PlanArea area = prepared(order);
        const Plan &plan = plan_of(area);
        const int n = 1 << order;
        std::mt19937 rng(static_cast<unsigned>(order) * 5u);
        const auto service = [&](const Block &x, bool inverse) {
            Block y(2 * n, 3), a(2 * n, 1), b(2 * n, 2);
            if (inverse)
                Sonvel_FFTInv_CToC_SC32_Sfs(x.data(), y.data(), area.bytes, 0);
            else
                Sonvel_FFTFwd_CToC_SC32_Sfs(x.data(), y.data(), area.bytes, 0);
            run_transform(x.data(), a.data(), plan, inverse ? order : 0, inverse,
                          Kernels::Portable);
            run_transform(x.data(), b.data(), plan, inverse ? order : 0, inverse, Kernels::Best);
            EXPECT_EQ(a, b) << "order " << order << ", inverse " << inverse;
            EXPECT_EQ(y, b);
            return y;
        };
        const auto full = [&](const Block &x, bool inverse) {
            Block y(2 * n);
            complex_transform(x.data(), y.data(), plan, plan.full, inverse ? order : 0, inverse,
                              Kernels::Portable);
            return y;
        };
        long differ = 0;
        for (int r = 0; r < 20; ++r) {
            Block x = real_block(n, order, r % 2, rng);
            Block y = service(x, false);
            for (int i = 0; i < 2 * n; ++i) differ += y[i] != full(x, false)[i];
            Block s = symmetric_spectrum(n, order, r % 4, rng);
            y = service(s, true);
            for (int i = 1; i < 2 * n; i += 2) ASSERT_EQ(y[i], 0);  // a real result
            differ += y != full(s, true);

            const int pos = static_cast<int>(rng() % (2 * n));
            x[pos | 1] = r % 3 == 0 ? 1 : -1;  // an imaginary part
            EXPECT_EQ(service(x, false), full(x, false));
            x[pos | 1] = 0;
            x[pos & ~1] = r % 2 ? (1 << (31 - order)) : -(1 << (31 - order)) - 1;  // no headroom
            EXPECT_EQ(service(x, false), full(x, false));
            s[pos] += (pos == 0 || pos == n) ? 0 : 1;  // breaks the symmetry (DC, Nyquist below)
            if (pos == 0 || pos == n) s[pos + 1] = 1;
            EXPECT_EQ(service(s, true), full(s, true)) << pos;
        }
        EXPECT_GT(differ, 0);
    }
}

// The vectorised steps recognise each shape word by word (flipping the low bit of any word but
// the free real parts of DC and Nyquist refuses a symmetric spectrum, of any imaginary part a
// real block) and give the portable steps' answer and words at every scale factor the paths
// take, and refuse the others alike.
TEST(FftRealPaths, VectorisedStepsWordByWordAndAtEveryScale) {
    for (int order : {7, 8}) {
        const PlanArea area = prepared(order);
        const Plan &plan = plan_of(area);
        const int n = 1 << order;
        std::mt19937 rng(static_cast<unsigned>(order) * 7u);
        const auto same = [&](const Block &x, bool inverse, int shift) {
            Block a(2 * n, 1), b(2 * n, 2);
            const auto run = inverse ? real_inverse : real_forward;
            const bool best = run(x.data(), a.data(), plan, shift, Kernels::Best);
            EXPECT_EQ(best, run(x.data(), b.data(), plan, shift, Kernels::Portable));
            if (best) EXPECT_EQ(a, b) << "order " << order << " shift " << shift;
            return best;
        };
        const Block x = real_block(n, order, 0, rng);
        const Block s = symmetric_spectrum(n, order, 2, rng);
        for (int i = 0; i < 2 * n; ++i) {
            Block y = x, t = s;
            y[i] ^= 1;
            t[i] ^= 1;
            EXPECT_EQ(same(y, false, 0), i % 2 == 0) << "forward, word " << i;
            EXPECT_EQ(same(t, true, order), i == 0 || i == n) << "inverse, word " << i;
        }
        for (int shift : {-1, 0, 1, 5, 26, 27, 28, 31, 32, 33}) {
            EXPECT_EQ(same(x, false, shift), shift >= 0 && shift <= 32) << shift;
            EXPECT_TRUE(same(s, true, order + shift)) << shift;
        }
    }
}

}  // namespace
