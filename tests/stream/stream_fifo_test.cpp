// The streaming layer's FIFO: with the front end off, whatever the call sizes (0, 1, odd counts,
// several frames at once), the output is the core's frame-by-frame output, shifted by one frame
// of FIFO priming; the reported latency is that shift plus the core's own lag; parameter
// changes reach the core.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "interface/instance_block.h"
#include "sonvel_aec.h"
#include "sonvel_aec_frontend.h"
#include "test_digest.h"

namespace {

struct Signals {
    std::vector<int16_t> nearv, farv;
};

// A far end, its echo and, from a third on, near-end talk over it.
Signals make_signals(int rate, int frames, uint32_t seed) {
    const size_t n = static_cast<size_t>(frames * rate / 100);
    Signals s{sonvel::test::echo_of(sonvel::test::test_signal(n, seed, 8000), 7, 2),
              sonvel::test::test_signal(n, seed, 8000)};
    const auto talk = sonvel::test::test_signal(n, seed + 1, 5000);
    for (size_t i = n / 3; i < n; ++i) s.nearv[i] = static_cast<int16_t>(s.nearv[i] + talk[i]);
    return s;
}

std::vector<int16_t> core_alone(const AecCfg &cfg, const Signals &s, int frame) {
    std::vector<uint64_t> mem(SONVEL_AEC_INSTANCE_BYTES / 8 + 1);
    void *h = nullptr;
    EXPECT_EQ(Sonvel_AEC_Init(&h, mem.data(), SONVEL_AEC_INSTANCE_BYTES, &cfg), SONVEL_AEC_OK);
    std::vector<int16_t> out(s.nearv.size());
    for (size_t k = 0; k + frame <= s.nearv.size(); k += frame) {
        EXPECT_EQ(Sonvel_AEC_Apply(h, &s.nearv[k], &s.farv[k], &out[k]), SONVEL_AEC_OK);
    }
    return out;
}

class Stream {
  public:
    Stream(const AecCfg &cfg, const AecFrontendCfg *fe) {
        uint32_t size = 0;
        EXPECT_EQ(Sonvel_AEC_StreamGetSize(&size), SONVEL_AEC_OK);
        // An address that is 8- but not 16-byte aligned: the documented requirement, no more.
        mem_.assign(size / 8 + 3, 0);
        uint64_t *at =
            mem_.data() + ((reinterpret_cast<uintptr_t>(mem_.data()) & 15u) == 0 ? 1 : 0);
        EXPECT_EQ(Sonvel_AEC_StreamInit(&h_, at, size, &cfg, fe), SONVEL_AEC_OK);
    }
    void *handle() { return h_; }

