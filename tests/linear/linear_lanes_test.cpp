// Lane equivalence of the linear filter's loops (the kernel is the test parameter): the portable
// and the lane path run on copies of the same boundary, saturating and random buffers for every
// count up to 140, and the buffers (words beyond the count included, which neither may write) and
// results must be identical. Skipped where the processor has no vector unit.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "linear/linear_loops.h"
#include "spectral/kernels.h"
#include "spectral/processor.h"

namespace {

using Words = std::vector<int32_t>;
using Buffers = std::vector<Words>;
using sp::Isa;

constexpr int kMaxCount = 140;
constexpr int kSlack = 16;  // words past every count, which neither path may write

// Boundary values a third of the time, otherwise random values of random magnitude.
Words adversarial(int n, std::mt19937 &rng) {
    static constexpr int32_t kEdges[] = {INT32_MIN, INT32_MIN + 1, -65536,   -2, -1, 0, 1, 2, 65535,
                                         1 << 30,   INT32_MAX - 1, INT32_MAX};
    Words v(n);
    for (auto &x : v)
        x = rng() % 3 == 0 ? kEdges[rng() % std::size(kEdges)]
                           : static_cast<int32_t>(rng()) >> (rng() % 32);
    return v;
}

// Q values in a range whose sums and differences stay far from overflow.
Words q_values(int n, int lo, int hi, std::mt19937 &rng) {
    std::uniform_int_distribution<int32_t> d(lo, hi);
    Words v(n);
    for (auto &x : v) x = d(rng);
    return v;
}

// One of the values, for a scalar argument.
template <size_t N>
int32_t pick(const int (&values)[N], std::mt19937 &rng) {
    return values[rng() % N];
}

// A kernel of the family: its buffers for a count (scalar arguments and results as one-word
// buffers at the end) and its call on a path.
struct Kernel {
    std::string name;
    std::function<Buffers(int n, int round, std::mt19937 &)> inputs;
    std::function<void(Isa, Buffers &, int n)> run;
};

const int kShifts[] = {-32768, -40, -32, -31, -30, -17, -1, 0, 1, 2, 15, 30, 31, 32, 33, 32767};
const int kSmallShifts[] = {-40, -32, -31, -30, -17, -1, 0, 1, 2, 15, 30, 31, 32, 33};
const int kUndos[] = {-40, -31, -5, 0, 3, 4, 12, 31, 32, 40};
const int kRateShifts[] = {0, 7, 8, 17};

const Kernel kKernels[] = {
    // Zero, negative and tiny powers take the lanes' fallback, large ones the short path.
    {"ReciprocalFarPower",
     [](int n, int, std::mt19937 &r) {
         return Buffers{adversarial(n + kSlack, r), adversarial(n + kSlack, r),
                        adversarial(n + kSlack, r)};
     },
     [](Isa isa, Buffers &b, int n) {
         lin::reciprocal_far_power(isa, b[0].data(), n, 7, b[1].data(), b[2].data());
     }},
    {"NormalisedError",
     [](int n, int, std::mt19937 &r) {
         return Buffers{adversarial(2 * n + kSlack, r), adversarial(n + kSlack, r),
                        q_values(n + kSlack, -100, 100, r), adversarial(2 * n + kSlack, r),
                        adversarial(2 * n + kSlack, r)};
     },
     [](Isa isa, Buffers &b, int n) {
         lin::normalised_error(isa, b[0].data(), b[1].data(), b[2].data(), n, b[3].data(),
                               b[4].data());
     }},
    // Q values on both sides of the gain shift, so that results saturate and vanish.
    {"ConstantMagnitudeGain",
     [](int n, int, std::mt19937 &r) {
         return Buffers{adversarial(n + kSlack, r), q_values(n + kSlack, -120, 200, r)};
     },
     [](Isa isa, Buffers &b, int n) {
         lin::constant_magnitude_gain(isa, b[0].data(), b[1].data(), n);
     }},
    {"ApplyGain",
     [](int n, int, std::mt19937 &r) {
         return Buffers{adversarial(2 * n + kSlack, r), adversarial(n + kSlack, r)};
     },
     [](Isa isa, Buffers &b, int n) { lin::apply_gain(isa, b[0].data(), b[1].data(), n); }},
    // Mostly zero words in odd rounds, so the smallest Q sits on a zero word or none.
    {"CommonQ",
     [](int n, int round, std::mt19937 &r) {
         Words g = adversarial(n + kSlack, r);
         if (round % 2 == 1)
             for (auto &x : g) x = r() % 8 == 0 ? x : 0;
         return Buffers{g, q_values(n + kSlack, -60, 160, r), {0}};
     },
     [](Isa isa, Buffers &b, int n) { b[2][0] = lin::common_q(isa, b[0].data(), b[1].data(), n); }},
    // Differences from -170 to 150: shifts beyond the word both ways.
    {"AlignToQ",
     [](int n, int, std::mt19937 &r) {
         return Buffers{adversarial(n + kSlack, r),
                        q_values(n + kSlack, -60, 160, r),
                        {static_cast<int32_t>(r() % 101) - 10}};
     },
     [](Isa isa, Buffers &b, int n) {
         lin::align_to_q(isa, b[0].data(), b[1].data(), n, b[2][0]);
     }},
    // Small magnitudes in odd rounds: the headroom then comes from the tail words too.
    {"BlockHeadroom",
     [](int n, int round, std::mt19937 &r) {
         Words v = adversarial(n + kSlack, r);
         if (round % 2 == 1)
             for (auto &x : v) x >>= 24;
         return Buffers{v, {0}};
     },
     [](Isa isa, Buffers &b, int n) { b[1][0] = sp::block_headroom(isa, b[0].data(), n); }},
    {"ShiftBlock",
     [](int n, int, std::mt19937 &r) {
         return Buffers{adversarial(n + kSlack, r), {pick(kSmallShifts, r)}};
     },
     [](Isa isa, Buffers &b, int n) { sp::shift_block(isa, b[0].data(), n, b[1][0]); }},
    {"AccumulateIntoFilter",
     [](int n, int, std::mt19937 &r) {
         return Buffers{adversarial(n + kSlack, r), adversarial(n + kSlack, r), {pick(kShifts, r)}};
     },
     [](Isa isa, Buffers &b, int n) {
         lin::accumulate_into_filter(isa, b[0].data(), b[1].data(), n, b[2][0]);
     }},
    // Near-end samples at full scale a quarter of the time.
    {"EstimateAndError",
     [](int n, int, std::mt19937 &r) {
         Words near(n + kSlack);
         for (auto &x : near)
             x = static_cast<int16_t>(r() % 4 == 0 ? (r() % 2 ? 32767 : -32768) : r());
         return Buffers{adversarial(2 * n + kSlack, r),
                        near,
                        Words(n + kSlack, 5),
                        Words(n + kSlack, 6),
                        {pick(kUndos, r), pick(kRateShifts, r)}};
     },
     [](Isa isa, Buffers &b, int n) {
         const std::vector<int16_t> near(b[1].begin(), b[1].end());
         lin::estimate_and_error(isa, b[0].data(), near.data(), n, b[4][0], b[4][1], b[2].data(),
                                 b[3].data());
     }},
    // Samples at both int16 bounds; shifts both ways, beyond the word too.
    {"WidenShifted",
     [](int n, int, std::mt19937 &r) {
         Words x(n + kSlack);
         for (auto &v : x)
             v = static_cast<int16_t>(r() % 4 == 0 ? (r() % 2 ? 32767 : -32768) : r());
         return Buffers{x, adversarial(n + kSlack, r), {pick(kShifts, r)}};
     },
     [](Isa isa, Buffers &b, int n) {
         const std::vector<int16_t> x(b[0].begin(), b[0].end());
         lin::widen_shifted(isa, x.data(), n, b[2][0], b[1].data());
     }},
    // Full-scale blocks in odd rounds: the sum passes 2^31.
    {"SumSquares",
     [](int n, int round, std::mt19937 &r) {
         Words x(n + kSlack);
         for (auto &v : x) v = static_cast<int16_t>(round % 2 ? -32768 : r());
         return Buffers{x, {0, 0}};
     },
     [](Isa isa, Buffers &b, int n) {
         const std::vector<int16_t> x(b[0].begin(), b[0].end());
         const int64_t sum = lin::sum_squares(isa, x.data(), n);
         b[1] = {static_cast<int32_t>(sum), static_cast<int32_t>(sum >> 32)};
     }},
};

class LinearLanes : public ::testing::TestWithParam<Kernel> {};

TEST_P(LinearLanes, LanePathGivesThePortableBits) {
    if (sp::probe_isa() != Isa::kVector) GTEST_SKIP() << "no vector unit on this processor";
    const Kernel &kernel = GetParam();
    std::mt19937 rng(2024);
    for (int n = 0; n <= kMaxCount; ++n) {
        for (int round = 0; round < 24; ++round) {
            Buffers portable = kernel.inputs(n, round, rng), lanes = portable;
            kernel.run(Isa::kPortable, portable, n);
            kernel.run(Isa::kVector, lanes, n);
            for (size_t b = 0; b < portable.size(); ++b)
                ASSERT_EQ(portable[b], lanes[b])
                    << "count " << n << ", round " << round << ", buffer " << b;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Family, LinearLanes, ::testing::ValuesIn(kKernels),
                         [](const ::testing::TestParamInfo<Kernel> &info) {
                             return info.param.name;
                         });

}  // namespace
