// Timing of the complex FFT service: forward and inverse transforms of 128 and 256 points, on
// general complex inputs (the N-point stages) and on the shapes the real FFT pair passes, a real
// block forward and a conjugate-symmetric spectrum inverse (the real-data paths).
#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <vector>

#include "sonvel_aec_fft.h"

namespace {

struct alignas(32) PlanArea {
    uint8_t bytes[SONVEL_FFT_PLAN_BYTES];
};

template <bool Inverse, bool RealShape>
void BM_Fft(benchmark::State &state) {
    const int order = static_cast<int>(state.range(0));
    const int n = 1 << order;
    PlanArea plan{};
    if (Sonvel_FFTInit_C_SC32(plan.bytes, order) != 0) {
        state.SkipWithError("plan initialisation failed");
        return;
    }
    // Inputs with log2 N bits of headroom, as the callers give them.
    std::mt19937 rng(1);
    std::uniform_int_distribution<int32_t> dist(-(1 << (31 - order)), (1 << (31 - order)) - 1);
    alignas(32) int32_t src[512];
    alignas(32) int32_t dst[512];
    for (int i = 0; i < 2 * n; ++i) src[i] = dist(rng);
    if (RealShape && !Inverse) {
        for (int i = 0; i < n; ++i) src[2 * i + 1] = 0;
    } else if (RealShape) {
        src[1] = src[n + 1] = 0;
        for (int k = 1; k < n / 2; ++k)
            src[2 * (n - k)] = src[2 * k], src[2 * (n - k) + 1] = -src[2 * k + 1];
    }
    for (auto _ : state) {
        if (Inverse) {
            Sonvel_FFTInv_CToC_SC32_Sfs(src, dst, plan.bytes, 0);
        } else {
            Sonvel_FFTFwd_CToC_SC32_Sfs(src, dst, plan.bytes, 0);
        }
        benchmark::DoNotOptimize(dst);
        benchmark::ClobberMemory();
    }
}

BENCHMARK(BM_Fft<false, false>)->Name("FftForward")->Arg(7)->Arg(8);
BENCHMARK(BM_Fft<true, false>)->Name("FftInverse")->Arg(7)->Arg(8);
BENCHMARK(BM_Fft<false, true>)->Name("FftForwardReal")->Arg(7)->Arg(8);
BENCHMARK(BM_Fft<true, true>)->Name("FftInverseSymmetric")->Arg(7)->Arg(8);

}  // namespace
