// Linear echo cancellation end to end through the core interface: far-end noise through a short
// decaying echo path inside the filter's span, no near-end talk. The error of the adaptive filter
// must fall well below the echo within the first seconds at both rates.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <random>
#include <vector>

#include "sonvel_aec.h"
#include "state/aec_header.h"
#include "state/aec_state.h"

namespace {

struct Scenario {
    int rate;        // Hz
    uint8_t rateId;  // parameter record value
};

// Bulk delay of 3 ms, then 20 ms of exponentially decaying random taps (time constant 4 ms).
std::vector<double> echo_path(int rate, std::mt19937 &rng) {
    const int bulk = 3 * rate / 1000;
    const int taps = 20 * rate / 1000;
    std::normal_distribution<double> g(0.0, 1.0);
    std::vector<double> h(bulk + taps, 0.0);
    double energy = 0;
    for (int i = 0; i < taps; ++i) {
        h[bulk + i] = g(rng) * std::exp(-i / (0.004 * rate));
        energy += h[bulk + i] * h[bulk + i];
    }
    for (double &v : h) v *= 0.5 / std::sqrt(energy);  // echo about 6 dB below the far end
    return h;
}

int16_t clip16(double v) { return static_cast<int16_t>(std::lround(std::clamp(v, -32768.0, 32767.0))); }

struct Measure {
    double echo = 0;    // near-end (echo) energy of the observed blocks, at the filter's scale
    double error = 0;   // linear error energy of the same blocks
    double in = 0;      // near-end energy of the frames
    double out = 0;     // output energy of the frames one frame later
    void clear() { *this = Measure{}; }
    static double db(double num, double den) { return 10.0 * std::log10(num / std::max(den, 1e-9)); }
};

// Runs `seconds` of audio; returns the linear reduction in dB over the half second before each mark.
std::vector<double> run(const Scenario &sc, double seconds, const std::vector<double> &marks) {
    std::mt19937 rng(2024 + sc.rate);
    const auto h = echo_path(sc.rate, rng);
    const int frame = sc.rate / 100;
    const int total = static_cast<int>(seconds * sc.rate);

    std::normal_distribution<double> noise(0.0, 3000.0);
    std::vector<int16_t> far(total), near(total);
    for (int i = 0; i < total; ++i) far[i] = clip16(noise(rng));
    for (int i = 0; i < total; ++i) {
        double acc = 0;
        for (size_t k = 0; k < h.size() && k <= size_t(i); ++k) acc += h[k] * far[i - k];
        near[i] = clip16(acc);
    }

    AecCfg cfg = Sonvel_AEC_gastMrvAecCfgTab;
    cfg.u8SampleRate = sc.rateId;
    std::vector<uint64_t> mem(sonvel::kInstanceBytes / 8);
    void *handle = nullptr;
    EXPECT_EQ(Sonvel_AEC_Init(&handle, mem.data(), sonvel::kInstanceBytes, &cfg), 0);
    const auto *hdr = static_cast<const sonvel::AecHeader *>(handle);
    const auto *st = reinterpret_cast<const AecState *>(static_cast<const uint8_t *>(handle) +
                                                        hdr->u32StateOffset);
    const int l = st->s16BlockLen;
    const int s = st->s16RateShift;

    std::vector<double> result;
    std::vector<int16_t> out(frame);
    Measure m;
    size_t next = 0;
    for (int f = 0; f + frame <= total && next < marks.size(); f += frame) {
        EXPECT_EQ(Sonvel_AEC_Apply(handle, &near[f], &far[f], out.data()), 0);
        // The last block of the call: its near-end samples and its linear error.
        for (int i = 0; i < l; ++i) {
            const double d = st->as16NearTimeBuf[i] * double(1 << s);
            m.echo += d * d;
            m.error += double(st->ai32ErrBlk[i]) * st->ai32ErrBlk[i];
        }
        for (int i = 0; i < frame; ++i) {
            m.out += double(out[i]) * out[i];
            if (f >= frame) m.in += double(near[f - frame + i]) * near[f - frame + i];
        }
        const double t = double(f + frame) / sc.rate;
        if (t >= marks[next] - 0.5 && t - double(frame) / sc.rate < marks[next] - 0.5) m.clear();
        if (t >= marks[next] - 1e-9) {
            result.push_back(Measure::db(m.echo, m.error));
            std::printf("  %d Hz, %.0f s: linear reduction %.1f dB, output reduction %.1f dB\n",
                        sc.rate, marks[next], result.back(), Measure::db(m.in, m.out));
            ++next;
        }
    }
    return result;
}

class EndToEnd : public ::testing::TestWithParam<Scenario> {};

TEST_P(EndToEnd, LinearFilterCancelsTheEchoOfFarEndNoise) {
    const auto db = run(GetParam(), 5.0, {1.0, 2.0, 5.0});
    ASSERT_EQ(db.size(), 3u);
    EXPECT_GT(db[0], 6.0);
    EXPECT_GT(db[1], 10.0);
    EXPECT_GT(db[2], 15.0);
}

INSTANTIATE_TEST_SUITE_P(Rates, EndToEnd, ::testing::Values(Scenario{8000, 0}, Scenario{16000, 1}),
                         [](const auto &info) { return std::to_string(info.param.rate); });

}  // namespace
