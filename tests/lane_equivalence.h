// Test support: the fixture of the parameterised lane-equivalence tests. A kernel family is a list
// of kernels; each kernel makes its buffers (what it reads and writes, scalar arguments and
// results as one-word buffers) and runs on a path. The fixture runs both paths on copies of the
// same buffers and demands identical buffers: for every count from 0 to kMaxCount (whole vector
// steps, the portable tail and the words behind the count) over random, boundary and saturating
// operands, then at one count where every combination of boundary values meets in some bin.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "spectral/processor.h"

namespace lanetest {

using Words = std::vector<int32_t>;
using Shorts = std::vector<int16_t>;

inline constexpr int kMaxCount = 136;
inline constexpr int kSlack = 16;  // words behind every count, which neither path may write

// Boundary words: the extremes and their neighbours, the edges of the Q30 range, -1, 0, 1, 65535.
inline constexpr int32_t kEdges[] = {INT32_MIN, INT32_MIN + 1, -(1 << 30) - 1, -(1 << 30), -1, 0,
                                     1,         65535,         1 << 30,        INT32_MAX};
inline constexpr int kE = static_cast<int>(std::size(kEdges));
// The count of the boundary pass: every combination of kEdges over four parts (two bins).
inline constexpr int kGridCount = kE * kE * kE * kE;

// Operands of one round. Ordinary rounds mix boundary words, powers of two and their neighbours,
// and random words of every magnitude; every fourth round is saturating (mostly -2^31, so that
// the 64-bit sums of products overflow). In the boundary pass the n-th array of words takes, at
// bin k, the boundary values numbered by two base-kE digits of k (digits 0 and 1 for the first
// array, 2 and 3 for the second, ...), so any two arrays meet in every combination.
class Operands {
  public:
    explicit Operands(uint32_t seed) : rng_(seed) {}

    void start(int round, bool grid) { round_ = round, grid_ = grid, arrays_ = 0; }
    int round() const { return round_; }
    uint32_t next() { return rng_(); }
    template <class T>
    T pick(std::initializer_list<T> values) {
        return values.begin()[rng_() % values.size()];
    }

    int32_t word() {
        if (round_ % 4 == 3) return rng_() % 4 ? INT32_MIN : kEdges[rng_() % kE];
        switch (rng_() % 4) {
            case 0: return kEdges[rng_() % kE];
            case 1: {
                const uint32_t p = 1u << (rng_() % 31), v = rng_() % 2 ? p : p - 1;
                return static_cast<int32_t>(rng_() % 2 ? v : 0u - v);
            }
            default: return static_cast<int32_t>(rng_()) >> (rng_() % 32);
        }
    }
    Words words(int n) {
        Words v(n);
        const int digit = arrays_ < 2 ? 2 * arrays_ : arrays_ - 1;
        ++arrays_;
        for (int w = 0; w < n; ++w) {
            int scale = 1;
            for (int d = 0; d < (digit + w % 2) % 4; ++d) scale *= kE;
            v[w] = grid_ ? kEdges[w / 2 / scale % kE] : word();
        }
        return v;
    }
    // Values in [lo, hi] (Q values, shift counts).
    int32_t value(int32_t lo, int32_t hi) {
        return static_cast<int32_t>(static_cast<uint32_t>(lo) +
                                    rng_() % (static_cast<uint32_t>(hi - lo) + 1));
    }
    Words in(int n, int32_t lo, int32_t hi) {
        Words v(n);
        for (auto &x : v) x = value(lo, hi);
        return v;
    }
    Shorts shorts(int n, int lo, int hi) {
        const Words w = in(n, lo, hi);
        return Shorts(w.begin(), w.end());
    }

  private:
    std::mt19937 rng_;
    int round_ = 0, arrays_ = 0;
    bool grid_ = false;
};

// Everything a kernel reads and writes.
struct Buffers {
    std::vector<Words> w;
    std::vector<Shorts> s;
    bool operator==(const Buffers &) const = default;
};

// A kernel of a family: its buffers for a count, and its call on a path. Counts: 0..kMaxCount
// unless the kernel names its own, then the boundary pass unless it has none; rounds per count as
// the family says unless the kernel does.
struct Kernel {
    std::string name;
    std::function<Buffers(Operands &, int n)> make;
    std::function<void(sp::Isa, Buffers &, int n)> run;
    std::vector<int> counts = {};
    bool boundary = true;
    int rounds = 0;
};

inline std::string kernel_name(const ::testing::TestParamInfo<Kernel> &info) {
    return info.param.name;
}

class LaneFamily : public ::testing::TestWithParam<Kernel> {
  protected:
    void SetUp() override {
        if (sp::probe_isa() != sp::Isa::kVector) GTEST_SKIP() << "no vector unit on this processor";
    }

    // Both paths, rounds times per count, must leave identical buffers.
    void expect_same_bits(int rounds = 24, uint32_t seed = 2024) {
        const Kernel &k = GetParam();
        std::vector<int> counts = k.counts;
        if (counts.empty())
            for (int n = 0; n <= kMaxCount; ++n) counts.push_back(n);
        if (k.boundary) counts.push_back(kGridCount);
        Operands ops(seed);
        for (size_t i = 0; i < counts.size(); ++i) {
            const int n = counts[i];
            const bool grid = k.boundary && i + 1 == counts.size();
            const int r = grid ? 4 : k.rounds > 0 ? k.rounds : rounds;
            for (int round = 0; round < r; ++round) {
                ops.start(round, grid);
                Buffers portable = k.make(ops, n), lanes = portable;
                k.run(sp::Isa::kPortable, portable, n);
                k.run(sp::Isa::kVector, lanes, n);
                for (size_t b = 0; b < portable.w.size(); ++b)
                    ASSERT_EQ(portable.w[b], lanes.w[b])
                        << "count " << n << ", round " << round << ", word buffer " << b;
                for (size_t b = 0; b < portable.s.size(); ++b)
                    ASSERT_EQ(portable.s[b], lanes.s[b])
                        << "count " << n << ", round " << round << ", short buffer " << b;
            }
        }
    }
};

}  // namespace lanetest
