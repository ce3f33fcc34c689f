// Overlap-add synthesis: an empty spectrum returns the previous frame's upper half, and analysis
// with the sine window followed by synthesis restores the input one block late at unit gain.
#include <gtest/gtest.h>

#include <vector>

#include "sonvel_aec_spectral.h"
#include "sonvel_aec_stages.h"
#include "suppressor/frame_support.h"

namespace {

using suptest::Instance;

const int16_t *window_half(bool wide) {
    return wide ? Sonvel_AEC_gasAecWindow_129 : Sonvel_AEC_gasAecWindow_65;
}

std::vector<int16_t> full_window(bool wide) {
    const int n = wide ? 256 : 128;
    std::vector<int16_t> w(n);
    for (int i = 0; i < n; ++i) w[i] = window_half(wide)[i <= n / 2 ? i : n - i];
    return w;
}

TEST(SynthesisTest, WindowTablesFollowTheSineRule) {
    for (bool wide : {false, true}) {
        const int n = wide ? 256 : 128;
        for (int k = 0; k <= n / 2; ++k) {
            const double want = std::floor(32767.0 * std::sin(std::numbers::pi * k / n) + 0.5);
            EXPECT_EQ(window_half(wide)[k], want) << n << " entry " << k;
        }
    }
}

TEST(SynthesisTest, EmptySpectrumGivesThePreviousUpperHalf) {
    for (bool wide : {false, true}) {
        Instance inst(wide);
        ASSERT_NE(inst.st, nullptr);
        const int n = 2 * inst.block_len();
        for (int i = 0; i < n; ++i)
            inst.st->ai32OlaBuf[i] = (i - n / 2) * 500;  // last one saturates
        std::vector<int32_t> spectrum(n + 8, 0), frame(n, -7);
        std::vector<int16_t> out(n / 2);
        const std::vector<int16_t> w = full_window(wide);
        Sonvel_AEC_OutPutSmooth(inst.st, spectrum.data(), w.data(), frame.data(), out.data());
        for (int i = 0; i < n / 2; ++i) {
            EXPECT_EQ(out[i], i * 500 > 32767 ? 32767 : i * 500) << i;
            EXPECT_EQ(inst.st->ai32OlaBuf[i], 0);
        }
        for (int i = 0; i < n; ++i) EXPECT_EQ(frame[i], 0);
    }
}

TEST(SynthesisTest, AnalysisThenSynthesisRestoresTheInputOneBlockLate) {
    for (bool wide : {false, true}) {
        Instance inst(wide);
        ASSERT_NE(inst.st, nullptr);
        const int half = inst.block_len();
        const int n = 2 * half;
        const int s = wide ? 7 : 8;
        const std::vector<int16_t> w = full_window(wide);
        const int blocks = 12;
        std::vector<int16_t> x((blocks + 1) * half, 0);
        suptest::Noise noise(9);
        for (size_t i = half; i < x.size(); ++i) x[i] = suptest::to_pcm(12000.0 * noise.next());
        x[3 * half + 5] = 32767;
        x[3 * half + 6] = -32768;

        std::vector<int16_t> y;
        for (int b = 0; b < blocks; ++b) {
            std::vector<int32_t> spectrum(n + 8, 0), frame(n);
            for (int i = 0; i < n; ++i) spectrum[i] = (w[i] * x[b * half + i]) >> (15 - s);
            Sonvel_AEC_Realfft(spectrum.data(), n, inst.st->au8FftPlan);
            std::vector<int16_t> out(half);
            Sonvel_AEC_OutPutSmooth(inst.st, spectrum.data(), w.data(), frame.data(), out.data());
            y.insert(y.end(), out.begin(), out.end());
        }
        // Output block b is input block b - 1 (the frame of block b spans blocks b - 1 and b). The
        // windows peak at 32767 / 32768, so the gain is short of one by about 2^-14.
        for (int i = 2 * half; i < blocks * half; ++i) {
            ASSERT_NEAR(y[i], x[i], 2.0 + std::abs(x[i]) / 16384.0)
                << "rate " << wide << " sample " << i;
        }
    }
}

}  // namespace
