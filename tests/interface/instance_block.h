// Test helpers: an instance block placed between two canary regions, deterministic test signals,
// and a driver that runs frames through the core interface.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

#include "sonvel_aec.h"
#include "state/aec_header.h"
#include "state/aec_state.h"

namespace sonvel::test {

inline constexpr size_t kCanaryBytes = 512;
inline constexpr uint8_t kCanaryByte = 0xC3;

inline bool all_bytes(const void *p, size_t n, uint8_t value) {
    const auto *b = static_cast<const uint8_t *>(p);
    return std::all_of(b, b + n, [value](uint8_t x) { return x == value; });
}

// An 8-byte aligned block of `size` bytes with canary bytes on both sides.
class GuardedBlock {
  public:
    explicit GuardedBlock(size_t size = kInstanceBytes)
        : size_(size), words_((2 * kCanaryBytes + size + 7) / 8) {
        std::memset(words_.data(), kCanaryByte, words_.size() * 8);
    }
    uint8_t *data() { return reinterpret_cast<uint8_t *>(words_.data()) + kCanaryBytes; }
    size_t size() const { return size_; }
    AecHeader *header() { return reinterpret_cast<AecHeader *>(data()); }
    AecState *state() { return reinterpret_cast<AecState *>(data() + kHeaderBytes); }
    std::vector<uint8_t> snapshot() { return {data(), data() + size_}; }
    bool unchanged_since(const std::vector<uint8_t> &s) {
        return std::memcmp(s.data(), data(), size_) == 0;
    }
    // Initialises the block with `cfg` (which must succeed) and returns the handle.
    void *init(const AecCfg &cfg) {
        void *h = nullptr;
        EXPECT_EQ(Sonvel_AEC_Init(&h, data(), kInstanceBytes, &cfg), 0);
        return h;
    }
    // True when nothing outside [data, data + size) was written.
    bool canaries_intact() {
        return all_bytes(data() - kCanaryBytes, kCanaryBytes, kCanaryByte) &&
               all_bytes(data() + size_, words_.size() * 8 - kCanaryBytes - size_, kCanaryByte);
    }

  private:
    size_t size_;
    std::vector<uint64_t> words_;
};

inline int frame_len(const AecCfg &cfg) { return cfg.u8SampleRate == 0 ? 80 : 160; }

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
        const double t = static_cast<double>(i), s = 0.5 * std::sin(t * 0.031 * (1 + seed % 5)) +
                                                     0.3 * std::sin(t * 0.17 + seed);
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
    for (size_t i = 0; i + static_cast<size_t>(frame) <= near.size();
         i += static_cast<size_t>(frame)) {
        EXPECT_EQ(Sonvel_AEC_Apply(h, &near[i], &far[i], &out[i]), 0) << "frame at " << i;
    }
    return out;
}

}  // namespace sonvel::test
