// The real FFT pair against direct calls of the complex FFT service: the packed half spectrum,
// the rebuilt conjugate half (with its two kinds of negation), the words kept behind the block and
// the round trip.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <random>
#include <vector>

#include "sonvel_aec_fft.h"
#include "sonvel_aec_spectral.h"

namespace {

constexpr int32_t kMin = std::numeric_limits<int32_t>::min();
constexpr int32_t kMax = std::numeric_limits<int32_t>::max();

struct alignas(8) PlanArea {
    uint8_t bytes[SONVEL_FFT_PLAN_BYTES];
};

using Words = std::vector<int32_t>;

Words random_words(int count, int bits, unsigned seed) {
    std::mt19937 rng(seed);
    std::uniform_int_distribution<int32_t> any(-(1 << bits), (1 << bits) - 1);
    Words x(count);
    for (auto &v : x) v = any(rng);
    return x;
}

class RealFft : public ::testing::TestWithParam<int> {
protected:
    void SetUp() override {
        order_ = GetParam();
        n_ = 1 << order_;
        ASSERT_EQ(Sonvel_FFTInit_C_SC32(plan_.bytes, order_), 0);
    }
    int order_ = 0;
    int n_ = 0;
    PlanArea plan_{};
};

TEST_P(RealFft, ForwardPacksTheServiceBins) {
    for (unsigned seed : {1u, 2u}) {
        const Words x = random_words(n_, 31 - order_, seed);
        Words c(2 * n_, 0);
        for (int i = 0; i < n_; ++i) c[2 * i] = x[i];
        Words want(2 * n_);
        ASSERT_EQ(Sonvel_FFTFwd_CToC_SC32_Sfs(c.data(), want.data(), plan_.bytes, 0), 0);

        Words buf = x;
        buf.resize(n_ + 6, 77);
        ASSERT_EQ(Sonvel_AEC_Realfft(buf.data(), n_, plan_.bytes), 0);
        // Bins 0..N/2 exactly as produced, imaginary DC and Nyquist included.
        for (int i = 0; i < n_ + 2; ++i) ASSERT_EQ(buf[i], want[i]) << i;
        for (int i = n_ + 2; i < n_ + 6; ++i) EXPECT_EQ(buf[i], 77);
    }
}

// The complex input the inverse must hand to the service for a packed spectrum.
Words mirrored(const Words &spec, int n) {
    Words c(2 * n);
    for (int i = 0; i < n + 2; ++i) c[i] = spec[i];
    for (int k = n / 2 + 1; k < n; ++k) {
        const int32_t im = spec[2 * (n - k) + 1];
        c[2 * k] = spec[2 * (n - k)];
        if (k == n - 1) {
            c[2 * k + 1] = im == kMin ? kMin : -im;  // two's complement
        } else {
            c[2 * k + 1] = im == kMin ? kMax : -im;  // saturating
        }
    }
    return c;
}

TEST_P(RealFft, InverseRebuildsTheConjugateHalf) {
    // A normalised spectrum with non-zero imaginary DC and Nyquist parts, -2^31 in bin 1 and in
    // two other bins, and markers behind it.
    Words spec = random_words(n_ + 2, 31 - order_, 9);
    spec[1] = 12345;
    spec[n_ + 1] = -54321;
    spec[3] = kMin;
    spec[5] = kMin;
    spec[n_ - 1] = kMin;
    Words buf = spec;
    buf.push_back(4);
    buf.push_back(5);

    const Words c = mirrored(spec, n_);
    EXPECT_EQ(c[2 * (n_ - 1) + 1], kMin);
    EXPECT_EQ(c[2 * (n_ - 2) + 1], kMax);
    Words want(2 * n_);
    ASSERT_EQ(Sonvel_FFTInv_CToC_SC32_Sfs(c.data(), want.data(), plan_.bytes, 0), 0);

    ASSERT_EQ(Sonvel_AEC_Realifft(buf.data(), n_, plan_.bytes), 0);
    for (int i = 0; i < n_; ++i) ASSERT_EQ(buf[i], want[2 * i]) << i;
    EXPECT_EQ(buf[n_], spec[n_]);
    EXPECT_EQ(buf[n_ + 1], spec[n_ + 1]);
    EXPECT_EQ(buf[n_ + 2], 4);
    EXPECT_EQ(buf[n_ + 3], 5);
}

TEST_P(RealFft, RoundTripRestoresTheBlock) {
    const int32_t lim = int32_t{1} << (31 - order_);
    Words extremes(n_);
    for (int i = 0; i < n_; ++i) extremes[i] = i % 2 == 0 ? -lim : lim - 1;
    for (const Words &x : {random_words(n_, 31 - order_, 4), random_words(n_, 10, 5), extremes}) {
        Words buf = x;
        buf.resize(n_ + 2);
        ASSERT_EQ(Sonvel_AEC_Realfft(buf.data(), n_, plan_.bytes), 0);
        ASSERT_EQ(Sonvel_AEC_Realifft(buf.data(), n_, plan_.bytes), 0);
        for (int i = 0; i < n_; ++i) ASSERT_NEAR(buf[i], x[i], 1) << i;
    }
}

TEST_P(RealFft, StatusOfTheServiceIsPassedOn) {
    PlanArea unprepared{};
    Words buf(n_ + 2, 0);
    const Words c(2 * n_, 0);
    Words out(2 * n_);
    const int32_t fwd = Sonvel_FFTFwd_CToC_SC32_Sfs(c.data(), out.data(), unprepared.bytes, 0);
    const int32_t inv = Sonvel_FFTInv_CToC_SC32_Sfs(c.data(), out.data(), unprepared.bytes, 0);
    ASSERT_NE(fwd, 0);
    EXPECT_EQ(Sonvel_AEC_Realfft(buf.data(), n_, unprepared.bytes), fwd);
    EXPECT_EQ(Sonvel_AEC_Realifft(buf.data(), n_, unprepared.bytes), inv);
}

INSTANTIATE_TEST_SUITE_P(BothLengths, RealFft, ::testing::Values(7, 8));

}  // namespace
