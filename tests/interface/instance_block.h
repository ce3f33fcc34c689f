// Test helpers: an instance block placed between two canary regions, deterministic test signals,
// and a driver that runs frames through the core interface.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "sonvel_aec.h"
#include "state/aec_header.h"
#include "state/aec_state.h"

namespace sonvel::test {

inline constexpr size_t kCanaryBytes = 512;
inline constexpr uint8_t kCanaryByte = 0xC3;

// An 8-byte aligned block of `size` bytes with canary bytes on both sides.
class GuardedBlock {
public:
    explicit GuardedBlock(size_t size = kInstanceBytes)
        : size_(size), words_((2 * kCanaryBytes + size + 7) / 8) {
        std::memset(words_.data(), kCanaryByte, words_.size() * 8);
    }
    uint8_t *data() { return bytes() + kCanaryBytes; }
    size_t size() const { return size_; }
    AecHeader *header() { return reinterpret_cast<AecHeader *>(data()); }
    AecState *state() { return reinterpret_cast<AecState *>(data() + kHeaderBytes); }
    // True when nothing outside [data, data + size) was written.
    bool canaries_intact() {
        const uint8_t *b = bytes();
        const size_t total = words_.size() * 8;
        for (size_t i = 0; i < kCanaryBytes; ++i) {
            if (b[i] != kCanaryByte) return false;
        }
        for (size_t i = kCanaryBytes + size_; i < total; ++i) {
            if (b[i] != kCanaryByte) return false;
        }
        return true;
    }

private:
    uint8_t *bytes() { return reinterpret_cast<uint8_t *>(words_.data()); }
    size_t size_;
    std::vector<uint64_t> words_;
};

inline int frame_len(const AecCfg &cfg) { return cfg.u8SampleRate == 0 ? 80 : 160; }
inline int block_len(const AecCfg &cfg) { return cfg.u8SampleRate == 0 ? 64 : 128; }

inline AecCfg default_cfg(uint8_t rate) {
    AecCfg cfg = Sonvel_AEC_gastMrvAecCfgTab;
    cfg.u8SampleRate = rate;
    return cfg;
}

// Speech-like test signal: a few sines plus noise, deterministic per seed.
inline std::vector<int16_t> test_signal(size_t n, uint32_t seed, int amplitude = 6000) {
    std::mt19937 rng(seed);
    std::uniform_int_distribution<int> noise(-amplitude / 8, amplitude / 8);
    std::vector<int16_t> v(n);
    for (size_t i = 0; i < n; ++i) {
        const double t = static_cast<double>(i);
        const double s = 0.5 * std::sin(t * 0.031 * (1 + seed % 5)) + 0.3 * std::sin(t * 0.17 + seed);
        v[i] = static_cast<int16_t>(amplitude * s + noise(rng));
    }
    return v;
}

// Echo of the far end: delayed, attenuated copy.
inline std::vector<int16_t> echo_of(const std::vector<int16_t> &far, size_t delay, int div) {
    std::vector<int16_t> v(far.size(), 0);
    for (size_t i = delay; i < far.size(); ++i) v[i] = static_cast<int16_t>(far[i - delay] / div);
    return v;
}

// Runs whole frames through Sonvel_AEC_Apply; every call must succeed.
inline std::vector<int16_t> apply_frames(void *h, const std::vector<int16_t> &near,
                                         const std::vector<int16_t> &far, int frame) {
    std::vector<int16_t> out(near.size());
    for (size_t i = 0; i + static_cast<size_t>(frame) <= near.size(); i += static_cast<size_t>(frame)) {
        EXPECT_EQ(Sonvel_AEC_Apply(h, &near[i], &far[i], &out[i]), 0) << "frame at " << i;
    }
    return out;
}

}  // namespace sonvel::test
