// Lane equivalence of the frame step (the kernel is the test parameter): the whole step, its gain
// shaping and its synthesis, each on an instance at both rates (their loops run over 65 or 129
// bins, 68 or 132 bin powers, 130 or 258 spectrum words: no multiple of the lane count). Skipped
// where the processor has no vector unit.
#include "lane_equivalence.h"
#include "sonvel_aec_stages.h"
#include "suppressor/support.h"

namespace {

using lanetest::Buffers;
using lanetest::Operands;
using lanetest::Shorts;
using lanetest::Words;
using sp::Isa;
using suptest::make_state;
using suptest::on_path;

// The near-end, far-end, error and echo blocks of frame `frame` of input kind `kind`: speech-like,
// silent, random, alternating full scale, tiny, quiet speech.
void fill_frame(AecState *st, int kind, int frame, Operands &ops) {
    const int half = st->s16HalfFftLen, rate = half == 128 ? 16000 : 8000;
    static const std::vector<int16_t> speech[2] = {
        suptest::speech_like(60 * 128, 8000, 12000.0, 3),
        suptest::speech_like(60 * 256, 16000, 12000.0, 3)};
    const auto pcm = [&](int i) -> int16_t {
        const int16_t s = speech[rate == 16000][(frame % 60) * half + i];
        switch (kind) {
            case 0: return s;
            case 1: return 0;
            case 2: return static_cast<int16_t>(ops.next());
            case 3: return i % 2 == 0 ? INT16_MIN : INT16_MAX;
            case 4: return static_cast<int16_t>(static_cast<int>(ops.next() % 3) - 1);
            default: return static_cast<int16_t>(s / 64);
        }
    };
    const auto err = [&](int i) -> int32_t {
        if (kind == 2) return static_cast<int32_t>(ops.next());
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
    st->s32MaxPartIdx = static_cast<int32_t>(ops.next() % 16) - 2;
}

const lanetest::Kernel kKernels[] = {
    // Round r: the instance after r frames of mixed input, then one more frame.
    {"FrameStep",
     [](Operands &ops, int last) {
         Buffers b{{}, {Shorts(last)}};
         AecState *st = b.hold(*make_state(last == 128));
         for (int frame = 0; frame <= ops.round(); ++frame) {
             fill_frame(st, frame % 6, frame, ops);
             if (frame < ops.round()) Sonvel_AEC_Nlp(st, b.s[0].data());
         }
         return b;
     },
     [](Isa isa, Buffers &b, int) {
         AecState *st = b.held<AecState>();
         on_path(isa, st, [&] { Sonvel_AEC_Nlp(st, b.s[0].data()); });
     },
     suptest::kHalfLengths, false, 60, true},
    // Every int16 gain over the rounds, with overdrives, caps, band gains (inside and outside the
    // int16 range), modes and error spectra at their extremes.
    {"GainShaping",
     [](Operands &ops, int last) {
         Buffers b;
         AecState *st = b.hold(*make_state(last == 128));
         const auto gain = [&] { return ops.one_in(4) ? ops.half() : ops.q15(); };
         for (int k = 0; k < sonvel::kBinWords; ++k) {
             st->as16BinOvrd[k] =
                 ops.one_in(8) ? ops.half() : static_cast<int16_t>(ops.next() % 2048);
             st->as16EchoBandGain[k] = gain();
         }
         for (int16_t &v : st->as16LowGainSm) v = gain();
         st->s16ClampBinLo = static_cast<int16_t>(ops.value(0, last + 3));
         st->s16ClampBinHi = static_cast<int16_t>(ops.value(0, last + 3));
         st->s16OvrdCapLo = static_cast<int16_t>(ops.value(0, 2047));
         st->s16OvrdCapHi = static_cast<int16_t>(ops.value(0, 2047));
         st->s32OvrdBoost = ops.value(0, 1);
         st->s32EchoState = ops.value(0, 1);
         st->s16FarActive = static_cast<int16_t>(ops.value(0, 1));
         st->s32GainCapCnt = ops.value(0, 299);
         st->u16HighFreqMode = static_cast<uint16_t>(ops.value(0, 1));
         Shorts g(sonvel::kBinWords);
         for (int k = 0; k < sonvel::kBinWords; ++k)
             g[k] = static_cast<int16_t>(ops.round() * (last + 1) + k - 32768);
         const int32_t band = ops.one_in(2)
                                  ? ops.pick<int32_t>({0, -32768, 32767, 1 << 20, -(1 << 20),
                                                       INT32_MIN, INT32_MAX, 16000, -5})
                                  : ops.half();
         b.w = {ops.many(2 * sonvel::kBinWords, &Operands::mantissa), {band}};
         b.s = {g};
         return b;
     },
     [](Isa isa, Buffers &b, int) {
         AecState *st = b.held<AecState>();
         on_path(isa, st, [&] { Sonvel_AEC_NlpPro(st, b.s[0].data(), b.w[1][0], b.w[0].data()); });
     },
     suptest::kHalfLengths, false, 1010, true},
    // Spectra of every scale (the shift undoing the normalisation takes every value and beyond),
    // the extreme words, windows over the whole int16 range and any overlap buffer.
    {"Synthesis",
     [](Operands &ops, int last) {
         Buffers b;
         AecState *st = b.hold(*make_state(last == 128));
         const int n = 2 * last, bits = ops.round() % 33;
         Words spectrum(n + 8, 0);
         for (int i = 0; i < n + 2; ++i) {
             const auto r = static_cast<int32_t>(ops.next());
             spectrum[i] = bits == 32 ? ops.mantissa() : (bits == 0 ? 0 : r >> (32 - bits));
         }
         for (int32_t &v : st->ai32OlaBuf) v = ops.mantissa();
         b.w = {spectrum, Words(n)};
         b.s = {ops.many(n, ops.round() % 4 == 0 ? &Operands::half : &Operands::q15),
                Shorts(n / 2)};
         return b;
     },
     [](Isa isa, Buffers &b, int) {
         AecState *st = b.held<AecState>();
         on_path(isa, st, [&] {
             Sonvel_AEC_OutPutSmooth(st, b.w[0].data(), b.s[0].data(), b.w[1].data(),
                                     b.s[1].data());
         });
     },
     suptest::kHalfLengths, false, 200, true},
};

class FrameStepLanes : public lanetest::LaneFamily {};

TEST_P(FrameStepLanes, LanePathGivesThePortableBits) { expect_same_bits(); }

INSTANTIATE_TEST_SUITE_P(Family, FrameStepLanes, ::testing::ValuesIn(kKernels),
                         lanetest::kernel_name);

}  // namespace