  private:
    std::vector<uint64_t> mem_;
    void *h_ = nullptr;
};

AecCfg record(int rate) {
    AecCfg cfg = Sonvel_AEC_gastMrvAecCfgTab;
    cfg.u8SampleRate = rate == 16000;
    return cfg;
}

TEST(StreamFifo, FrontEndOffIsTheCoreForAnyCallSizes) {
    for (int rate : {8000, 16000}) {
        const int frame = rate / 100;
        const Signals s = make_signals(rate, 300, 0xABCD + rate);
        const AecCfg cfg = record(rate);
        const std::vector<int16_t> want = core_alone(cfg, s, frame);
        const AecFrontendCfg allOff{};
        for (const AecFrontendCfg *fe : {static_cast<const AecFrontendCfg *>(nullptr), &allOff}) {
            Stream st(cfg, fe);
            testsupport::Xorshift64 rng(rate + (fe != nullptr));
            std::vector<int16_t> got(s.nearv.size(), 0x5555);
            size_t at = 0;
            while (at < s.nearv.size()) {
                const uint32_t pick = static_cast<uint32_t>(rng.range(0, 9));
                uint32_t n = pick < 2   ? pick
                             : pick < 6 ? rng.range(2, frame + 3)
                                        : rng.range(frame, 5 * frame);
                n = std::min<uint32_t>(n, static_cast<uint32_t>(s.nearv.size() - at));
                ASSERT_EQ(
                    Sonvel_AEC_StreamProcess(st.handle(), &s.nearv[at], &s.farv[at], &got[at], n),
                    SONVEL_AEC_OK);
                at += n;
            }
            for (int i = 0; i < frame; ++i) ASSERT_EQ(got[i], 0) << "priming sample " << i;
            ASSERT_EQ(
                0, std::memcmp(&got[frame], want.data(), (want.size() - frame) * sizeof(int16_t)))
                << "rate " << rate;
            AecFrontendEstimate est{};
            ASSERT_EQ(Sonvel_AEC_StreamGetEstimate(st.handle(), &est), SONVEL_AEC_OK);
            EXPECT_EQ(est.u32LatencySamples,
                      static_cast<uint32_t>(2 * frame + (rate == 16000 ? 128 : 64)));
            EXPECT_EQ(est.u32Frames, s.nearv.size() / frame);
            EXPECT_EQ(est.s32DelayApplied, 0);
            EXPECT_EQ(est.u8Locked, 0);
        }
    }
}

// With every front-end function on, the stream is still the frame-by-frame chain: the front end,
// then the core on its frames, whatever the call sizes.
TEST(StreamFifo, FrontEndOnIsTheFrameByFrameChain) {
    const int rate = 16000, frame = rate / 100;
    const Signals s = make_signals(rate, 400, 0x1234);
    const AecCfg cfg = record(rate);
    AecFrontendCfg fe{};
    fe.u8DcBlock = 1;
    fe.u8DelayMode = SONVEL_AEC_DELAY_AUTO;
    fe.u8Drift = 1;
    fe.u16DelayMs = 20;
    // By hand.
    uint32_t feSize = 0;
    ASSERT_EQ(Sonvel_AEC_FrontendGetSize(&feSize), SONVEL_AEC_OK);
    std::vector<uint64_t> feMem(feSize / 8 + 1), coreMem(SONVEL_AEC_INSTANCE_BYTES / 8 + 1);
    void *hf = nullptr, *hc = nullptr;
    ASSERT_EQ(Sonvel_AEC_FrontendInit(&hf, feMem.data(), feSize, rate, &fe), SONVEL_AEC_OK);
    ASSERT_EQ(Sonvel_AEC_Init(&hc, coreMem.data(), SONVEL_AEC_INSTANCE_BYTES, &cfg), SONVEL_AEC_OK);
    std::vector<int16_t> want(s.nearv.size()), n2(frame), f2(frame);
    uint8_t running = cfg.u8StartPart;
    for (size_t k = 0; k + frame <= s.nearv.size(); k += frame) {
        uint8_t part = running;
        ASSERT_EQ(
            Sonvel_AEC_FrontendProcess(hf, &s.nearv[k], &s.farv[k], n2.data(), f2.data(), &part),
            SONVEL_AEC_OK);
        if (part != running) {
            AecCfg c = cfg;
            c.u8StartPart = part;
            ASSERT_EQ(Sonvel_AEC_SetParams(hc, &c), SONVEL_AEC_OK);
            running = part;
        }
        ASSERT_EQ(Sonvel_AEC_Apply(hc, n2.data(), f2.data(), &want[k]), SONVEL_AEC_OK);
    }
    // Through the stream, in random call sizes.
    Stream st(cfg, &fe);
    testsupport::Xorshift64 rng(99);
    std::vector<int16_t> got(s.nearv.size());
    for (size_t at = 0; at < s.nearv.size();) {
        const uint32_t n = std::min<uint32_t>(static_cast<uint32_t>(rng.range(0, 3 * frame)),
                                              static_cast<uint32_t>(s.nearv.size() - at));
        ASSERT_EQ(Sonvel_AEC_StreamProcess(st.handle(), &s.nearv[at], &s.farv[at], &got[at], n),
                  SONVEL_AEC_OK);
        at += n;
    }
    ASSERT_EQ(0, std::memcmp(&got[frame], want.data(), (want.size() - frame) * sizeof(int16_t)));
    AecFrontendEstimate a{}, b{};
    ASSERT_EQ(Sonvel_AEC_StreamGetEstimate(st.handle(), &a), SONVEL_AEC_OK);
    ASSERT_EQ(Sonvel_AEC_FrontendGetEstimate(hf, &b), SONVEL_AEC_OK);
    EXPECT_EQ(a.s32DelayApplied, b.s32DelayApplied);
    EXPECT_EQ(a.s32DelayEstimate, b.s32DelayEstimate);
}

// The reported latency is the true one: with the far end silent for long the core passes the
// microphone through, and a click comes out exactly u32LatencySamples later.
TEST(StreamFifo, ReportedLatencyIsWhereAClickComesOut) {
    for (int rate : {8000, 16000}) {
        Stream st(record(rate), nullptr);
        const int n = rate * 5;
        std::vector<int16_t> nearv(n, 0), farv(n, 0), out(n, 0);
        const int click = rate * 9 / 2 + 37;
        nearv[click] = 12000;
        ASSERT_EQ(Sonvel_AEC_StreamProcess(st.handle(), nearv.data(), farv.data(), out.data(), n),
                  SONVEL_AEC_OK);
        AecFrontendEstimate est{};
        ASSERT_EQ(Sonvel_AEC_StreamGetEstimate(st.handle(), &est), SONVEL_AEC_OK);
        int peak = 0;
        for (int i = 1; i < n; ++i) peak = std::abs(out[i]) > std::abs(out[peak]) ? i : peak;
        EXPECT_EQ(peak - click, static_cast<int>(est.u32LatencySamples)) << "rate " << rate;
    }
}

// Parameters reach the core. In automatic delay mode the front end chooses the core's start
// partition (the delay line does the shifting, the filter keeps its whole span); the caller's own
// comes back when the mode ends. A rate change and a bad record are refused, the record stays.
TEST(StreamFifo, ParametersReachTheCoreAndAutomaticModeOwnsTheStartPartition) {
    AecCfg cfg = record(16000);
    cfg.u8StartPart = 3;
    AecFrontendCfg fe{};
    fe.u8DelayMode = SONVEL_AEC_DELAY_AUTO;
    Stream st(cfg, &fe);
    AecCfg back{};
    ASSERT_EQ(Sonvel_AEC_StreamGetParams(st.handle(), &back), SONVEL_AEC_OK);
    EXPECT_EQ(back.u8StartPart, 0);
    cfg.u8StartPart = 5;
    cfg.u8NlpLevel = 2;
    ASSERT_EQ(Sonvel_AEC_StreamSetParams(st.handle(), &cfg), SONVEL_AEC_OK);
    ASSERT_EQ(Sonvel_AEC_StreamGetParams(st.handle(), &back), SONVEL_AEC_OK);
    EXPECT_EQ(back.u8StartPart, 0);
    EXPECT_EQ(back.u8NlpLevel, 2);
    fe.u8DelayMode = SONVEL_AEC_DELAY_FIXED;
    fe.u16DelayMs = 100;
    ASSERT_EQ(Sonvel_AEC_StreamSetFrontend(st.handle(), &fe), SONVEL_AEC_OK);
    AecCfg bad = cfg;
    bad.u8SampleRate = 0;
    EXPECT_EQ(Sonvel_AEC_StreamSetParams(st.handle(), &bad), SONVEL_AEC_ERR_CFG_SAMPLE_RATE);
    bad = cfg;
    bad.u8StartPart = 9;
    EXPECT_EQ(Sonvel_AEC_StreamSetParams(st.handle(), &bad), SONVEL_AEC_ERR_CFG_START_PART);
    ASSERT_EQ(Sonvel_AEC_StreamGetParams(st.handle(), &back), SONVEL_AEC_OK);
    EXPECT_EQ(back.u8StartPart, 5);
    AecFrontendEstimate est{};
    ASSERT_EQ(Sonvel_AEC_StreamGetEstimate(st.handle(), &est), SONVEL_AEC_OK);
    EXPECT_EQ(est.u8StartPart, 5);
    EXPECT_EQ(est.s32DelayApplied, 1600);
}

}  // namespace
