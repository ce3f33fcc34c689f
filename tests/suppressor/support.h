// Shared set-up of the suppressor tests: instances and processing states initialised with the
// default parameters, a reproducible noise source and a speech-like signal.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <numbers>
#include <vector>

#include "sonvel_aec.h"
#include "sonvel_aec_stages.h"
#include "spectral/processor.h"
#include "state/aec_header.h"
#include "state/aec_state.h"

namespace suptest {

// One instance at 8000 Hz (wide = false) or 16000 Hz, default parameters unless changed by tweak.
struct Instance {
    std::unique_ptr<uint64_t[]> mem{new uint64_t[sonvel::kInstanceBytes / 8]()};
    void *handle = nullptr;
    AecState *st = nullptr;
    AecCfg cfg = Sonvel_AEC_gastMrvAecCfgTab;

    explicit Instance(bool wide, void (*tweak)(AecCfg &) = nullptr) {
        cfg.u8SampleRate = wide ? 1 : 0;
        if (tweak != nullptr) tweak(cfg);
        if (Sonvel_AEC_Init(&handle, mem.get(), sonvel::kInstanceBytes, &cfg) == 0)
            st = reinterpret_cast<AecState *>(reinterpret_cast<uint8_t *>(mem.get()) +
                                              sonvel::kHeaderBytes);
    }
    int half() const { return cfg.u8SampleRate != 0 ? 128 : 64; }
    int frame() const { return half() * 5 / 4; }
};

// The half FFT lengths of both rates (8000 and 16000 Hz): the counts of the lane-equivalence
// kernels that run a step of an instance.
inline const std::vector<int> kHalfLengths = {64, 128};

// A bare processing state after full initialisation with the default parameters.
inline std::unique_ptr<AecState> make_state(bool wide) {
    auto st = std::make_unique<AecState>();
    AecCfg cfg = Sonvel_AEC_gastMrvAecCfgTab;
    cfg.u8SampleRate = wide ? 1 : 0;
    EXPECT_EQ(Sonvel_AEC_SUB_Init(st.get(), &cfg, 0), 0);
    return st;
}

// Runs an exported step of an instance on the path: the choice recorded in the instance is set for
// the call and cleared after it, so that the states of both paths compare equal.
template <class Call>
void on_path(sp::Isa isa, AecState *st, Call call) {
    st->s32LanePath = isa == sp::Isa::kVector ? 1 : 0;
    call();
    st->s32LanePath = 0;
}

// Uniform noise in [-1, 1) from a fixed linear congruential sequence.
class Noise {
  public:
    explicit Noise(uint32_t seed) : s_(seed) {}
    double next() {
        s_ = s_ * 1664525u + 1013904223u;
        return static_cast<int32_t>(s_) / 2147483648.0;
    }

  private:
    uint32_t s_;
};

inline int16_t to_pcm(double v) {
    return static_cast<int16_t>(std::lround(std::clamp(v, -32768.0, 32767.0)));
}

// A few harmonics of a gliding pitch plus noise, in syllables of 200 ms with 50 ms pauses.
inline std::vector<int16_t> speech_like(int samples, int rate, double amplitude, uint32_t seed) {
    std::vector<int16_t> out(samples);
    Noise noise(seed);
    double phase = 0.0;
    for (int n = 0; n < samples; ++n) {
        const double t = static_cast<double>(n) / rate, syllable = std::fmod(t, 0.25);
        const double env = syllable < 0.2 ? std::sin(std::numbers::pi * syllable / 0.2) : 0.0;
        const double pitch = 140.0 + 40.0 * std::sin(2.0 * std::numbers::pi * 0.7 * t);
        phase += 2.0 * std::numbers::pi * pitch / rate;
        double v = 0.0;
        for (int h = 1; h <= 6 && h * pitch < 0.45 * rate; ++h) v += std::sin(h * phase) / h;
        out[n] = to_pcm(amplitude * env * (0.6 * v + 0.25 * noise.next()));
    }
    return out;
}

inline double energy(const int16_t *x, int n) {
    double e = 0.0;
    for (int i = 0; i < n; ++i) e += static_cast<double>(x[i]) * x[i];
    return e;
}

}  // namespace suptest
