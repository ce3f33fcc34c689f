// End to end through the core interface at both rates: pass-through of the near end once the far
// end has been quiet long enough, suppression of a synthetic echo beyond what the linear stage
// removes, and near-end speech alone passing with little attenuation. The measured figures are
// printed.
#include <cstdio>

#include "suppressor/support.h"

namespace {

using suptest::Instance;

struct Processed {
    std::vector<int16_t> out;     // through Sonvel_AEC_Apply, one frame late
    std::vector<int16_t> linear;  // error of the linear stage alone, one block late
};

// Whole frames through Apply on one instance; with_linear, the same blocks through the stage entry
// point on a second instance, reading the linear stage's error block after each block.
Processed process(bool wide, const std::vector<int16_t> &near, const std::vector<int16_t> &far,
                  void (*tweak)(AecCfg &) = nullptr, bool with_linear = false) {
    Instance a(wide, tweak), b(wide, tweak);
    const int f = a.frame(), half = a.half(), len = static_cast<int>(near.size()) / f * f;
    Processed r{std::vector<int16_t>(len), std::vector<int16_t>(len, 0)};
    for (int i = 0; i < len; i += f)
        EXPECT_EQ(Sonvel_AEC_Apply(a.handle, &near[i], &far[i], &r.out[i]), 0);
    std::vector<int16_t> blk(half);
    for (int j = 0; with_linear && j + half <= len; j += half) {
        EXPECT_EQ(Sonvel_AEC_SUB_Proc(b.st, &near[j], &far[j], blk.data()), 0);
        for (int i = 0; i < half; ++i)
            r.linear[j + i] = suptest::to_pcm(b.st->ai32ErrBlk[i] >> b.st->s16RateShift);
    }
    return r;
}

double energy(const std::vector<int16_t> &x, int from, int to) {
    return suptest::energy(&x[from], to - from);
}
double db(double num, double den) { return 10.0 * std::log10((num + 1e-9) / (den + 1e-9)); }

// Echo of the far end: a bulk delay of 4 ms and a decaying impulse response of random signs.
std::vector<int16_t> echo_of(const std::vector<int16_t> &far, int rate, double gain) {
    const int bulk = rate * 4 / 1000, taps = rate * 24 / 1000;
    std::vector<double> h(taps);
    suptest::Noise noise(77);
    for (int k = 0; k < taps; ++k) h[k] = gain * std::exp(-k / (rate * 0.002)) * noise.next();
    h[0] = gain * 0.6;
    std::vector<int16_t> y(far.size(), 0);
    for (size_t n = bulk; n < far.size(); ++n) {
        double acc = 0.0;
        for (int k = 0; k < taps && k <= static_cast<int>(n) - bulk; ++k)
            acc += h[k] * far[n - bulk - k];
        y[n] = suptest::to_pcm(acc);
    }
    return y;
}

TEST(EndToEndTest, QuietFarEndPassesTheNearEndThroughDelayed) {
    for (bool wide : {false, true}) {
        const int rate = wide ? 16000 : 8000, f = rate / 100, half = wide ? 128 : 64;
        const int len = 430 * f;  // 4.3 s; pass-through from block 477 (3.816 s)
        const std::vector<int16_t> near = suptest::speech_like(len, rate, 9000.0, 21);
        const Processed r = process(wide, near, std::vector<int16_t>(len, 0));
        const int delay = f + half;
        int worst = 0;
        for (int t = 479 * half + delay; t < len; ++t)
            worst = std::max(worst, std::abs(r.out[t] - near[t - delay]));
        std::printf(
            "[ figures ] %d Hz pass-through: largest deviation from the near end delayed "
            "by %d samples: %d\n",
            rate, delay, worst);
        EXPECT_LE(worst, 1) << rate;
    }
}

TEST(EndToEndTest, EchoIsSuppressedWellBeyondTheLinearStage) {
    for (bool wide : {false, true}) {
        const int rate = wide ? 16000 : 8000, f = rate / 100, len = 600 * f;  // 6 s
        std::vector<int16_t> far = suptest::speech_like(len, rate, 12000.0, 5);
        const int talk = rate * 12 / 10, period = talk + rate * 6 / 10;  // 1.2 s spurts
        for (int n = 0; n < len; ++n) far[n] = n % period < talk ? far[n] : 0;
        const std::vector<int16_t> near = echo_of(far, rate, 0.5);
        const Processed r = process(wide, near, far, nullptr, true);
        const Processed quiet = process(wide, near, far, [](AecCfg &c) { c.u8CnEnable = 0; });
        const int from = len / 2, to = len - 2 * f;
        const double echo = energy(near, from, to);
        const double linear = db(energy(r.linear, from, to), echo);
        const double full = db(energy(r.out, from + f, to + f), echo);
        const double no_cn = db(energy(quiet.out, from + f, to + f), echo);
        std::printf(
            "[ figures ] %d Hz echo only, relative to the echo: linear stage %.1f dB, with "
            "suppressor %.1f dB (%.1f dB without comfort noise)\n",
            rate, linear, full, no_cn);
        EXPECT_LT(full, linear - 5.0) << rate;
        EXPECT_LT(no_cn, linear - 8.0) << rate;
    }
}

TEST(EndToEndTest, NearEndSpeechAlonePassesWithLittleAttenuation) {
    for (bool wide : {false, true}) {
        const int rate = wide ? 16000 : 8000, f = rate / 100, half = wide ? 128 : 64;
        const int len = 350 * f;  // 3.5 s, before the quiet far end starts the pass-through
        const std::vector<int16_t> near = suptest::speech_like(len, rate, 9000.0, 13);
        std::vector<int16_t> far(len);
        suptest::Noise noise(2);
        for (int16_t &v : far) v = suptest::to_pcm(20.0 * noise.next());
        const Processed r = process(wide, near, far);
        const int from = len / 4, to = len - 2 * f, lag = f + half;
        const double kept = db(energy(r.out, from + lag, to + lag), energy(near, from, to));
        std::printf(
            "[ figures ] %d Hz near end alone: output level %.2f dB relative to the near "
            "end\n",
            rate, kept);
        EXPECT_GT(kept, -3.0) << rate;
    }
}

}  // namespace
