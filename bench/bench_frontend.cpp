// Per-frame cost of the front end (DC block, delay estimator, drift tracker, automatic alignment
// and delay line, all on) and of the whole stream (front end + core + FIFO), on a far end of
// noise bursts whose echo arrives 120 ms later, at 8000 and 16000 Hz. Compare with ApplyFrame
// (the core alone); callgrind gives the instruction counts:
//   valgrind --tool=callgrind --toggle-collect=Sonvel_AEC_FrontendProcess
//     sonvel_bench --benchmark_filter='FrontendFrame/16000' --benchmark_min_time=0.01
#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <vector>

#include "bench_support.h"
#include "sonvel_aec.h"
#include "sonvel_aec_frontend.h"

namespace {

struct Conversation {
    std::vector<int16_t> far, near;
    explicit Conversation(int rate) {
        std::mt19937 rng(static_cast<unsigned>(rate) + 7);
        std::normal_distribution<double> g(0.0, 1.0);
        const int n = 4 * rate, bulk = rate * 120 / 1000;
        far.resize(n);
        near.resize(n);
        for (int i = 0; i < n; ++i)
            far[i] = bench::clip16(((i / (rate / 4)) % 4 != 3 ? 3000.0 : 10.0) * g(rng));
        for (int i = 0; i < n; ++i) {
            double e = 100.0 * g(rng) + 200.0;
            if (i >= bulk) e += 0.5 * far[i - bulk];
            if (i >= bulk + rate / 200) e -= 0.2 * far[i - bulk - rate / 200];
            near[i] = bench::clip16(e);
        }
    }
};

AecFrontendCfg everything_on() {
    AecFrontendCfg fe{};
    fe.u8DcBlock = 1;
    fe.u8DelayMode = SONVEL_AEC_DELAY_AUTO;
    fe.u8Drift = 1;
    return fe;
}

void BM_FrontendFrame(benchmark::State &state) {
    const int rate = static_cast<int>(state.range(0));
    const Conversation c(rate);
    uint32_t size = 0;
    Sonvel_AEC_FrontendGetSize(&size);
    std::vector<uint64_t> mem(size / 8 + 1);
    void *h = nullptr;
    const AecFrontendCfg fe = everything_on();
    if (Sonvel_AEC_FrontendInit(&h, mem.data(), size, static_cast<uint32_t>(rate), &fe) != 0) {
        state.SkipWithError("initialisation failed");
        return;
    }
    const size_t f = static_cast<size_t>(rate / 100), frames = c.far.size() / f;
    std::vector<int16_t> nearOut(f), farOut(f);
    size_t k = 0;
    for (auto _ : state) {
        uint8_t part = 0;
        Sonvel_AEC_FrontendProcess(h, &c.near[k * f], &c.far[k * f], nearOut.data(), farOut.data(),
                                   &part);
        benchmark::DoNotOptimize(farOut.data());
        k = k + 1 == frames ? 0 : k + 1;
    }
}

void BM_StreamFrame(benchmark::State &state) {
    const int rate = static_cast<int>(state.range(0));
    const Conversation c(rate);
    uint32_t size = 0;
    Sonvel_AEC_StreamGetSize(&size);
    std::vector<uint64_t> mem(size / 8 + 1);
    void *h = nullptr;
    AecCfg cfg = Sonvel_AEC_gastMrvAecCfgTab;
    cfg.u8SampleRate = rate == 16000;
    const AecFrontendCfg fe = everything_on();
    if (Sonvel_AEC_StreamInit(&h, mem.data(), size, &cfg, &fe) != 0) {
        state.SkipWithError("initialisation failed");
        return;
    }
    const size_t f = static_cast<size_t>(rate / 100), frames = c.far.size() / f;
    std::vector<int16_t> out(f);
    size_t k = 0;
    for (auto _ : state) {
        Sonvel_AEC_StreamProcess(h, &c.near[k * f], &c.far[k * f], out.data(),
                                 static_cast<uint32_t>(f));
        benchmark::DoNotOptimize(out.data());
        k = k + 1 == frames ? 0 : k + 1;
    }
}

BENCHMARK(BM_FrontendFrame)
    ->Name("FrontendFrame")
    ->Arg(8000)
    ->Arg(16000)
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_StreamFrame)
    ->Name("StreamFrame")
    ->Arg(8000)
    ->Arg(16000)
    ->Unit(benchmark::kMicrosecond);

}  // namespace
