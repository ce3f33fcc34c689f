// Bit-exact regression of the front end: an integer-generated conversation (far-end bursts, their
// echo 90 ms later through a few taps, a DC offset, near-end bursts) runs through the stream with
// every front-end function on, at both rates; the output samples and the estimates of every frame
// fold into one digest per rate. The front end's arithmetic is integer, so the digests are the
// same on every target (the suite runs them natively and under the aarch64 emulator); when the
// processing changes on purpose, copy the printed values into the constants.
#include <gtest/gtest.h>

#include <cstdio>
#include <vector>

#include "sonvel_aec.h"
#include "sonvel_aec_frontend.h"
#include "test_digest.h"

namespace {

constexpr uint64_t kDigest8k = 0xb825d78f1319c778ull;
constexpr uint64_t kDigest16k = 0x6c6e0369174b5782ull;

int16_t sat16(int64_t v) {
    return static_cast<int16_t>(v > 32767 ? 32767 : (v < -32768 ? -32768 : v));
}

uint64_t run_rate(int rate) {
    testsupport::Xorshift64 rng(0xFE00 + rate);
    const int f = rate / 100, frames = 500, n = f * frames, bulk = rate * 90 / 1000;
    std::vector<int16_t> farv(n), nearv(n), out(n);
    int32_t lp = 0;
    for (int i = 0; i < n; ++i) {
        const bool on = (i / (rate / 4)) % 5 < 3;
        lp += ((on ? rng.uniform(12000) : rng.uniform(8)) - lp) >> 1;  // a little low-pass
        farv[i] = sat16(lp);
    }
    for (int i = 0; i < n; ++i) {
        int64_t e = 0;
        if (i >= bulk) e += farv[i - bulk] * 16000;
        if (i >= bulk + rate / 400) e -= farv[i - bulk - rate / 400] * 6000;
        if (i >= bulk + rate / 100) e += farv[i - bulk - rate / 100] * 2500;
        const bool talk = (i / (rate / 3)) % 7 == 3;
        nearv[i] = sat16((e >> 15) + 700 + (talk ? rng.uniform(4000) : rng.uniform(30)));
    }
    AecCfg cfg = Sonvel_AEC_gastMrvAecCfgTab;
    cfg.u8SampleRate = rate == 16000;
    AecFrontendCfg fe{};
    fe.u8DcBlock = 1;
    fe.u8DelayMode = SONVEL_AEC_DELAY_AUTO;
    fe.u8Drift = 1;
    uint32_t size = 0;
    EXPECT_EQ(Sonvel_AEC_StreamGetSize(&size), SONVEL_AEC_OK);
    std::vector<uint64_t> mem(size / 8 + 1);
    void *h = nullptr;
    EXPECT_EQ(Sonvel_AEC_StreamInit(&h, mem.data(), size, &cfg, &fe), SONVEL_AEC_OK);
    testsupport::Digest d;
    for (int k = 0; k < frames; ++k) {
        EXPECT_EQ(Sonvel_AEC_StreamProcess(h, &nearv[k * f], &farv[k * f], &out[k * f], f),
                  SONVEL_AEC_OK);
        d.array(&out[k * f], f);
        AecFrontendEstimate e{};
        EXPECT_EQ(Sonvel_AEC_StreamGetEstimate(h, &e), SONVEL_AEC_OK);
        d.i32(e.s32DelayEstimate);
        d.i32(e.s32DelayApplied);
        d.i32(e.s32DriftPpm);
        d.i16(e.s16Confidence);
        d.i16(e.s16DcNear);
        d.i16(e.s16DcFar);
    }
    AecFrontendEstimate e{};
    EXPECT_EQ(Sonvel_AEC_StreamGetEstimate(h, &e), SONVEL_AEC_OK);
    EXPECT_EQ(e.u8Locked, 1) << rate;
    EXPECT_NEAR(e.s32DelayEstimate, bulk, rate / 1000) << rate;
    EXPECT_NEAR(e.s16DcNear, 700, 100) << rate;
    return d.value();
}

TEST(FrontendDigest, SameBitsOnEveryTarget) {
    const uint64_t d8 = run_rate(8000), d16 = run_rate(16000);
    std::printf("front-end digests: 8000 Hz 0x%016llxull, 16000 Hz 0x%016llxull\n",
                static_cast<unsigned long long>(d8), static_cast<unsigned long long>(d16));
    EXPECT_EQ(d8, kDigest8k);
    EXPECT_EQ(d16, kDigest16k);
}

}  // namespace
