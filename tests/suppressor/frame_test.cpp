// Suppression frame step: the zero guard on silent input, the far-end quiet counter and the
// pass-through it starts and ends, the delayed far-end spectrum and its bounds, and the mute of an
// output that keeps less than 1/64 of the near-end power.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "sonvel_aec_spectral.h"
#include "sonvel_aec_stages.h"
#include "suppressor/frame_support.h"
#include "suppressor/spectrum_power.h"

namespace {

using suptest::Instance;

// Near-end samples in the time buffer; error and echo blocks as the linear stage leaves them when
// it cancels nothing and everything, respectively.
void load_block(AecState *st, int half, uint32_t seed, double near_amp, double far_amp,
                bool cancelled) {
    suptest::Noise noise(seed);
    for (int i = 0; i < 2 * half; ++i) {
        st->as16NearTimeBuf[i] = suptest::to_pcm(near_amp * noise.next());
        st->as16FarTimeBuf[i] = suptest::to_pcm(far_amp * noise.next());
    }
    const int s = st->s16RateShift;
    for (int i = 0; i < half; ++i) {
        const int32_t near = st->as16NearTimeBuf[half + i] * (1 << s);
        st->ai32ErrBlk[i] = cancelled ? 0 : near;
        st->ai32EchoEst[i] = cancelled ? near : 0;
    }
}

TEST(FrameTest, SilentInputLeavesNoZeroWordInTheSpectra) {
    for (bool wide : {false, true}) {
        Instance inst(wide);
        ASSERT_NE(inst.st, nullptr);
        AecState *st = inst.st;
        const int half = inst.block_len();
        const int s = st->s16RateShift;
        std::vector<int16_t> out(half, 99);
        Sonvel_AEC_Nlp(st, out.data());
        for (int i = 0; i < 2 * half + 2; ++i) ASSERT_EQ(st->aiNlpSpecHist[0][i], 1) << i;
        EXPECT_EQ(st->aiNlpSpecHist[0][2 * half + 2], 0);
        EXPECT_EQ(st->aiNlpSpecHist[0][2 * half + 3], 0);
        for (int k = 0; k <= half; ++k) {
            ASSERT_EQ(st->ai32DPowMan[k], 1 << 29) << k;  // (2^60 + 2^60) / 2^32 from parts of 1
            ASSERT_EQ(st->as16DPowExp[k], 27 + 2 * s) << k;
        }
        for (int k = half + 1; k <= half + 3; ++k) EXPECT_EQ(st->ai32DPowMan[k], 0);
        for (int i = 0; i < half; ++i) ASSERT_LE(std::abs(out[i]), 1) << i;
    }
}

// Output of one frame step on a copy of the state with the given quiet count and far-end levels.
struct QuietRun {
    std::vector<int16_t> out;
    int16_t count;
    double energy;
};

QuietRun run_quiet(const Instance &inst, int16_t count, int16_t level, int nlp_level = 1) {
    Instance copy(inst.cfg.u8SampleRate != 0);
    std::memcpy(copy.mem.get(), inst.mem.get(), sonvel::kInstanceBytes);
    AecState *st = copy.st;
    st->s16FarQuietCnt = count;
    st->u16NlpLevel = static_cast<uint16_t>(nlp_level);
    for (int16_t &v : st->as16FarLevelHist) v = -3000;
    st->as16FarLevelHist[17] = level;
    QuietRun r{std::vector<int16_t>(copy.block_len()), 0, 0.0};
    Sonvel_AEC_Nlp(st, r.out.data());
    r.count = st->s16FarQuietCnt;
    r.energy = suptest::energy(r.out.data(), copy.block_len());
    return r;
}

TEST(FrameTest, QuietFarEndStartsAndEndsThePassThrough) {
    for (bool wide : {false, true}) {
        Instance inst(wide);
        ASSERT_NE(inst.st, nullptr);
        const int half = inst.block_len();
        // A loud near end that the linear stage removed completely: suppressed output is small,
        // a passed-through block carries the near end.
        load_block(inst.st, half, 4, 8000.0, 0.0, true);
        for (int i = 0; i < 2 * half; ++i) inst.st->ai32OlaBuf[i] = 0;
        const double near = suptest::energy(inst.st->as16NearTimeBuf + half, half);

        const QuietRun before = run_quiet(inst, 475, 0);  // 476th quiet block
        EXPECT_EQ(before.count, 476);
        EXPECT_LT(before.energy, 0.01 * near);
        const QuietRun first = run_quiet(inst, 476, 0);  // 477th: passed through
        EXPECT_EQ(first.count, 477);
        EXPECT_GT(first.energy, 0.2 * near);
        const QuietRun steady = run_quiet(inst, 477, 0);
        EXPECT_EQ(steady.count, 477);
        EXPECT_EQ(steady.out, first.out);

        // Thresholds 5152 + 2048 * level; all-negative histories count as 0.
        for (int level = 0; level <= 2; ++level) {
            const int16_t t = static_cast<int16_t>(5152 + 2048 * level);
            const QuietRun below = run_quiet(inst, 477, static_cast<int16_t>(t - 1), level);
            EXPECT_EQ(below.count, 477);
            EXPECT_EQ(below.out, first.out);
            const QuietRun loud = run_quiet(inst, 477, t, level);
            EXPECT_EQ(loud.count, 0);
            EXPECT_LT(loud.energy, 0.01 * near);
        }
        EXPECT_EQ(run_quiet(inst, 10, -1).count, 11);
    }
}

TEST(FrameTest, PassedThroughBlockIsTheStandAloneSynthesisOfTheNearEnd) {
    for (bool wide : {false, true}) {
        Instance inst(wide);
        ASSERT_NE(inst.st, nullptr);
        const int half = inst.block_len();
        const int n = 2 * half;
        load_block(inst.st, half, 8, 6000.0, 3000.0, false);
        for (int i = 0; i < n; ++i) inst.st->ai32OlaBuf[i] = 1000 * (i % 7) - 3000;

        // The near-end spectrum as the frame step forms it, with its zero words raised to 1.
        std::vector<int16_t> w(n);
        for (int i = 0; i < n; ++i)
            w[i] = (wide ? Sonvel_AEC_gasAecWindow_129
                         : Sonvel_AEC_gasAecWindow_65)[i <= half ? i : n - i];
        std::vector<int32_t> d(n + 8, 0), frame(n);
        for (int i = 0; i < n; ++i)
            d[i] = (w[i] * inst.st->as16NearTimeBuf[i]) >> (15 - inst.st->s16RateShift);
        Sonvel_AEC_Realfft(d.data(), n, inst.st->au8FftPlan);
        for (int i = 0; i < n + 2; ++i) d[i] = d[i] == 0 ? 1 : d[i];
        Instance alone(wide);
        std::memcpy(alone.mem.get(), inst.mem.get(), sonvel::kInstanceBytes);
        std::vector<int16_t> want(half);
        Sonvel_AEC_OutPutSmooth(alone.st, d.data(), w.data(), frame.data(), want.data());

        const QuietRun pass = run_quiet(inst, 476, 0);
        EXPECT_EQ(pass.out, want);
    }
}

TEST(FrameTest, DelayedFarEndComesFromTheNamedHistorySlot) {
    for (bool wide : {false, true}) {
        for (int32_t idx : {0, 1, 7, 11, 12, -1}) {
            Instance inst(wide);
            ASSERT_NE(inst.st, nullptr);
            const int half = inst.block_len();
            load_block(inst.st, half, 3, 5000.0, 9000.0, false);
            for (int i = 0; i < 2 * half + 4; ++i) inst.st->aiNlpSpecHist[1][i] = 1 << 24;
            inst.st->s32MaxPartIdx = idx;
            std::vector<int16_t> out(half);
            Sonvel_AEC_Nlp(inst.st, out.data());
            // Sx of a zero spectrum stays exactly zero; slot 1 holds a constant spectrum.
            int64_t sx = 0;
            for (int k = 0; k <= half; ++k) sx += inst.st->ai32SxMan[k];
            if (idx >= 7) {
                EXPECT_EQ(sx, 0) << idx;
            } else {
                EXPECT_GT(sx, 0) << idx;
            }
            EXPECT_NE(inst.st->aiNlpSpecHist[0][2],
                      1 << 24);  // slot 0 receives the current far end
            for (int slot = 7; slot < 12; ++slot) EXPECT_EQ(inst.st->aiNlpSpecHist[slot][0], 0);
        }
    }
}

// Every band field at the largest value validation accepts, with echo and near talk running long
// enough for the echo regime, comfort noise and the raised modes: nothing reads or writes outside
// the state or the frame step's arrays (checked by the sanitizer build).
TEST(FrameTest, BandFieldsAtTheirLargestAcceptedValues) {
    for (bool wide : {false, true}) {
        const auto widest = [](AecCfg &c) {
            const int16_t n = c.u8SampleRate != 0 ? 256 : 128;
            c.s16HfBinLo = c.s16HfBinHi = n;
            c.s16CohBinLo = 0;
            c.s16CohBinHi = n;
            for (int16_t &e : c.as16BandEdge) e = n;
            c.s16ClampBinLo = n;
            c.s16ClampBinHi = 32767;
            c.u8HighFreqMode = 1;
        };
        Instance inst(wide, widest);
        ASSERT_NE(inst.st, nullptr) << wide;
        const int f = inst.frame_len();
        const int frames = 300;
        std::vector<int16_t> far =
            suptest::speech_like(frames * f, wide ? 16000 : 8000, 10000.0, 3);
        std::vector<int16_t> near =
            suptest::speech_like(frames * f, wide ? 16000 : 8000, 3000.0, 4);
        for (size_t i = 40; i < near.size(); ++i)
            near[i] = suptest::to_pcm(near[i] + 0.4 * far[i - 40]);
        std::vector<int16_t> out(f);
        for (int i = 0; i < frames; ++i) {
            ASSERT_EQ(Sonvel_AEC_Apply(inst.handle, &near[i * f], &far[i * f], out.data()), 0);
        }
        EXPECT_GT(inst.st->s32CnBlockCnt, 251);
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
