// Lane equivalence of the suppressor's dispatchers, one parameterised test shared by the kernel
// families (comfort noise, echo-band gain, coherence, the frame step with its gain shaping and
// synthesis). A family lists its kernels, each with operands drawn from boundary and random values
// and its call on a path (a function taking an sp::Isa, or an exported step of an instance whose
// recorded choice is set), and instantiates LaneEquivalence with them; the test itself lives in
// suppressor_lanes_test.cpp. Both paths run on copies of the same operands for every count and
// round, and every array and instance state they wrote must be identical, bit for bit.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <iterator>
#include <memory>
#include <numeric>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "spectral/processor.h"
#include "state/aec_state.h"

namespace suptest {

// Values where saturations, roundings and shifts change behaviour a third of the time, random ones
// of random magnitude (or normalised mantissas) otherwise.
class Draw {
  public:
    explicit Draw(uint32_t seed) : rng_(seed) {}
    uint32_t operator()() { return rng_(); }
    bool one_in(uint32_t n) { return rng_() % n == 0; }

    int32_t word() {
        static constexpr int32_t kEdge[] = {INT32_MIN, INT32_MIN + 1, -(1 << 30), -1,       0,
                                            1,         (1 << 29) + 1, 1 << 30,    INT32_MAX};
        switch (rng_() % 3) {
            case 0: return kEdge[rng_() % std::size(kEdge)];
            case 1: return static_cast<int32_t>(rng_()) >> (rng_() % 32);
            default: {
                const auto m = static_cast<int32_t>((1u << 29) | (rng_() & ((1u << 29) - 1)));
                return one_in(4) ? -m : m;
            }
        }
    }
    int16_t half() {
        static constexpr int16_t kEdge[] = {INT16_MIN, INT16_MIN + 1, -1,    0,
                                            1,         16384,         32766, INT16_MAX};
        return one_in(3) ? kEdge[rng_() % std::size(kEdge)]
                         : static_cast<int16_t>(static_cast<int16_t>(rng_()) >> (rng_() % 16));
    }
    // A Q15 gain or window value, 0..32767.
    int16_t q15() {
        static constexpr int16_t kEdge[] = {0, 1, 1638, 16384, 23170, 32766, 32767};
        return one_in(3) ? kEdge[rng_() % std::size(kEdge)] : static_cast<int16_t>(rng_() % 32768);
    }
    // A Q value: close to the usual ones, or where shifts run to 32 bits and far beyond.
    int16_t q() {
        static constexpr int16_t kEdge[] = {INT16_MIN, -40, -33, -32, -31, -16, -15, 0,  1,
                                            15,        16,  30,  31,  32,  33,  62,  63, INT16_MAX};
        return one_in(3) ? kEdge[rng_() % std::size(kEdge)]
                         : static_cast<int16_t>(static_cast<int>(rng_() % 90) - 30);
    }

    template <class T>
    std::vector<T> many(size_t n, T (Draw::*value)()) {
        std::vector<T> v(n);
        for (T &x : v) x = (this->*value)();
        return v;
    }

  private:
    std::mt19937 rng_;
};

// What a kernel reads and writes: 32- and 16-bit arrays and, for steps of an instance, its state.
struct Operands {
    std::vector<std::vector<int32_t>> w;
    std::vector<std::vector<int16_t>> h;
    std::unique_ptr<AecState> st;

    Operands() = default;
    Operands(Operands &&) = default;
    Operands(const Operands &o)
        : w(o.w), h(o.h), st(o.st ? std::make_unique<AecState>(*o.st) : nullptr) {}
};

// A kernel of a family: the counts it runs for (bins, elements or, for whole steps, the last bin
// of the rate), the rounds of fresh operands per count, the operands, and the call on a path;
// whether the path is the instance's recorded choice (exported steps, see on_path), which
// aarch64 instances do not have: they always take the lanes.
struct LaneKernel {
    std::string name;
    std::vector<int> counts;
    int rounds;
    std::function<Operands(Draw &, int count, int round)> make;
    std::function<void(sp::Isa, Operands &, int count)> run;
    bool instance_path = false;
};

inline std::vector<int> counts_upto(int last) {
    std::vector<int> v(last + 1);
    std::iota(v.begin(), v.end(), 0);
    return v;
}

// Runs an exported step of an instance on the path: the choice recorded in the instance is set for
// the call and cleared after it, so that the states of both paths compare equal.
template <class Call>
void on_path(sp::Isa isa, AecState *st, Call call) {
    st->s32LanePath = isa == sp::Isa::kVector ? 1 : 0;
    call();
    st->s32LanePath = 0;
}

// GoogleTest names a failing kernel by this.
inline void PrintTo(const LaneKernel &k, std::ostream *os) { *os << k.name; }

class LaneEquivalence : public ::testing::TestWithParam<LaneKernel> {};

inline std::string kernel_name(const ::testing::TestParamInfo<LaneKernel> &info) {
    return info.param.name;
}

}  // namespace suptest
