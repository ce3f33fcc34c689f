// The lane-equivalence test every suppressor kernel family instantiates (lane_equivalence.h), and
// the family of the frame step: the whole step, its gain shaping and its synthesis, each on an
// instance at both rates (their loops run over 65 or 129 bins, 68 or 132 bin powers, 130 or 258
// spectrum words: no multiple of the lane count). Skipped where the processor has no vector unit.
#include <cstring>

#include "sonvel_aec_stages.h"
#include "suppressor/lane_equivalence.h"
#include "suppressor/support.h"

namespace suptest {

TEST_P(LaneEquivalence, BothPathsWriteTheSameBits) {
    if (sp::probe_isa() != sp::Isa::kVector) GTEST_SKIP() << "no vector unit on this processor";
    const LaneKernel &kernel = GetParam();
#if defined(__aarch64__)
    if (kernel.instance_path) GTEST_SKIP() << "instances always take the lanes on aarch64";
#endif
    Draw draw(2024);
    for (const int n : kernel.counts) {
        for (int round = 0; round < kernel.rounds; ++round) {
            Operands portable = kernel.make(draw, n, round), lanes = portable;
            kernel.run(sp::Isa::kPortable, portable, n);
            kernel.run(sp::Isa::kVector, lanes, n);
            const auto where = [&] {
                return "count " + std::to_string(n) + ", round " + std::to_string(round) +
                       ", array ";
            };
            for (size_t a = 0; a < portable.w.size(); ++a)
                ASSERT_EQ(portable.w[a], lanes.w[a]) << where() << "w" << a;
            for (size_t a = 0; a < portable.h.size(); ++a)
                ASSERT_EQ(portable.h[a], lanes.h[a]) << where() << "h" << a;
            if (portable.st == nullptr) continue;
            const auto *p = reinterpret_cast<const uint8_t *>(portable.st.get());
            const auto *v = reinterpret_cast<const uint8_t *>(lanes.st.get());
            const size_t at = std::mismatch(p, p + sizeof(AecState), v).first - p;
            ASSERT_EQ(at, sizeof(AecState)) << where() << "of the state: byte " << at;
        }
    }
}

namespace {

using sp::Isa;

// The near-end, far-end, error and echo blocks of frame `frame` of input kind `kind`: speech-like,
// silent, random, alternating full scale, tiny, quiet speech.
void fill_frame(AecState *st, int kind, int frame, Draw &draw) {
    const int half = st->s16HalfFftLen, rate = half == 128 ? 16000 : 8000;
    static const std::vector<int16_t> speech[2] = {speech_like(60 * 128, 8000, 12000.0, 3),
                                                   speech_like(60 * 256, 16000, 12000.0, 3)};
    const auto pcm = [&](int i) -> int16_t {
        const int16_t s = speech[rate == 16000][(frame % 60) * half + i];
        switch (kind) {
            case 0: return s;
            case 1: return 0;
            case 2: return static_cast<int16_t>(draw());
            case 3: return i % 2 == 0 ? INT16_MIN : INT16_MAX;
            case 4: return static_cast<int16_t>(static_cast<int>(draw() % 3) - 1);
            default: return static_cast<int16_t>(s / 64);
        }
    };
    const auto err = [&](int i) -> int32_t {
        if (kind == 2) return static_cast<int32_t>(draw());
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
    st->s32MaxPartIdx = static_cast<int32_t>(draw() % 16) - 2;
}

// Round r: the instance after r frames of mixed input, then one more frame.
const LaneKernel kFrameStep{"FrameStep",
                            {64, 128},
                            60,
                            [](Draw &draw, int last, int round) {
                                Operands o;
                                o.st = make_state(last == 128);
                                o.h = {std::vector<int16_t>(last)};
                                for (int frame = 0; frame <= round; ++frame) {
                                    fill_frame(o.st.get(), frame % 6, frame, draw);
                                    if (frame < round) Sonvel_AEC_Nlp(o.st.get(), o.h[0].data());
                                }
                                return o;
                            },
                            [](Isa isa, Operands &o, int) {
                                on_path(isa, o.st.get(),
                                        [&] { Sonvel_AEC_Nlp(o.st.get(), o.h[0].data()); });
                            },
                            true};

// Every int16 gain over the rounds, with overdrives, caps, band gains (inside and outside the
// int16 range), modes and error spectra at their extremes.
const LaneKernel kGainShaping{
    "GainShaping",
    {64, 128},
    1010,
    [](Draw &draw, int last, int round) {
        Operands o;
        o.st = make_state(last == 128);
        AecState *st = o.st.get();
        const auto gain = [&] { return draw.one_in(4) ? draw.half() : draw.q15(); };
        for (int k = 0; k < sonvel::kBinWords; ++k) {
            st->as16BinOvrd[k] = draw.one_in(8) ? draw.half() : static_cast<int16_t>(draw() % 2048);
            st->as16EchoBandGain[k] = gain();
        }
        for (int16_t &v : st->as16LowGainSm) v = gain();
        st->s16ClampBinLo = static_cast<int16_t>(draw() % (last + 4));
        st->s16ClampBinHi = static_cast<int16_t>(draw() % (last + 4));
        st->s16OvrdCapLo = static_cast<int16_t>(draw() % 2048);
        st->s16OvrdCapHi = static_cast<int16_t>(draw() % 2048);
        st->s32OvrdBoost = static_cast<int32_t>(draw() % 2);
        st->s32EchoState = static_cast<int32_t>(draw() % 2);
        st->s16FarActive = static_cast<int16_t>(draw() % 2);
        st->s32GainCapCnt = static_cast<int32_t>(draw() % 300);
        st->u16HighFreqMode = static_cast<uint16_t>(draw() % 2);
        std::vector<int16_t> g(sonvel::kBinWords);
        for (int k = 0; k < sonvel::kBinWords; ++k)
            g[k] = static_cast<int16_t>(round * (last + 1) + k - 32768);
        static constexpr int32_t kBand[] = {0,         -32768,    32767, 1 << 20, -(1 << 20),
                                            INT32_MIN, INT32_MAX, 16000, -5};
        const int32_t fb = draw.one_in(2) ? kBand[draw() % std::size(kBand)] : draw.half();
        o.w = {draw.many(2 * sonvel::kBinWords, &Draw::word), {fb}};
        o.h = {g};
        return o;
    },
    [](Isa isa, Operands &o, int) {
        on_path(isa, o.st.get(),
                [&] { Sonvel_AEC_NlpPro(o.st.get(), o.h[0].data(), o.w[1][0], o.w[0].data()); });
    },
    true};

// Spectra of every scale (the shift undoing the normalisation takes every value and beyond), the
// extreme words, windows over the whole int16 range and any overlap buffer.
const LaneKernel kSynthesis{
    "Synthesis",
    {64, 128},
    200,
    [](Draw &draw, int last, int round) {
        Operands o;
        o.st = make_state(last == 128);
        const int n = 2 * last, bits = round % 33;
        std::vector<int32_t> spectrum(n + 8, 0);
        for (int i = 0; i < n + 2; ++i) {
            const auto r = static_cast<int32_t>(draw());
            spectrum[i] = bits == 32 ? draw.word() : (bits == 0 ? 0 : r >> (32 - bits));
        }
        for (int32_t &v : o.st->ai32OlaBuf) v = draw.word();
        o.w = {spectrum, std::vector<int32_t>(n)};
        o.h = {round % 4 == 0 ? draw.many(n, &Draw::half) : draw.many(n, &Draw::q15),
               std::vector<int16_t>(n / 2)};
        return o;
    },
    [](Isa isa, Operands &o, int) {
        on_path(isa, o.st.get(), [&] {
            Sonvel_AEC_OutPutSmooth(o.st.get(), o.w[0].data(), o.h[0].data(), o.w[1].data(),
                                    o.h[1].data());
        });
    },
    true};

INSTANTIATE_TEST_SUITE_P(FrameStep, LaneEquivalence,
                         ::testing::Values(kFrameStep, kGainShaping, kSynthesis), kernel_name);

}  // namespace
}  // namespace suptest
