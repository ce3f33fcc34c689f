// Comfort noise: the floor estimate (persistence counter, quiet-block steps, block count), the
// generator (start, seed sequence, amplitude and phase of the noise) and the lane equivalence of
// both.
#include "suppressor/comfort_noise.h"
#include "spectral/processor.h"

#include <array>
#include <tuple>

#include "lane_equivalence.h"
#include "suppressor/support.h"

namespace {

using lanetest::Buffers;
using lanetest::Operands;
using suptest::make_state;

double floor_of(const AecState &st, int k) {
    return std::ldexp(st.ai32CnFloorMan[k], -st.as16CnFloorExp[k]);
}

// Value 2^30 / 2^q in every bin of a mantissa/Q-value pair of arrays.
template <class M, class Q>
void fill_value(M &man, Q &exp, int16_t q) {
    std::fill(std::begin(man), std::end(man), 1 << 30);
    std::fill(std::begin(exp), std::end(exp), q);
}

TEST(ComfortNoiseEstimate, PersistenceCounterSaturatesAndBlockCountWrapsTo251) {
    auto st = make_state(false);
    st->s32CnBlockCnt = INT32_MAX - 2;
    st->s16NearActive = 1;
    st->as16CnRiseCnt[3] = 32758;
    // (power Q value, counter 5 before, counters 3 and 5 and block count after)
    for (const auto &[power_q, before5, cnt3, cnt5, blocks] :
         {std::tuple{20, 0, 32760, 7, INT32_MAX - 1},  // far above four times the floor
          {40, 3, 32754, 0, 251}}) {                   // below the floor
        fill_value(st->ai32CnFloorMan, st->as16CnFloorExp, 30);
        fill_value(st->ai32DPowMan, st->as16DPowExp, static_cast<int16_t>(power_q));
        st->as16CnRiseCnt[5] = static_cast<int16_t>(before5);
        Sonvel_AEC_ComfortNoiseEstimate(st.get());
        EXPECT_EQ(std::tuple(st->as16CnRiseCnt[3], st->as16CnRiseCnt[5], st->s32CnBlockCnt),
                  std::tuple(cnt3, cnt5, blocks));
    }
}

// One block: A = 2^20 (far above 2 P), F = 1 (far below P = 256), counters at `risen`; returns
// the average and floor of bin 10.
std::pair<double, double> quiet_block(int16_t nearActive, int16_t quiet, int32_t notNear,
                                      int32_t blocks, int16_t risen = 400) {
    auto st = make_state(true);
    fill_value(st->ai32CnAvgMan, st->as16CnAvgExp, 10);
    fill_value(st->ai32CnFloorMan, st->as16CnFloorExp, 30);
    fill_value(st->ai32DPowMan, st->as16DPowExp, 22);
    std::fill(std::begin(st->as16CnRiseCnt), std::end(st->as16CnRiseCnt), risen);
    st->s32CnBlockCnt = blocks;
    st->s16NearActive = nearActive;
    st->as16NearVadSt[0] = quiet;
    st->s32NotNearState = notNear;
    Sonvel_AEC_ComfortNoiseEstimate(st.get());
    return {std::ldexp(st->ai32CnAvgMan[10], -st->as16CnAvgExp[10]), floor_of(*st, 10)};
}

TEST(ComfortNoiseEstimate, QuietBlockStepsNeedTheirConditions) {
    const auto [avg, flr] = quiet_block(1, 7, 0, 300);  // near end active: neither step
    EXPECT_EQ(quiet_block(0, 6, 0, 300), std::pair(avg, flr));
    // Fewer than 6 quiet blocks: the average takes the power on top.
    EXPECT_EQ(quiet_block(0, 5, 0, 300).second, flr);
    EXPECT_NEAR(quiet_block(0, 5, 0, 300).first, avg + 256.0, 1.0);
    // More than 6: the floor rises by 1 % of the power, when allowed.
    EXPECT_NEAR(quiet_block(0, 7, 0, 201).second, 0.99 + 2.56, 0.01);
    EXPECT_EQ(quiet_block(0, 7, 0, 200).second, flr);
    EXPECT_EQ(quiet_block(0, 7, 1, 300).second, flr);
    EXPECT_EQ(quiet_block(0, 7, 0, 300, 293).second, flr);  // only recently above 4 F
}

TEST(ComfortNoiseGeneration, StartsAfter250BlocksWhenEnabledAndTheSeedSequenceSetsThePhases) {
    auto st = make_state(true);
    fill_value(st->ai32CnFloorMan, st->as16CnFloorExp, 10);  // F = 2^20: amplitude 2^17 at g = 0
    std::vector<int32_t> E(264), out(264, 77);
    for (int w = 0; w < 264; ++w) E[w] = 100 * w - 9000;
    const std::vector<int16_t> g(132, 0);
    for (const auto &[enable, blocks] : {std::pair{0u, 5000}, {1u, 250}}) {
        st->u32CnEnable = enable;  // off or not yet started: the error spectrum, seed untouched
        st->s32CnBlockCnt = blocks;
        Sonvel_AEC_ComfortNoise(st.get(), g.data(), E.data(), out.data());
        for (int w = 0; w < 264; ++w) ASSERT_EQ(out[w], w <= 257 ? E[w] : 77) << w;
        EXPECT_EQ(st->s16CnSeed, 21845);
    }
    st->s32CnBlockCnt = 251;
    std::fill(E.begin(), E.end(), 0);
    for (const auto &[seed, r] : {std::pair{3242, 42}, {23867, 59}, {-11048, 88}}) {
        Sonvel_AEC_ComfortNoise(st.get(), g.data(), E.data(), out.data());
        EXPECT_EQ(st->s16CnSeed, seed);
        EXPECT_EQ(std::tuple(out[0], out[1]), std::tuple(0, 0));  // bin 0 gets no noise
        for (int k = 1; k <= 128; ++k) {
            EXPECT_NEAR(out[2 * k], 4.0 * Sonvel_AEC_gasAecCnCos_650[r + k], 8.0) << k;
            EXPECT_NEAR(out[2 * k + 1], -4.0 * Sonvel_AEC_gasAecCnSin_650[r + k], 8.0) << k;
        }
    }
}

TEST(ComfortNoiseGeneration, AmplitudeFollowsFloorAndGain) {
    for (const bool wide : {false, true}) {
        auto st = make_state(wide);
        const int last = st->s16HalfFftLen;
        st->s32CnBlockCnt = 300;
        std::vector<int32_t> E(2 * last + 8), out(E.size());
        for (size_t w = 0; w < E.size(); ++w) E[w] = 1000 * static_cast<int32_t>(w) - 60000;
        std::vector<int16_t> g(132);
        for (int k = 0; k < 130; ++k) {  // floors of both exponent parities; bin 7 has none
            g[k] = static_cast<int16_t>((k * 2711) % 32768);
            st->ai32CnFloorMan[k] = k == 7 ? 0 : 0x40000000 + 12345 * k;
            st->as16CnFloorExp[k] = static_cast<int16_t>(k % 23 - 4);
        }
        Sonvel_AEC_ComfortNoise(st.get(), g.data(), E.data(), out.data());
        for (int k = 1; k <= last; ++k) {
            const double gg = g[k] / 32768.0;
            const double amp =
                std::sqrt(floor_of(*st, k) * (1.0 - gg * gg)) * (1 << st->s16RateShift);
            const double got =
                std::hypot(double(out[2 * k]) - E[2 * k], double(out[2 * k + 1]) - E[2 * k + 1]);
            EXPECT_NEAR(got, amp, 1e-4 * amp + 3.0) << "bin " << k;
        }
        EXPECT_EQ(out[14], E[14]);
    }
}

// The family's lane loops. The estimate over every bin count with floors, averages, powers and
// counters from the boundary values (zero and full-scale mantissas, Q values at both ends of their
// range, close ones where the aligned mantissas meet, counters at both limits) through every
// branch: block counts, near-end activity, quiet blocks.
const lanetest::Kernel kKernels[] = {
    {"FloorEstimate",
     [](Operands &ops, int bins) {
         static constexpr int16_t kCnt[] = {0, 1, 5, 6, 300, 301, 32753, 32760, -3, 32767};
         Buffers b;
         AecState *st = b.hold(*make_state(false));
         const int round = ops.round();
         const auto q = [&] {
             return round % 5 == 0 ? static_cast<int16_t>(ops.next() % 8 + 20) : ops.q();
         };
         for (size_t k = 0; k < std::size(st->ai32CnAvgMan); ++k) {
             st->ai32DPowMan[k] = ops.mantissa(), st->as16DPowExp[k] = q();
             st->ai32CnAvgMan[k] = ops.mantissa(), st->as16CnAvgExp[k] = q();
             st->ai32CnFloorMan[k] = ops.mantissa(), st->as16CnFloorExp[k] = q();
             st->as16CnRiseCnt[k] = ops.one_in(4) ? ops.half() : kCnt[ops.next() % std::size(kCnt)];
         }
         st->s32CnBlockCnt = std::array{5, 100, 300}[round % 3];
         st->s16NearActive = round % 8 == 7 ? 1 : 0;
         st->as16NearVadSt[0] = round % 4 < 2 ? 7 : 3;
         st->s32NotNearState = 0;
         st->s16HalfFftLen = static_cast<int16_t>(bins);
         return b;
     },
     [](sp::Isa isa, Buffers &b, int) { sup::comfort_noise::estimate(isa, b.held<AecState>()); },
     lanetest::counts_upto(130), false, 12},
    // The generator with empty, negative and full-scale floors, Q values at both ends of their
    // range, gains and phases at their extremes and error spectra that saturate the sum.
    {"NoiseGenerator",
     [](Operands &ops, int n) {
         const int m = n + lanetest::kSlack;
         return Buffers{{ops.many(m, &Operands::mantissa),
                         ops.many(2 * m, &Operands::mantissa),
                         ops.many(2 * m, &Operands::mantissa),
                         {ops.value(0, 1)}},
                        {ops.many(m, &Operands::q), ops.many(m, &Operands::half),
                         ops.many(m, &Operands::half), ops.many(m, &Operands::half)}};
     },
     [](sp::Isa isa, Buffers &b, int n) {
         const sup::comfort_noise::Bins bins{b.w[0].data(), b.s[0].data(), b.s[1].data(),
                                             b.s[2].data(), b.s[3].data(), b.w[3][0]};
         sup::comfort_noise::add_noise(isa, bins, b.w[1].data(), b.w[2].data(), n);
     },
     lanetest::counts_upto(lanetest::kMaxCount), false, 8},
};

class ComfortNoiseLanes : public lanetest::LaneFamily {};

TEST_P(ComfortNoiseLanes, LanePathGivesThePortableBits) { expect_same_bits(); }

INSTANTIATE_TEST_SUITE_P(Family, ComfortNoiseLanes, ::testing::ValuesIn(kKernels),
                         lanetest::kernel_name);

}  // namespace
