// Cost of the plug-in's run() against the streaming layer alone, on 10 ms blocks at 16000 Hz:
// the same far end through a short echo path, looped; run() adds the float <-> int16 conversions
// and the check for new settings.
#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <spa/interfaces/audio/aec.h>
#include <spa/support/plugin.h>
#include <spa/utils/dict.h>

#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "aec_settings.h"
#include "sonvel_aec_frontend.h"

namespace {

constexpr uint32_t kBlock = 160;  // 10 ms at 16000 Hz

struct Signal {
    std::vector<int16_t> mic, ref;
    std::vector<float> micf, reff;
};

const Signal &signal() {
    static const Signal s = [] {
        Signal x;
        const int n = 16000 * 4;
        std::mt19937 rng(5);
        std::normal_distribution<double> g(0.0, 1.0);
        double lp = 0.0;
        std::vector<double> far(n);
        for (double &v : far) v = (lp = 0.7 * lp + g(rng)) * 2000.0;
        for (int i = 0; i < n; ++i) {
            const double m = (i >= 400 ? 0.4 * far[i - 400] : 0.0) + 3.0 * g(rng);
            x.mic.push_back(
                static_cast<int16_t>(std::lround(std::fmax(-32768.0, std::fmin(32767.0, m)))));
            x.ref.push_back(
                static_cast<int16_t>(std::lround(std::fmax(-32768.0, std::fmin(32767.0, far[i])))));
            x.micf.push_back(x.mic.back() / 32768.0f);
            x.reff.push_back(x.ref.back() / 32768.0f);
        }
        return x;
    }();
    return s;
}

void BM_StreamAlone(benchmark::State &state) {
    const Signal &s = signal();
    const auto settings = sonvel::integration::live_defaults(16000);
    uint32_t size = 0;
    Sonvel_AEC_StreamGetSize(&size);
    std::vector<uint64_t> mem(size / 8 + 1);
    void *h = nullptr;
    if (Sonvel_AEC_StreamInit(&h, mem.data(), size, &settings.core, &settings.frontend) != 0) {
        state.SkipWithError("stream init failed");
        return;
    }
    std::vector<int16_t> out(kBlock);
    size_t at = 0;
    for (auto _ : state) {
        Sonvel_AEC_StreamProcess(h, &s.mic[at], &s.ref[at], out.data(), kBlock);
        benchmark::DoNotOptimize(out.data());
        at = at + 2 * kBlock > s.mic.size() ? 0 : at + kBlock;
    }
}
BENCHMARK(BM_StreamAlone);

void BM_PluginRun(benchmark::State &state) {
    const Signal &s = signal();
    void *dl = dlopen(SONVEL_SPA_PLUGIN, RTLD_NOW | RTLD_LOCAL);
    auto enum_fn = dl ? reinterpret_cast<spa_handle_factory_enum_func_t>(
                            dlsym(dl, SPA_HANDLE_FACTORY_ENUM_FUNC_NAME))
                      : nullptr;
    const spa_handle_factory *f = nullptr;
    uint32_t index = 0;
    if (enum_fn == nullptr || enum_fn(&f, &index) != 1) {
        state.SkipWithError("cannot load the plug-in");
        return;
    }
    std::vector<uint64_t> handle_mem(spa_handle_factory_get_size(f, nullptr) / 8 + 1);
    auto *handle = reinterpret_cast<spa_handle *>(handle_mem.data());
    void *iface = nullptr;
    spa_audio_info_raw info{};
    info.format = SPA_AUDIO_FORMAT_F32P;
    info.rate = 16000;
    info.channels = 1;
    const spa_dict no_args = SPA_DICT_INIT(nullptr, 0);
    if (spa_handle_factory_init(f, handle, nullptr, nullptr, 0) != 0 ||
        spa_handle_get_interface(handle, SPA_TYPE_INTERFACE_AUDIO_AEC, &iface) != 0 ||
        spa_audio_aec_init(static_cast<spa_audio_aec *>(iface), &no_args, &info) != 0) {
        state.SkipWithError("plug-in init failed");
        return;
    }
    auto *aec = static_cast<spa_audio_aec *>(iface);
    std::vector<float> out(kBlock);
    float *o[1] = {out.data()};
    size_t at = 0;
    for (auto _ : state) {
        const float *r[1] = {&s.micf[at]}, *p[1] = {&s.reff[at]};
        spa_audio_aec_run(aec, r, p, o, kBlock);
        benchmark::DoNotOptimize(out.data());
        at = at + 2 * kBlock > s.micf.size() ? 0 : at + kBlock;
    }
    spa_handle_clear(handle);
}
BENCHMARK(BM_PluginRun);

}  // namespace
