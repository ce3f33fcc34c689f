// Test support for the suppressor: instances initialised in aligned memory, a reproducible noise
// source and a few signal shapes.
#pragma once

#include <cmath>
#include <numbers>
#include <cstdint>
#include <memory>
#include <vector>

#include "sonvel_aec.h"
#include "state/aec_header.h"
#include "state/aec_state.h"

namespace suptest {

// One instance at 8000 Hz (wide = false) or 16000 Hz, default parameters unless changed by tweak.
struct Instance {
    std::unique_ptr<uint64_t[]> mem{new uint64_t[sonvel::kInstanceBytes / 8]()};
    void *handle = nullptr;
    AecState *st = nullptr;
    AecCfg cfg{};

    explicit Instance(bool wide, void (*tweak)(AecCfg &) = nullptr) {
        cfg = Sonvel_AEC_gastMrvAecCfgTab;
        cfg.u8SampleRate = wide ? 1 : 0;
        if (tweak != nullptr) tweak(cfg);
        if (Sonvel_AEC_Init(&handle, mem.get(), sonvel::kInstanceBytes, &cfg) == 0) {
            st = reinterpret_cast<AecState *>(reinterpret_cast<uint8_t *>(mem.get()) +
                                              sonvel::kHeaderBytes);
        }
    }
    int frame_len() const { return cfg.u8SampleRate != 0 ? 160 : 80; }
    int block_len() const { return cfg.u8SampleRate != 0 ? 128 : 64; }
};

// Uniform noise in [-1, 1) from a fixed linear congruential sequence.
class Noise {
  public:
    explicit Noise(uint32_t seed) : s_(seed) {}
    double next() {
        s_ = s_ * 1664525u + 1013904223u;
        return static_cast<double>(static_cast<int32_t>(s_)) / 2147483648.0;
    }

  private:
    uint32_t s_;
};

inline int16_t to_pcm(double v) {
    const double r = std::lround(v);
    return static_cast<int16_t>(r > 32767 ? 32767 : (r < -32768 ? -32768 : r));
}

// Speech-like signal: a few harmonics of a gliding pitch plus noise, in syllables of about 200 ms
// separated by short pauses.
inline std::vector<int16_t> speech_like(int samples, int rate, double amplitude, uint32_t seed) {
    std::vector<int16_t> out(samples);
    Noise noise(seed);
    double phase = 0.0;
    for (int n = 0; n < samples; ++n) {
        const double t = static_cast<double>(n) / rate;
        const double syllable = std::fmod(t, 0.25);
        const double env = syllable < 0.2 ? std::sin(std::numbers::pi * syllable / 0.2) : 0.0;
        const double pitch = 140.0 + 40.0 * std::sin(2.0 * std::numbers::pi * 0.7 * t);
        phase += 2.0 * std::numbers::pi * pitch / rate;
        double v = 0.0;
        for (int h = 1; h <= 6; ++h) {
            if (h * pitch < 0.45 * rate) v += std::sin(h * phase) / h;
        }
        out[n] = to_pcm(amplitude * env * (0.6 * v + 0.25 * noise.next()));
    }
    return out;
}

// Talk spurts of talk_s seconds separated by silences of pause_s seconds.
inline std::vector<int16_t> in_spurts(std::vector<int16_t> x, int rate, double talk_s,
                                      double pause_s) {
    const int talk = static_cast<int>(talk_s * rate);
    const int period = talk + static_cast<int>(pause_s * rate);
    for (size_t n = 0; n < x.size(); ++n) {
        if (static_cast<int>(n % period) >= talk) x[n] = 0;
    }
    return x;
}

inline double energy(const int16_t *x, int n) {
    double e = 0.0;
    for (int i = 0; i < n; ++i) e += static_cast<double>(x[i]) * x[i];
    return e;
}

}  // namespace suptest
