// Bit-exact regression of the whole pipeline: fixed scenarios (echo alone, double talk, a far end
// that falls silent, clipped input) run through Sonvel_AEC_Apply at both rates with several
// parameter records; every output frame is folded into one digest per rate. The digests must come
// out the same on every target and stay unchanged by optimisations; when processing changes on
// purpose, copy the printed values into the constants. Where the processor runs the vectorised
// loops, the portable loops are run as well, on the same instances with the plan's choice cleared:
// both paths must give the same digests.
#include <gtest/gtest.h>

#include <cstdio>
#include <vector>

#include "interface/instance_access.h"
#include "interface/instance_block.h"
#include "sonvel_aec.h"
#include "spectral/fft/fft_plan.h"
#include "test_digest.h"

namespace {

constexpr uint64_t kDigest8k = 0x25a3149ee27af2c4ull;
constexpr uint64_t kDigest16k = 0x9516178d8b7aa096ull;

// Near end = echo of the far end through a short decaying path, plus near talk and noise, with
// segments: far only, double talk, far silent (long enough for pass-through), clipped far only.
void make_scenario(int rate, int frames, std::vector<int16_t> &nearv, std::vector<int16_t> &farv) {
    testsupport::Xorshift64 rng(0x5EED0000u + rate);
    const int f = rate / 100, n = frames * f, seg = n / 4;
    const int taps[4][2] = {
        {rate / 500, 12000}, {rate / 250, -7000}, {rate / 125, 3000}, {rate / 60, -1200}};
    farv.assign(n, 0);
    nearv.assign(n, 0);
    for (int i = 0; i < n; ++i) {
        const int burst = (i / (rate / 5)) % 3 != 2;  // speech-like on/off pattern
        const bool far_on = i < 2 * seg || i >= 3 * seg;
        int32_t x = far_on && burst ? rng.uniform(i >= 3 * seg ? 40000 : 9000) : rng.uniform(30);
        farv[i] = static_cast<int16_t>(x > 32767 ? 32767 : (x < -32768 ? -32768 : x));
        int64_t e = 0;
        for (const auto &t : taps) e += i >= t[0] ? int64_t{farv[i - t[0]]} * t[1] : 0;
        const bool talk = i >= seg && i < 2 * seg && (i / (rate / 4)) % 2 == 0;
        const int32_t y =
            static_cast<int32_t>(e >> 15) + (talk ? rng.uniform(6000) : rng.uniform(60));
        nearv[i] = static_cast<int16_t>(y > 32767 ? 32767 : (y < -32768 ? -32768 : y));
    }
}

// Clears the plan's record of the vectorised code: the instance then takes the portable loops.
void force_portable(void *h) {
    AecState *st = sonvel::state_of(h);
    reinterpret_cast<sonvel::fft::Plan *>(st->au8FftPlan)->vectorised = 0;
    st->s32LanePath = 0;
}

uint64_t run_rate(int rate, bool portable) {
    const int frames = 600;  // 6 s: includes the 477-block quiet stretch
    std::vector<int16_t> nearv, farv;
    make_scenario(rate, frames, nearv, farv);
    AecCfg records[3] = {Sonvel_AEC_gastMrvAecCfgTab, Sonvel_AEC_gastMrvAecCfgTab,
                         Sonvel_AEC_gastMrvAecCfgTab};
    records[1].u8HighFreqMode = 1;
    records[1].u8NlpLevel = 2;
    records[1].u8StartPart = 1;
    records[2].u8CnEnable = 0;
    records[2].s16CohBinLo = 8;
    records[2].s16CohBinHi = 17;
    testsupport::Digest digest;
    const int f = rate / 100;
    for (AecCfg cfg : records) {
        cfg.u8SampleRate = rate == 16000;
        sonvel::test::GuardedBlock block;
        void *h = nullptr;
        EXPECT_EQ(Sonvel_AEC_Init(&h, block.data(), SONVEL_AEC_INSTANCE_BYTES, &cfg), 0);
        if (portable) force_portable(h);
        std::vector<int16_t> out(f);
        for (int k = 0; k < frames; ++k) {
            EXPECT_EQ(Sonvel_AEC_Apply(h, &nearv[k * f], &farv[k * f], out.data()), 0);
            digest.array(out.data(), out.size());
        }
        EXPECT_TRUE(block.canaries_intact());
    }
    return digest.value();
}

TEST(PipelineDigest, OutputIsBitExactAtBothRates) {
    const uint64_t d8 = run_rate(8000, false), d16 = run_rate(16000, false);
    std::printf("pipeline digests: 8000 Hz 0x%016llx, 16000 Hz 0x%016llx\n",
                static_cast<unsigned long long>(d8), static_cast<unsigned long long>(d16));
    EXPECT_EQ(d8, kDigest8k);
    EXPECT_EQ(d16, kDigest16k);
}

}  // namespace

#if !defined(__aarch64__)
TEST(PipelineDigest, PortableLoopsGiveTheSameOutput) {
    EXPECT_EQ(run_rate(8000, true), kDigest8k);
    EXPECT_EQ(run_rate(16000, true), kDigest16k);
}
#endif
