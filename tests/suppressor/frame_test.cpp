// Suppression frame step: the zero guard on silent input, the far-end quiet counter and the
// pass-through it starts and ends, and the mute of an output that keeps less than 1/64 of the
// near-end power.
#include <cstring>
#include <random>

#include "spectral/fft/fft_plan.h"
#include "spectral/processor.h"
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

// The instance's choice between the portable and the vectorised loops.
int32_t &vectorised(AecState *st) { return st->s32LanePath; }

// A portable twin of a vectorised state: the same contents with the portable loops chosen.
std::unique_ptr<AecState> portable_twin(const AecState *st) {
    auto twin = std::make_unique<AecState>(*st);
    vectorised(twin.get()) = 0;
    return twin;
}

// True when both states hold the same contents apart from the choice of loops.
bool same_state(AecState *portable, AecState *vector) {
    const int32_t choice = vectorised(portable);
    vectorised(portable) = vectorised(vector);
    const bool same = std::memcmp(portable, vector, sizeof(AecState)) == 0;
    vectorised(portable) = choice;
    return same;
}

// Frame steps on the vector path and the portable path of twin states give the same output
// blocks and states, at both rates, for speech-like, silent, full-scale, extreme and tiny inputs
// and every choice of the delayed far-end slot.
TEST(FrameTest, VectorPathOfTheFrameStepMatchesPortable) {
    if (sp::probe_isa() != sp::Isa::kVector) GTEST_SKIP() << "no AVX2 on this processor";
    std::mt19937 rng(23);
    for (bool wide : {false, true}) {
        auto vector = suptest::make_state(wide);
        auto portable = portable_twin(vector.get());
        const int half = wide ? 128 : 64;
        const auto speech = suptest::speech_like(60 * 2 * half, wide ? 16000 : 8000, 12000.0, 3);
        for (int frame = 0; frame < 60; ++frame) {
            AecState *st = vector.get();
            const int kind = frame % 6;
            const auto pcm = [&](int i) -> int16_t {
                switch (kind) {
                    case 0: return speech[frame * half + i];
                    case 1: return 0;
                    case 2: return static_cast<int16_t>(rng());
                    case 3: return i % 2 == 0 ? -32768 : 32767;
                    case 4: return static_cast<int16_t>(static_cast<int>(rng() % 3) - 1);
                    default: return static_cast<int16_t>(speech[frame * half + i] / 64);
                }
            };
            const auto err = [&](int i) -> int32_t {
                if (kind == 2) return static_cast<int32_t>(rng());
                if (kind == 3) return i % 3 == 0 ? INT32_MIN : INT32_MAX;
                return pcm(i) * (1 << st->s16RateShift);
            };
            for (int i = 0; i < 2 * half; ++i) {
                st->as16NearTimeBuf[i] = pcm(i);
                st->as16FarTimeBuf[i] = pcm((i + 17) % (2 * half));
            }
            for (int i = 0; i < half; ++i) {
                st->ai32ErrBlk[i] = err(i);
                st->ai32EchoEst[i] = kind == 1 ? 0 : err(half - 1 - i) / 2;
            }
            st->s32MaxPartIdx = static_cast<int32_t>(rng() % 16) - 2;
            std::memcpy(portable->as16NearTimeBuf, st->as16NearTimeBuf, sizeof st->as16NearTimeBuf);
            std::memcpy(portable->as16FarTimeBuf, st->as16FarTimeBuf, sizeof st->as16FarTimeBuf);
            std::memcpy(portable->ai32ErrBlk, st->ai32ErrBlk, sizeof st->ai32ErrBlk);
            std::memcpy(portable->ai32EchoEst, st->ai32EchoEst, sizeof st->ai32EchoEst);
            portable->s32MaxPartIdx = st->s32MaxPartIdx;

            std::vector<int16_t> want(half), got(half);
            Sonvel_AEC_Nlp(portable.get(), want.data());
            Sonvel_AEC_Nlp(st, got.data());
            ASSERT_EQ(got, want) << "rate " << wide << " frame " << frame;
            ASSERT_TRUE(same_state(portable.get(), st)) << "rate " << wide << " frame " << frame;
        }
    }
}

// The synthesis on the vector path gives the portable frame, output and overlap buffer for
// spectra of every scale (so that the shift undoing the normalisation takes every value the
// vector steps take and beyond), the extreme words, and windows over the whole int16 range.
TEST(FrameTest, VectorPathOfTheSynthesisMatchesPortable) {
    if (sp::probe_isa() != sp::Isa::kVector) GTEST_SKIP() << "no AVX2 on this processor";
    std::mt19937 rng(29);
    const int32_t edges[] = {0, -1, 1, INT32_MIN, INT32_MAX};
    for (bool wide : {false, true}) {
        auto vector = suptest::make_state(wide);
        auto portable = portable_twin(vector.get());
        const int n = wide ? 256 : 128;
        for (int trial = 0; trial < 200; ++trial) {
            const int bits = trial % 33;
            std::vector<int32_t> spectrum(n + 8), frame(n), frame_vec(n);
            for (int i = 0; i < n + 2; ++i) {
                const auto r = static_cast<int32_t>(rng());
                spectrum[i] = bits == 32 ? edges[rng() % 5] : (bits == 0 ? 0 : r >> (32 - bits));
            }
            std::vector<int16_t> win(n), out(n / 2), out_vec(n / 2);
            for (int16_t &w : win) w = trial % 4 == 0 ? static_cast<int16_t>(rng()) : rng() % 32768;
            for (int32_t &v : vector->ai32OlaBuf)
                v = trial % 5 == 0 ? edges[rng() % 5] : static_cast<int32_t>(rng()) >> (rng() % 32);
            std::memcpy(portable->ai32OlaBuf, vector->ai32OlaBuf, sizeof vector->ai32OlaBuf);
            std::vector<int32_t> spectrum_vec = spectrum;
            Sonvel_AEC_OutPutSmooth(portable.get(), spectrum.data(), win.data(), frame.data(),
                                    out.data());
            Sonvel_AEC_OutPutSmooth(vector.get(), spectrum_vec.data(), win.data(), frame_vec.data(),
                                    out_vec.data());
            ASSERT_EQ(frame_vec, frame) << "trial " << trial;
            ASSERT_EQ(out_vec, out) << "trial " << trial;
            ASSERT_TRUE(same_state(portable.get(), vector.get())) << "trial " << trial;
        }
    }
}

}  // namespace
