// Lane equivalence of the smoothing and power loops (the kernel is the test parameter), bit for
// bit over the counts and operands of the lane-equivalence fixture, with extreme Q values, factors
// 0, 32767 and negative ones (which some loops leave to the portable code), and for the far-end
// power update rate shifts from the usual ones to extreme ones. Skipped where the processor has
// no vector unit.
#include <cstdint>
#include <memory>

#include "lane_equivalence.h"
#include "sonvel_aec_spectral.h"
#include "spectral/kernels.h"
#include "state/aec_state.h"

namespace {

using lanetest::Buffers;
using lanetest::Operands;
using sp::Isa;

constexpr int kS = lanetest::kSlack;

int16_t factor(Operands &ops) { return ops.pick<int16_t>({0, 29490, 32767, -1, -2, INT16_MIN}); }
int16_t q_value(Operands &ops) { return ops.pick<int16_t>({INT16_MIN, -3, 0, 15, INT16_MAX}); }
// Q values of the smoothed spectra: near each other, sometimes at the bounds.
lanetest::Shorts q_values(Operands &ops, int n) {
    lanetest::Shorts q = ops.shorts(n, -40, 40);
    for (auto &v : q)
        if (ops.next() % 3 == 0)
            v = ops.pick<int16_t>(
                {INT16_MIN, INT16_MIN + 40, -100, -1, 0, 31, 62, INT16_MAX - 40, INT16_MAX});
    return q;
}
int16_t s16(int32_t v) { return static_cast<int16_t>(v); }

const lanetest::Kernel kKernels[] = {
    // Factors per element, a few of them negative (a step with one is left to the portable code).
    {"PerElementFactors",
     [](Operands &ops, int n) {
         lanetest::Shorts a = ops.shorts(n + kS, 0, 32767);
         for (auto &v : a)
             v = ops.next() % 4    ? v
                 : ops.next() % 16 ? ops.pick<int16_t>({0, 1, 16384, 29490, 32766, 32767})
                                   : ops.pick<int16_t>({-1, INT16_MIN});
         return Buffers{{ops.words(n + kS), ops.words(n + kS)},
                        {q_values(ops, n + kS), q_values(ops, n + kS), a}};
     },
     [](Isa isa, Buffers &b, int n) {
         sp::smooth_dg_f(isa, b.w[0].data(), b.w[1].data(), b.s[0].data(), b.s[1].data(),
                         b.s[2].data(), s16(n));
     }},
    {"SmoothedPower",
     [](Operands &ops, int n) {
         return Buffers{{ops.words(2 * n + kS), ops.words(n + kS)},
                        {q_values(ops, n + kS), {q_value(ops), factor(ops)}}};
     },
     [](Isa isa, Buffers &b, int n) {
         sp::energy_smooth_f(isa, b.w[0].data(), b.w[1].data(), b.s[1][0], b.s[0].data(), b.s[1][1],
                             n);
     }},
    {"SmoothedCrossSpectrum",
     [](Operands &ops, int n) {
         return Buffers{{ops.words(2 * n + kS), ops.words(2 * n + kS), ops.words(2 * n + kS)},
                        {q_values(ops, 2 * n + kS), {q_value(ops), factor(ops)}}};
     },
     [](Isa isa, Buffers &b, int n) {
         sp::conj_mult_smooth_q(isa, b.w[0].data(), b.w[1].data(), b.w[2].data(), b.s[1][0],
                                b.s[0].data(), b.s[1][1], n);
     }},
    {"NormalisedPower",
     [](Operands &ops, int n) {
         return Buffers{{ops.words(2 * n + kS), ops.words(n + kS)},
                        {q_values(ops, n + kS), {q_value(ops)}}};
     },
     [](Isa isa, Buffers &b, int n) {
         sp::energy_f(isa, b.w[0].data(), b.w[1].data(), b.s[1][0], b.s[0].data(), n);
     }},
    {"PowerWithPartQValues",
     [](Operands &ops, int n) {
         lanetest::Words q = ops.in(2 * n + kS, -40, 40);
         for (auto &v : q) v = ops.next() % 3 ? v : ops.word();
         return Buffers{{ops.words(2 * n + kS), q, ops.words(n + kS), ops.words(n + kS)}, {}};
     },
     [](Isa isa, Buffers &b, int n) {
         sp::energy_dq_f(isa, b.w[0].data(), b.w[1].data(), b.w[2].data(), b.w[3].data(), n);
     }},
    // The update takes its path from the instance (on aarch64 always the lanes).
    {"FarPowerUpdate",
     [](Operands &ops, int n) {
         return Buffers{{ops.words(2 * n + 8 + kS), ops.words(n + 4 + kS)},
                        {{ops.pick<int16_t>({0, 1, -40, 7, 8, 9, 40})}}};
     },
     [](Isa isa, Buffers &b, int n) {
         static const auto state = std::make_unique<AecState>();
         state->s32LanePath = static_cast<int32_t>(isa);
         state->s16HalfFftLen = s16(n);
         state->s16RateShift = b.s[0][0];
         Sonvel_AEC_Energy(state.get(), b.w[0].data(), b.w[1].data());
     }},
};

class SmoothingLanes : public lanetest::LaneFamily {};

TEST_P(SmoothingLanes, LanePathGivesThePortableBits) { expect_same_bits(30, 12345); }

INSTANTIATE_TEST_SUITE_P(Family, SmoothingLanes, ::testing::ValuesIn(kKernels),
                         lanetest::kernel_name);

}  // namespace
