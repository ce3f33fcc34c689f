// Lane equivalence of the linear filter's loops (the kernel is the test parameter), bit for bit
// over the counts and operands of the lane-equivalence fixture: Q values on both sides of every
// shift, shift counts beyond the word both ways, mostly-zero gradients and full-scale near-end
// samples. Skipped where the processor has no vector unit.
#include <algorithm>
#include <cstdint>
#include <vector>

#include "lane_equivalence.h"
#include "linear/linear_loops.h"

namespace {

using lanetest::Buffers;
using lanetest::Operands;
using sp::Isa;

constexpr int kS = lanetest::kSlack;

const lanetest::Kernel kKernels[] = {
    // Zero, negative and tiny powers take the lanes' fallback, large ones the short path.
    {"ReciprocalFarPower",
     [](Operands &ops, int n) {
         return Buffers{{ops.words(n + kS), ops.words(n + kS), ops.words(n + kS)}, {}};
     },
     [](Isa isa, Buffers &b, int n) {
         lin::reciprocal_far_power(isa, b.w[0].data(), n, 7, b.w[1].data(), b.w[2].data());
     }},
    {"NormalisedError",
     [](Operands &ops, int n) {
         return Buffers{{ops.words(2 * n + kS), ops.words(n + kS), ops.in(n + kS, -100, 100),
                         ops.words(2 * n + kS), ops.words(2 * n + kS)},
                        {}};
     },
     [](Isa isa, Buffers &b, int n) {
         lin::normalised_error(isa, b.w[0].data(), b.w[1].data(), b.w[2].data(), n, b.w[3].data(),
                               b.w[4].data());
     }},
    // Q values on both sides of the gain shift, so that results saturate and vanish.
    {"ConstantMagnitudeGain",
     [](Operands &ops, int n) {
         return Buffers{{ops.words(n + kS), ops.in(n + kS, -120, 200)}, {}};
     },
     [](Isa isa, Buffers &b, int n) {
         lin::constant_magnitude_gain(isa, b.w[0].data(), b.w[1].data(), n);
     }},
    {"ApplyGain",
     [](Operands &ops, int n) {
         return Buffers{{ops.words(2 * n + kS), ops.words(n + kS)}, {}};
     },
     [](Isa isa, Buffers &b, int n) { lin::apply_gain(isa, b.w[0].data(), b.w[1].data(), n); }},
    // Mostly zero words in odd rounds, so the smallest Q sits on a zero word or none.
    {"CommonQ",
     [](Operands &ops, int n) {
         lanetest::Words g = ops.words(n + kS);
         for (auto &x : g) x = ops.round() % 2 == 0 || ops.next() % 8 == 0 ? x : 0;
         return Buffers{{g, ops.in(n + kS, -60, 160), {0}}, {}};
     },
     [](Isa isa, Buffers &b, int n) {
         b.w[2][0] = lin::common_q(isa, b.w[0].data(), b.w[1].data(), n);
     }},
    // Differences from -170 to 150: shifts beyond the word both ways.
    {"AlignToQ",
     [](Operands &ops, int n) {
         return Buffers{{ops.words(n + kS), ops.in(n + kS, -60, 160), {ops.value(-10, 90)}}, {}};
     },
     [](Isa isa, Buffers &b, int n) {
         lin::align_to_q(isa, b.w[0].data(), b.w[1].data(), n, b.w[2][0]);
     }},
    {"AccumulateIntoFilter",
     [](Operands &ops, int n) {
         return Buffers{{ops.words(n + kS),
                         ops.words(n + kS),
                         {ops.pick({-32768, -40, -32, -31, -30, -17, -1, 0, 1, 2, 15, 30, 31, 32,
                                    33, 32767})}},
                        {}};
     },
     [](Isa isa, Buffers &b, int n) {
         lin::accumulate_into_filter(isa, b.w[0].data(), b.w[1].data(), n, b.w[2][0]);
     }},
    // Near-end samples at full scale a quarter of the time.
    {"EstimateAndError",
     [](Operands &ops, int n) {
         lanetest::Shorts near = ops.shorts(n + kS, -32768, 32767);
         for (auto &x : near) x = ops.next() % 4 ? x : ops.pick<int16_t>({-32768, 32767});
         return Buffers{
             {ops.words(2 * n + kS),
              lanetest::Words(n + kS, 5),
              lanetest::Words(n + kS, 6),
              {ops.pick({-40, -31, -5, 0, 3, 4, 12, 31, 32, 40}), ops.pick({0, 7, 8, 17})}},
             {near}};
     },
     [](Isa isa, Buffers &b, int n) {
         lin::estimate_and_error(isa, b.w[0].data(), b.s[0].data(), n, b.w[3][0], b.w[3][1],
                                 b.w[1].data(), b.w[2].data());
     }},
    // Samples at both int16 bounds; shifts both ways, beyond the word too.
    {"WidenShifted",
     [](Operands &ops, int n) {
         lanetest::Shorts x = ops.shorts(n + kS, -32768, 32767);
         for (auto &v : x) v = ops.next() % 4 ? v : ops.pick<int16_t>({-32768, 32767});
         return Buffers{{ops.words(n + kS),
                         {ops.pick({-32768, -40, -32, -31, -17, -1, 0, 1, 15, 31, 32, 33, 32767})}},
                        {x}};
     },
     [](Isa isa, Buffers &b, int n) {
         lin::widen_shifted(isa, b.s[0].data(), n, b.w[1][0], b.w[0].data());
     }},
    // Full-scale blocks in odd rounds: the sum passes 2^31.
    {"SumSquares",
     [](Operands &ops, int n) {
         lanetest::Shorts x = ops.shorts(n + kS, -32768, 32767);
         if (ops.round() % 2) std::fill(x.begin(), x.end(), int16_t{-32768});
         return Buffers{{{0, 0}}, {x}};
     },
     [](Isa isa, Buffers &b, int n) {
         const int64_t sum = lin::sum_squares(isa, b.s[0].data(), n);
         b.w[0] = {static_cast<int32_t>(sum), static_cast<int32_t>(sum >> 32)};
     }},
};

class LinearLanes : public lanetest::LaneFamily {};

TEST_P(LinearLanes, LanePathGivesThePortableBits) { expect_same_bits(); }

INSTANTIATE_TEST_SUITE_P(Family, LinearLanes, ::testing::ValuesIn(kKernels), lanetest::kernel_name);

}  // namespace
