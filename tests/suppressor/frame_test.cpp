// Suppression frame step: the zero guard on silent input, the far-end quiet counter and the
// pass-through it starts and ends, and the mute of an output that keeps less than 1/64 of the
// near-end power.
#include <cstring>

#include "suppressor/spectrum_power.h"
#include "suppressor/support.h"

namespace {

using suptest::Instance;

TEST(FrameTest, SilentInputLeavesNoZeroWordInTheSpectra) {
    for (bool wide : {false, true}) {
        Instance inst(wide);
        AecState *st = inst.st;
        const int half = inst.half();
        std::vector<int16_t> out(half, 99);
        Sonvel_AEC_Nlp(st, out.data());
        for (int i = 0; i < 2 * half + 4; ++i)
            ASSERT_EQ(st->aiNlpSpecHist[0][i], i < 2 * half + 2 ? 1 : 0);
        for (int k = 0; k <= half + 3; ++k) {
            ASSERT_EQ(st->ai32DPowMan[k], k <= half ? 1 << 29 : 0);  // (2^60 + 2^60) / 2^32
            if (k <= half) {
                ASSERT_EQ(st->as16DPowExp[k], 27 + 2 * st->s16RateShift);
            }
        }
        for (int16_t v : out) ASSERT_LE(std::abs(v), 1);
    }
}

// One frame step on a copy of the instance with the given quiet count, far-end level and setting;
// returns the new count and the output block.
std::pair<int, std::vector<int16_t>> run_quiet(const Instance &inst, int16_t count, int16_t level,
                                               int setting = 1) {
    Instance copy(inst.cfg.u8SampleRate != 0);
    std::memcpy(copy.mem.get(), inst.mem.get(), sonvel::kInstanceBytes);
    AecState *st = copy.st;
    st->s16FarQuietCnt = count;
    st->u16NlpLevel = static_cast<uint16_t>(setting);
    std::fill(std::begin(st->as16FarLevelHist), std::end(st->as16FarLevelHist), -3000);
    st->as16FarLevelHist[17] = level;
    std::vector<int16_t> out(copy.half());
    Sonvel_AEC_Nlp(st, out.data());
    return {st->s16FarQuietCnt, out};
}

TEST(FrameTest, QuietFarEndStartsAndEndsThePassThrough) {
    for (bool wide : {false, true}) {
        Instance inst(wide);
        const int half = inst.half();
        // A loud near end that the linear stage removed completely: the suppressed output is
        // small, a passed-through block carries the near end.
        suptest::Noise noise(4);
        AecState *st = inst.st;
        for (int i = 0; i < 2 * half; ++i)
            st->as16NearTimeBuf[i] = suptest::to_pcm(8000.0 * noise.next());
        for (int i = 0; i < half; ++i)
            st->ai32EchoEst[i] = st->as16NearTimeBuf[half + i] * (1 << st->s16RateShift);
        const double near = suptest::energy(inst.st->as16NearTimeBuf + half, half);
        const auto energy = [&](const std::vector<int16_t> &x) {
            return suptest::energy(x.data(), half);
        };
        const auto [before, quiet] = run_quiet(inst, 475, 0);  // 476th quiet block
        EXPECT_EQ(before, 476);
        EXPECT_LT(energy(quiet), 0.01 * near);
        const auto [first, pass] = run_quiet(inst, 476, 0);  // 477th: passed through
        EXPECT_EQ(first, 477);
        EXPECT_GT(energy(pass), 0.2 * near);
        EXPECT_EQ(run_quiet(inst, 477, 0), std::pair(477, pass));
        // Thresholds 5152 + 2048 * setting; all-negative histories count as 0.
        for (int setting = 0; setting <= 2; ++setting) {
            const int16_t t = static_cast<int16_t>(5152 + 2048 * setting);
            EXPECT_EQ(run_quiet(inst, 477, static_cast<int16_t>(t - 1), setting),
                      std::pair(477, pass));
            const auto [loud, out] = run_quiet(inst, 477, t, setting);
            EXPECT_EQ(loud, 0);
            EXPECT_LT(energy(out), 0.01 * near);
        }
        EXPECT_EQ(run_quiet(inst, 10, -1).first, 11);
    }
}

TEST(FrameTest, MuteBoundaryIsSixtyFourTimesTheOutputPower) {
    const int64_t out = int64_t{1000} << 8;
    EXPECT_FALSE(sup::output_too_quiet(int64_t{64000} << 8, out));
    EXPECT_FALSE(sup::output_too_quiet((int64_t{64000} << 8) + 255, out));
    EXPECT_TRUE(sup::output_too_quiet(int64_t{64001} << 8, out));
    EXPECT_FALSE(sup::output_too_quiet(int64_t{1} << 38, int64_t{1} << 33));  // 64 * b saturates
    EXPECT_FALSE(sup::output_too_quiet(0, 0));
    EXPECT_TRUE(sup::output_too_quiet(256, 0));
}

}  // namespace
