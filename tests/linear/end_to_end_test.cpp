// Linear echo cancellation end to end through the core interface: far-end noise through a short
// decaying echo path inside the filter's span, no near-end talk. The adaptive filter's error must
// fall well below the echo within seconds at both rates.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <random>
#include <vector>

#include "sonvel_aec.h"
#include "state/aec_state.h"

namespace {

int16_t clip16(double v) {
    return static_cast<int16_t>(std::lround(std::clamp(v, -32768.0, 32767.0)));
}

// Echo (near end) of far-end noise through 3 ms of bulk delay and 20 ms of decaying random taps.
void make_signals(int rate, int total, std::vector<int16_t> &far, std::vector<int16_t> &near) {
    std::mt19937 rng(2024 + rate);
    std::normal_distribution<double> g(0.0, 1.0);
    const int bulk = 3 * rate / 1000, taps = 20 * rate / 1000;
    std::vector<double> h(bulk + taps, 0.0);
    double energy = 0;
    for (int i = 0; i < taps; ++i) {
        h[bulk + i] = g(rng) * std::exp(-i / (0.004 * rate));
        energy += h[bulk + i] * h[bulk + i];
    }
    far.resize(total);
    near.resize(total);
    for (auto &x : far) x = clip16(3000.0 * g(rng));
    for (int i = 0; i < total; ++i) {
        double acc = 0;
        for (int k = 0; k < int(h.size()) && k <= i; ++k) acc += h[k] * far[i - k];
        near[i] = clip16(0.5 * acc / std::sqrt(energy));  // echo 6 dB below the far end
    }
}

// Echo-to-error ratio in dB of the linear stage over the half second before each mark, measured
// on the last block of every call (its near-end samples and its error, at the filter's scale).
std::vector<double> linear_reduction(int rate, const std::vector<double> &marks) {
    std::vector<int16_t> far, near;
    const int frame = rate / 100;
    make_signals(rate, static_cast<int>(marks.back() * rate), far, near);
    AecCfg cfg = Sonvel_AEC_gastMrvAecCfgTab;
    cfg.u8SampleRate = rate == 16000 ? 1 : 0;
    std::vector<uint64_t> mem(SONVEL_AEC_INSTANCE_BYTES / 8);
    void *handle = nullptr;
    EXPECT_EQ(Sonvel_AEC_Init(&handle, mem.data(), SONVEL_AEC_INSTANCE_BYTES, &cfg), 0);
    const auto *st = reinterpret_cast<const AecState *>(
        static_cast<const uint8_t *>(handle) +
        static_cast<const sonvel::AecHeader *>(handle)->u32StateOffset);

    std::vector<double> db;
    std::vector<int16_t> out(frame);
    double echo = 0, error = 0;
    for (int f = 0; db.size() < marks.size(); ++f) {
        EXPECT_EQ(Sonvel_AEC_Apply(handle, &near[f * frame], &far[f * frame], out.data()), 0);
        const double t = double(f + 1) / 100.0, mark = marks[db.size()];
        if (t <= mark - 0.5 + 1e-9) continue;
        for (int i = 0; i < st->s16BlockLen; ++i) {
            const double d = st->as16NearTimeBuf[i] * double(1 << st->s16RateShift);
            echo += d * d;
            error += double(st->ai32ErrBlk[i]) * st->ai32ErrBlk[i];
        }
        if (t >= mark - 1e-9) {
            db.push_back(10.0 * std::log10(echo / std::max(error, 1.0)));
            std::printf("  %d Hz after %.0f s: linear reduction %.1f dB\n", rate, mark, db.back());
            echo = error = 0;
        }
    }
    return db;
}

TEST(EndToEnd, LinearFilterCancelsTheEchoOfFarEndNoise) {
    for (int rate : {8000, 16000}) {
        const auto db = linear_reduction(rate, {1.0, 2.0, 5.0});
        EXPECT_GT(db[0], 8.0) << rate;
        EXPECT_GT(db[1], 15.0) << rate;
        EXPECT_GT(db[2], 40.0) << rate;
    }
}

}  // namespace
