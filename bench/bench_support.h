// Benchmark support: an instance initialised with the default record at a given rate, and the
// timed loop that feeds it 10 ms frames of a signal pair round and round.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "sonvel_aec.h"
#include "state/aec_state.h"

namespace bench {

inline int16_t clip16(double v) {
    return static_cast<int16_t>(std::lround(std::clamp(v, -32768.0, 32767.0)));
}

struct Instance {
    std::vector<uint64_t> mem = std::vector<uint64_t>(SONVEL_AEC_INSTANCE_BYTES / 8);
    void *handle = nullptr;
    AecState *st = nullptr;

    explicit Instance(int rate) {
        AecCfg cfg = Sonvel_AEC_gastMrvAecCfgTab;
        cfg.u8SampleRate = rate == 16000 ? 1 : 0;
        if (Sonvel_AEC_Init(&handle, mem.data(), SONVEL_AEC_INSTANCE_BYTES, &cfg) == 0) {
            st =
                reinterpret_cast<AecState *>(static_cast<uint8_t *>(handle) + sonvel::kHeaderBytes);
        }
    }
};

// Times Sonvel_AEC_Apply per 10 ms frame of (near, far), cycling through the signals.
inline void run_frames(benchmark::State &state, int rate, const std::vector<int16_t> &near,
                       const std::vector<int16_t> &far) {
    Instance inst(rate);
    if (inst.st == nullptr) {
        state.SkipWithError("initialisation failed");
        return;
    }
    const int frame = rate / 100;
    std::vector<int16_t> out(frame);
    const size_t frames = far.size() / frame;
    size_t f = 0;
    for (auto _ : state) {
        Sonvel_AEC_Apply(inst.handle, &near[f * frame], &far[f * frame], out.data());
        benchmark::DoNotOptimize(out.data());
        f = f + 1 == frames ? 0 : f + 1;
    }
    state.counters["frames/s"] =
        benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
}

}  // namespace bench
