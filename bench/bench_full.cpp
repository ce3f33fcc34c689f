// Full per-frame cost in a call with echo and double talk: Sonvel_AEC_Apply on 10 ms frames at 8000
// and 16000 Hz, far-end speech-like talk spurts through a decaying echo path, and near-end talk
// spurts that overlap them part of the time. Also the suppressor's share alone: one frame step per
// block on the state left by the linear stage.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <numbers>
#include <vector>

#include "bench_support.h"
#include "sonvel_aec.h"
#include "sonvel_aec_stages.h"
#include "state/aec_header.h"
#include "state/aec_state.h"

namespace {

constexpr double kSeconds = 6.0;

// Harmonics of a gliding pitch plus noise in 200 ms syllables, inside talk spurts.
std::vector<double> talk(int rate, double pitch0, double spurt_s, double pause_s, double offset_s,
                         uint32_t seed) {
    const int total = static_cast<int>(kSeconds * rate);
    std::vector<double> x(total);
    double phase = 0.0;
    for (int n = 0; n < total; ++n) {
        const double t = static_cast<double>(n) / rate + offset_s;
        seed = seed * 1664525u + 1013904223u;
        const double noise = static_cast<double>(static_cast<int32_t>(seed)) / 2147483648.0;
        const double syl = std::fmod(t, 0.25);
        const bool talking = std::fmod(t, spurt_s + pause_s) < spurt_s;
        const double env = talking && syl < 0.2 ? std::sin(std::numbers::pi * syl / 0.2) : 0.0;
        const double pitch = pitch0 * (1.0 + 0.2 * std::sin(2.0 * std::numbers::pi * 0.6 * t));
        phase += 2.0 * std::numbers::pi * pitch / rate;
        double v = 0.0;
        for (int h = 1; h <= 8; ++h) {
            if (h * pitch < 0.45 * rate) v += std::sin(h * phase) / h;
        }
        x[n] = env * (0.6 * v + 0.2 * noise);
    }
    return x;
}

struct Call {
    std::vector<int16_t> far;
    std::vector<int16_t> near;

    explicit Call(int rate) {
        const std::vector<double> f = talk(rate, 120.0, 1.5, 0.7, 0.0, 1);
        const std::vector<double> n = talk(rate, 210.0, 1.1, 1.3, 0.9, 2);
        const int bulk = 5 * rate / 1000;
        const int taps = 30 * rate / 1000;
        far.resize(f.size());
        near.resize(f.size());
        for (size_t i = 0; i < f.size(); ++i) far[i] = bench::clip16(12000.0 * f[i]);
        uint32_t seed = 7;
        std::vector<double> h(taps);
        for (int k = 0; k < taps; ++k) {
            seed = seed * 1664525u + 1013904223u;
            h[k] = 0.4 * std::exp(-k / (0.004 * rate)) *
                   static_cast<double>(static_cast<int32_t>(seed)) / 2147483648.0;
        }
        for (size_t i = 0; i < f.size(); ++i) {
            double echo = 0.0;
            for (int k = 0; k < taps; ++k) {
                const long m = static_cast<long>(i) - bulk - k;
                if (m >= 0) echo += h[k] * far[m];
            }
            near[i] = bench::clip16(echo + 8000.0 * n[i]);
        }
    }
};

void BM_FullFrame(benchmark::State &state) {
    const int rate = static_cast<int>(state.range(0));
    const Call call(rate);
    bench::run_frames(state, rate, call.near, call.far);
}

// The suppression frame step alone, repeated on the state of one block in the middle of the call.
void BM_SuppressorBlock(benchmark::State &state) {
    const int rate = static_cast<int>(state.range(0));
    const int frame = rate / 100;
    const Call call(rate);
    bench::Instance inst(rate);
    if (inst.st == nullptr) {
        state.SkipWithError("initialisation failed");
        return;
    }
    std::vector<int16_t> out(frame);
    for (size_t f = 0; f < call.far.size() / frame / 2; ++f) {
        Sonvel_AEC_Apply(inst.handle, &call.near[f * frame], &call.far[f * frame], out.data());
    }
    for (auto _ : state) {
        Sonvel_AEC_Nlp(inst.st, out.data());
        benchmark::DoNotOptimize(out.data());
    }
}

BENCHMARK(BM_FullFrame)
    ->Name("FullFrameDoubleTalk")
    ->Arg(8000)
    ->Arg(16000)
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_SuppressorBlock)
    ->Name("SuppressorBlock")
    ->Arg(8000)
    ->Arg(16000)
    ->Unit(benchmark::kMicrosecond);

}  // namespace
