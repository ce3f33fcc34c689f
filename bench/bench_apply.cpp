// Per-frame cost of the whole canceller: Sonvel_AEC_Apply on 10 ms frames at 8000 and 16000 Hz,
// with far-end noise through a decaying echo path plus near-end noise, as in a real call.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "bench_support.h"
#include "sonvel_aec.h"
#include "sonvel_aec_stages.h"
#include "state/aec_state.h"

namespace {

constexpr double kSeconds = 4.0;

// Far-end noise, its echo through 3 ms of bulk delay and 20 ms of decaying taps, and near-end
// noise 20 dB below the far end.
struct Signals {
    std::vector<int16_t> far;
    std::vector<int16_t> near;

    explicit Signals(int rate) {
        std::mt19937 rng(static_cast<unsigned>(rate));
        std::normal_distribution<double> g(0.0, 1.0);
        const int bulk = 3 * rate / 1000;
        const int taps = 20 * rate / 1000;
        std::vector<double> h(bulk + taps, 0.0);
        double energy = 0;
        for (int i = 0; i < taps; ++i) {
            h[bulk + i] = g(rng) * std::exp(-i / (0.004 * rate));
            energy += h[bulk + i] * h[bulk + i];
        }
        for (double &v : h) v *= 0.5 / std::sqrt(energy);
        const int total = static_cast<int>(kSeconds * rate);
        far.resize(total);
        near.resize(total);
        for (int i = 0; i < total; ++i) far[i] = bench::clip16(3000.0 * g(rng));
        for (int i = 0; i < total; ++i) {
            double acc = 300.0 * g(rng);
            for (size_t k = 0; k < h.size() && k <= size_t(i); ++k) acc += h[k] * far[i - k];
            near[i] = bench::clip16(acc);
        }
    }
};

void BM_Apply(benchmark::State &state) {
    const int rate = static_cast<int>(state.range(0));
    const Signals sig(rate);
    bench::run_frames(state, rate, sig.near, sig.far);
}

// The linear canceller alone: one block of the adaptive filter step (echo estimate, update of all
// six partitions, levels, detectors), on an instance initialised through the core interface.
void BM_LinearBlock(benchmark::State &state) {
    const int rate = static_cast<int>(state.range(0));
    const Signals sig(rate);
    bench::Instance inst(rate);
    if (inst.st == nullptr) {
        state.SkipWithError("initialisation failed");
        return;
    }
    AecState *st = inst.st;
    const int l = st->s16BlockLen;
    const size_t blocks = sig.far.size() / l;
    size_t b = 0;
    for (auto _ : state) {
        Sonvel_AEC_Mdf(st, &sig.near[b * l], &sig.far[b * l]);
        benchmark::ClobberMemory();
        b = b + 1 == blocks ? 0 : b + 1;
    }
}

BENCHMARK(BM_LinearBlock)
    ->Name("LinearBlock")
    ->Arg(8000)
    ->Arg(16000)
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Apply)->Name("ApplyFrame")->Arg(8000)->Arg(16000)->Unit(benchmark::kMicrosecond);

}  // namespace
