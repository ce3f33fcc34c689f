// The lane loops around the complex transform and of the block normaliser against the portable
// ones: the real FFT pair end to end behind a plan that asks for the portable loops, on random
// and boundary words (the saturating conjugation of -2^31 included), and the normaliser for
// every count up to 40 and the block sizes with shifts to both sides. Skipped where the processor
// has no vector unit.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

#include "sonvel_aec_fft.h"
#include "sonvel_aec_spectral.h"
#include "spectral/fft/fft_plan.h"
#include "spectral/kernels.h"
#include "spectral/processor.h"

namespace {

using Words = std::vector<int32_t>;
constexpr int32_t kMin = INT32_MIN, kMax = INT32_MAX;

// Boundary values a third of the time, otherwise random words shifted right by up to shift bits
// (a block whose headroom is about shift when every shift is the same).
Words words(int n, int shift, bool same, std::mt19937 &rng) {
    static constexpr int32_t kEdges[] = {kMin, kMin + 1, -1, 0, 1, kMax - 1, kMax};
    Words v(n);
    for (auto &x : v) {
        const int s = same ? shift : static_cast<int>(rng() % (shift + 1));
        x = rng() % 3 == 0 ? kEdges[rng() % 7] : static_cast<int32_t>(rng()) >> s;
    }
    return v;
}

class RealFftLanes : public ::testing::Test {
  protected:
    void SetUp() override {
        if (sp::probe_isa() != sp::Isa::kVector) GTEST_SKIP() << "no vector unit on this processor";
    }
};

// A prepared plan whose vectorised flag is 0 selects the portable loops (and transform stages):
// the same words, status and untouched tail for random spectra whose imaginary parts are often
// -2^31. On aarch64 both plans take the vector loops.
TEST_F(RealFftLanes, RealFftPairMatchesPortablePlan) {
    std::mt19937 rng(32);
    for (int order : {7, 8}) {
        alignas(8) uint8_t fast[SONVEL_FFT_PLAN_BYTES], slow[SONVEL_FFT_PLAN_BYTES];
        ASSERT_EQ(Sonvel_FFTInit_C_SC32(fast, order), 0);
        std::copy(fast, fast + SONVEL_FFT_PLAN_BYTES, slow);
        reinterpret_cast<sonvel::fft::Plan *>(slow)->vectorised = 0;
        const int n = 1 << order;
        for (int r = 0; r < 20; ++r) {
            Words a = words(n + 6, 31 - order, true, rng), b;
            for (int i = 1; i < n + 2; i += 2) a[i] = rng() % 4 == 0 ? kMin : a[i];
            b = a;
            EXPECT_EQ(Sonvel_AEC_Realifft(a.data(), n, fast),
                      Sonvel_AEC_Realifft(b.data(), n, slow));
            ASSERT_EQ(a, b) << "inverse, order " << order << ", case " << r;
            EXPECT_EQ(Sonvel_AEC_Realfft(a.data(), n, fast), Sonvel_AEC_Realfft(b.data(), n, slow));
            ASSERT_EQ(a, b) << "forward, order " << order << ", case " << r;
        }
        Words a(n + 2, 3);
        EXPECT_EQ(Sonvel_AEC_Realfft(a.data(), n + 4, fast), -1);
        EXPECT_EQ(Sonvel_AEC_Realifft(a.data(), 2 * n + 8, fast), -1);
        EXPECT_EQ(a, Words(n + 2, 3));
    }
}

// Counts not a multiple of the vector step, zero blocks (headroom from the guard words), full
// scale and every headroom, each against targets q that shift left, right, not at all, clear
// (q far below) and keep only the sign (q far above); the words behind the guard stay.
TEST_F(RealFftLanes, BlockNormaliserMatchesPortable) {
    std::mt19937 rng(33);
    Words counts;
    for (int n = 0; n <= 40; ++n) counts.push_back(n);
    for (int n : {127, 128, 129, 255, 257, 258}) counts.push_back(n);
    for (int32_t n : counts) {
        for (int32_t q : {-40, -3, 0, 5, 8, 17, 30, 31, 45}) {
            const int shift = static_cast<int>(rng() % 32);
            Words a = words(n + 12, shift, rng() % 2 == 0, rng);
            if (rng() % 8 == 0) std::fill(a.begin(), a.begin() + n, 0);
            Words b = a;
            EXPECT_EQ(sp::vector_norm(sp::Isa::kVector, a.data(), q, n),
                      sp::vector_norm(sp::Isa::kPortable, b.data(), q, n));
            ASSERT_EQ(a, b) << "n " << n << " q " << q << " shift " << shift;
        }
    }
}

}  // namespace
