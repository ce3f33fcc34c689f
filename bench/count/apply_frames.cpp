// Driver for counting instructions per frame: feeds Sonvel_AEC_Apply 10 ms frames of a far end
// heard through a decaying echo path, with a near-end talker joining for the second half (double
// talk). Run under callgrind by bench/count_instructions.sh, which collects inside
// Sonvel_AEC_Apply only and divides by the frame count printed here.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <vector>

#include "sonvel_aec.h"

namespace {

int16_t clip16(double v) {
    return static_cast<int16_t>(std::lround(v < -32768.0 ? -32768.0 : v > 32767.0 ? 32767.0 : v));
}

// Noise shaped by a slow syllable-rate envelope, a rough stand-in for a talker.
std::vector<double> talker(int total, int rate, double level, unsigned seed) {
    std::mt19937 rng(seed);
    std::normal_distribution<double> g(0.0, 1.0);
    std::vector<double> x(total);
    double lp = 0;
    for (int i = 0; i < total; ++i) {
        lp += 0.3 * (g(rng) - lp);
        const double env = 0.55 + 0.45 * std::sin(6.283185307179586 * 4.0 * i / rate + seed);
        x[i] = level * env * lp;
    }
    return x;
}

}  // namespace

int main(int argc, char **argv) {
    const int rate = argc > 1 ? std::atoi(argv[1]) : 16000;
    const int frames = argc > 2 ? std::atoi(argv[2]) : 300;
    const int frame = rate / 100;
    const int total = frames * frame;
    const std::vector<double> far = talker(total, rate, 9000.0, 1u);
    const std::vector<double> nearTalk = talker(total, rate, 5000.0, 2u);
    // Echo path: 3 ms of bulk delay, then 20 ms of exponentially decaying taps, gain 0.5.
    std::mt19937 rng(3u);
    std::normal_distribution<double> g(0.0, 1.0);
    const int bulk = 3 * rate / 1000, taps = 20 * rate / 1000;
    std::vector<double> h(bulk + taps, 0.0);
    double energy = 0;
    for (int i = 0; i < taps; ++i) {
        h[bulk + i] = g(rng) * std::exp(-i / (0.004 * rate));
        energy += h[bulk + i] * h[bulk + i];
    }
    for (double &v : h) v *= 0.5 / std::sqrt(energy);
    std::vector<int16_t> farPcm(total), nearPcm(total), out(frame);
    for (int i = 0; i < total; ++i) farPcm[i] = clip16(far[i]);
    for (int i = 0; i < total; ++i) {
        double acc = 30.0 * g(rng) + (i >= total / 2 ? nearTalk[i] : 0.0);
        for (size_t k = 0; k < h.size() && k <= size_t(i); ++k) acc += h[k] * farPcm[i - k];
        nearPcm[i] = clip16(acc);
    }

    std::vector<uint64_t> mem(SONVEL_AEC_INSTANCE_BYTES / 8 + 1);
    AecCfg cfg = Sonvel_AEC_gastMrvAecCfgTab;
    cfg.u8SampleRate = rate == 16000 ? 1 : 0;
    void *handle = nullptr;
    if (Sonvel_AEC_Init(&handle, mem.data(), SONVEL_AEC_INSTANCE_BYTES, &cfg) != 0) return 1;
    uint64_t sum = 0;
    for (int f = 0; f < frames; ++f) {
        if (Sonvel_AEC_Apply(handle, &nearPcm[f * frame], &farPcm[f * frame], out.data()) != 0)
            return 2;
        for (int16_t v : out) sum = sum * 31 + static_cast<uint16_t>(v);
    }
    std::printf("frames %d output %016llx\n", frames, static_cast<unsigned long long>(sum));
    return 0;
}
