// End to end through the core interface at both rates: pass-through of the near end once the far
// end has been quiet long enough, suppression of a synthetic echo beyond what the linear stage
// removes, and near-end speech alone passing with little attenuation. The measured figures are
// printed.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <vector>

#include "sonvel_aec.h"
#include "suppressor/frame_support.h"

namespace {

using suptest::Instance;

struct Processed {
    std::vector<int16_t> out;     // through Sonvel_AEC_Apply, one frame late
    std::vector<int16_t> linear;  // error of the linear stage alone, L samples late to match
};

// Processes whole frames through Apply on one instance, and the same blocks through the stage
// entry point on a second instance to read the linear stage's error block after each block.
Processed process(bool wide, const std::vector<int16_t> &near, const std::vector<int16_t> &far,
                  void (*tweak)(AecCfg &) = nullptr, bool with_linear = true) {
    Instance a(wide, tweak);
    Instance b(wide, tweak);
    EXPECT_NE(a.st, nullptr);
    const int f = a.frame_len();
    const int half = a.block_len();
    const int frames = static_cast<int>(near.size()) / f;
    Processed r{std::vector<int16_t>(frames * f), std::vector<int16_t>(frames * f, 0)};
    for (int i = 0; i < frames; ++i) {
        EXPECT_EQ(Sonvel_AEC_Apply(a.handle, &near[i * f], &far[i * f], &r.out[i * f]), 0);
    }
    std::vector<int16_t> blk(half);
    const int s = b.st->s16RateShift;
    for (int j = 0; with_linear && (j + 1) * half <= frames * f; ++j) {
        EXPECT_EQ(Sonvel_AEC_SUB_Proc(b.st, &near[j * half], &far[j * half], blk.data()), 0);
        for (int i = 0; i < half; ++i) {
            const int32_t e = b.st->ai32ErrBlk[i] >> s;
            r.linear[j * half + i] =
                static_cast<int16_t>(e > 32767 ? 32767 : (e < -32768 ? -32768 : e));
        }
    }
    return r;
}

double energy(const std::vector<int16_t> &x, int from, int to) {
    return suptest::energy(&x[from], to - from);
}

double db(double num, double den) { return 10.0 * std::log10((num + 1e-9) / (den + 1e-9)); }

// Echo of the far end: a bulk delay of 4 ms and a decaying impulse response of random signs.
std::vector<int16_t> echo_of(const std::vector<int16_t> &far, int rate, double gain) {
    const int bulk = rate * 4 / 1000;
    const int taps = rate * 24 / 1000;
    std::vector<double> h(taps);
    suptest::Noise noise(77);
    for (int k = 0; k < taps; ++k) h[k] = gain * std::exp(-k / (rate * 0.002)) * noise.next();
    h[0] = gain * 0.6;
    std::vector<int16_t> y(far.size(), 0);
    for (size_t n = 0; n < far.size(); ++n) {
        double acc = 0.0;
        for (int k = 0; k < taps; ++k) {
            const long m = static_cast<long>(n) - bulk - k;
            if (m >= 0) acc += h[k] * far[m];
        }
        y[n] = suptest::to_pcm(acc);
    }
    return y;
}

TEST(EndToEndTest, QuietFarEndPassesTheNearEndThroughDelayed) {
    for (bool wide : {false, true}) {
        const int rate = wide ? 16000 : 8000;
        const int f = rate / 100;
        const int half = wide ? 128 : 64;
        const int frames = 430;  // 4.3 s; pass-through from block 477 (3.816 s)
        const std::vector<int16_t> near = suptest::speech_like(frames * f, rate, 9000.0, 21);
        const std::vector<int16_t> far(frames * f, 0);
        const Processed r = process(wide, near, far, nullptr, false);
        const int delay = f + half;
        const int from = 479 * half + delay;
        int worst = 0;
        for (int t = from; t < frames * f; ++t)
            worst = std::max(worst, std::abs(r.out[t] - near[t - delay]));
        std::printf(
            "[ figures ] %d Hz pass-through: largest deviation from the near end delayed by %d "
            "samples: %d\n",
            rate, delay, worst);
        EXPECT_LE(worst, 1) << rate;
    }
}

TEST(EndToEndTest, EchoIsSuppressedWellBeyondTheLinearStage) {
    for (bool wide : {false, true}) {
        const int rate = wide ? 16000 : 8000;
        const int f = rate / 100;
        const int frames = 600;  // 6 s
        const std::vector<int16_t> far =
            suptest::in_spurts(suptest::speech_like(frames * f, rate, 12000.0, 5), rate, 1.2, 0.6);
        const std::vector<int16_t> near = echo_of(far, rate, 0.5);
        const Processed r = process(wide, near, far);
        const Processed quiet = process(
            wide, near, far, [](AecCfg &c) { c.u8CnEnable = 0; }, false);
        const int from = frames * f / 2;
        const int to = frames * f - 2 * f;
        const double echo = energy(near, from, to);
        const double linear = db(energy(r.linear, from, to), echo);
        const double full = db(energy(r.out, from + f, to + f), echo);
        const double no_cn = db(energy(quiet.out, from + f, to + f), echo);
        std::printf(
            "[ figures ] %d Hz echo only, relative to the echo: linear stage %.1f dB, with "
            "suppressor "
            "%.1f dB (%.1f dB without comfort noise)\n",
            rate, linear, full, no_cn);
        EXPECT_LT(full, linear - 5.0) << rate;
        EXPECT_LT(no_cn, linear - 8.0) << rate;
    }
}

TEST(EndToEndTest, NearEndSpeechAlonePassesWithLittleAttenuation) {
    for (bool wide : {false, true}) {
        const int rate = wide ? 16000 : 8000;
        const int f = rate / 100;
        const int half = wide ? 128 : 64;
        const int frames = 350;  // 3.5 s, before the quiet far end starts the pass-through
        const std::vector<int16_t> near = suptest::speech_like(frames * f, rate, 9000.0, 13);
        std::vector<int16_t> far(frames * f);
        suptest::Noise noise(2);
        for (int16_t &v : far) v = suptest::to_pcm(20.0 * noise.next());
        const Processed r = process(wide, near, far, nullptr, false);
        const int from = frames * f / 4;
        const int to = frames * f - 2 * f;
        const double kept =
            db(energy(r.out, from + f + half, to + f + half), energy(near, from, to));
        std::printf(
            "[ figures ] %d Hz near end alone: output level %.2f dB relative to the near end\n",
            rate, kept);
        EXPECT_GT(kept, -3.0) << rate;
    }
}

}  // namespace
