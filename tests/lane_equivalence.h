// Test support: the fixture of the parameterised lane-equivalence tests. A kernel family is a list
// of kernels; each kernel makes its buffers (what it reads and writes, scalar arguments and
// results as one-word buffers, the state of an instance for its steps) and runs on a path. The
// fixture runs both paths on copies of the same buffers and demands identical buffers: for every
// count from 0 to kMaxCount (whole vector steps, the portable tail and the words behind the count),
// or the kernel's own counts, over random, boundary and saturating operands, then at one count
// where every combination of boundary values meets in some bin.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <new>
#include <numeric>
#include <ostream>
#include <random>
#include <string>
#include <type_traits>
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
    bool one_in(uint32_t n) { return rng_() % n == 0; }
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
    // A block-floating-point mantissa: a third of the time normalised (magnitude in [2^29, 2^30),
    // mostly positive), any word otherwise.
    int32_t mantissa() {
        if (rng_() % 3) return word();
        const auto m = static_cast<int32_t>((1u << 29) | (rng_() & ((1u << 29) - 1)));
        return one_in(4) ? -m : m;
    }
    // A Q value: close to the usual ones, or where shifts run to 32 bits and far beyond.
    int16_t q() {
        return one_in(3) ? pick<int16_t>({INT16_MIN, -40, -33, -32, -31, -16, -15, 0, 1, 15, 16, 30,
                                          31, 32, 33, 62, 63, INT16_MAX})
                         : static_cast<int16_t>(value(-30, 59));
    }
    // A halfword: a boundary value a third of the time, random of random magnitude otherwise.
    int16_t half() {
        return one_in(3)
                   ? pick<int16_t>({INT16_MIN, INT16_MIN + 1, -1, 0, 1, 16384, 32766, INT16_MAX})
                   : static_cast<int16_t>(static_cast<int16_t>(rng_()) >> (rng_() % 16));
    }
    // A Q15 gain or window value, 0..32767.
    int16_t q15() {
        return one_in(3) ? pick<int16_t>({0, 1, 1638, 16384, 23170, 32766, 32767})
                         : static_cast<int16_t>(rng_() % 32768);
    }
    template <class T>
    std::vector<T> many(int n, T (Operands::*draw)()) {
        std::vector<T> v(n);
        for (T &x : v) x = (this->*draw)();
        return v;
    }

  private:
    std::mt19937 rng_;
    int round_ = 0, arrays_ = 0;
    bool grid_ = false;
};

// Everything a kernel reads and writes; for a step of an instance also its state, any trivially
// copyable object, kept as bytes: hold() copies it in, held() is it.
struct Buffers {
    std::vector<Words> w;
    std::vector<Shorts> s;
    std::vector<std::byte> state = {};

    template <class T>
    T *hold(const T &object) {
        static_assert(std::is_trivially_copyable_v<T>);
        static_assert(alignof(T) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__);
        state.resize(sizeof(T));
        std::memcpy(state.data(), &object, sizeof(T));
        return held<T>();
    }
    template <class T>
    T *held() {
        return std::launder(reinterpret_cast<T *>(state.data()));
    }
    bool operator==(const Buffers &) const = default;
};

inline std::vector<int> counts_upto(int last) {
    std::vector<int> v(last + 1);
    std::iota(v.begin(), v.end(), 0);
    return v;
}

// A kernel of a family: its buffers for a count, and its call on a path. Counts: 0..kMaxCount
// unless the kernel names its own, then the boundary pass unless it has none; rounds per count as
// the family says unless the kernel does. A step of an instance on the path the instance records
// (instance_path) is skipped on aarch64, whose instances always take the lanes.
struct Kernel {
    std::string name;
    std::function<Buffers(Operands &, int n)> make;
    std::function<void(sp::Isa, Buffers &, int n)> run;
    std::vector<int> counts = {};
    bool boundary = true;
    int rounds = 0;
    bool instance_path = false;
};

// GoogleTest names a kernel by these: in test names and in failures.
inline std::string kernel_name(const ::testing::TestParamInfo<Kernel> &info) {
    return info.param.name;
}
inline void PrintTo(const Kernel &k, std::ostream *os) { *os << k.name; }

class LaneFamily : public ::testing::TestWithParam<Kernel> {
  protected:
    void SetUp() override {
        if (sp::probe_isa() != sp::Isa::kVector) GTEST_SKIP() << "no vector unit on this processor";
    }

    // Both paths, rounds times per count, must leave identical buffers.
    void expect_same_bits(int rounds = 24, uint32_t seed = 2024) {
        const Kernel &k = GetParam();
#if defined(__aarch64__)
        if (k.instance_path) GTEST_SKIP() << "instances always take the lanes on aarch64";
#endif
        std::vector<int> counts = k.counts.empty() ? counts_upto(kMaxCount) : k.counts;
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
                const auto at = [&] {
                    return "count " + std::to_string(n) + ", round " + std::to_string(round) + ", ";
                };
                for (size_t b = 0; b < portable.w.size(); ++b)
                    ASSERT_EQ(portable.w[b], lanes.w[b]) << at() << "word buffer " << b;
                for (size_t b = 0; b < portable.s.size(); ++b)
                    ASSERT_EQ(portable.s[b], lanes.s[b]) << at() << "short buffer " << b;
                const auto &p = portable.state;
                const size_t byte =
                    std::mismatch(p.begin(), p.end(), lanes.state.begin()).first - p.begin();
                ASSERT_EQ(byte, p.size()) << at() << "state byte " << byte;
            }
        }
    }
};

}  // namespace lanetest
