// The front end's fixed parts through its own entry points: the DC-blocking high-pass (-3 dB near
// 40 Hz, flat in the speech band, a DC step gone within 200 ms), the fixed delay line (the
// reference exactly u16DelayMs later, up to 500 ms, the microphone untouched) and record changes
// on a live instance.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <vector>

#include "sonvel_aec_frontend.h"

namespace {

class Frontend {
  public:
    Frontend(uint32_t rate, const AecFrontendCfg &cfg) : frame_(rate / 100) {
        uint32_t size = 0;
        EXPECT_EQ(Sonvel_AEC_FrontendGetSize(&size), SONVEL_AEC_OK);
        mem_.assign(size / 8 + 1, 0);
        EXPECT_EQ(Sonvel_AEC_FrontendInit(&h_, mem_.data(), size, rate, &cfg), SONVEL_AEC_OK);
    }
    // Runs whole frames; returns the near and far outputs.
    void run(const std::vector<int16_t> &nearv, const std::vector<int16_t> &farv,
             std::vector<int16_t> &nearOut, std::vector<int16_t> &farOut) {
        nearOut.assign(nearv.size(), 0);
        farOut.assign(farv.size(), 0);
        for (size_t k = 0; k + frame_ <= nearv.size(); k += frame_) {
            uint8_t part = 77;
            ASSERT_EQ(
                Sonvel_AEC_FrontendProcess(h_, &nearv[k], &farv[k], &nearOut[k], &farOut[k], &part),
                SONVEL_AEC_OK);
            ASSERT_EQ(part, 77);  // not in automatic mode: the caller's start partition stands
        }
    }
    void *handle() { return h_; }

  private:
    size_t frame_;
    std::vector<uint64_t> mem_;
    void *h_ = nullptr;
};

double gain_db(uint32_t rate, double hz) {
    AecFrontendCfg cfg{};
    cfg.u8DcBlock = 1;
    Frontend fe(rate, cfg);
    const size_t n = rate * 2;
    std::vector<int16_t> x(n), no, fo;
    for (size_t i = 0; i < n; ++i)
        x[i] = static_cast<int16_t>(
            std::lround(10000 * std::sin(2 * std::numbers::pi * hz * i / rate)));
    fe.run(x, x, no, fo);
    double ein = 0, eout = 0;
    for (size_t i = n / 2; i < n; ++i) {
        ein += double(x[i]) * x[i];
        eout += double(no[i]) * no[i];
        EXPECT_EQ(no[i], fo[i]);  // the same filter on both signals
    }
    return 10 * std::log10(eout / ein);
}

TEST(DcBlock, CutOffNearFortyHertzAndFlatAbove) {
    for (uint32_t rate : {8000u, 16000u}) {
        EXPECT_NEAR(gain_db(rate, 40), -3.0, 0.6) << rate;
        EXPECT_LT(gain_db(rate, 10), -11.0) << rate;
        EXPECT_NEAR(gain_db(rate, 200), 0.0, 0.2) << rate;
        EXPECT_NEAR(gain_db(rate, 1000), 0.0, 0.2) << rate;
    }
}

TEST(DcBlock, OffsetStepIsGoneWithin200Ms) {
    for (uint32_t rate : {8000u, 16000u}) {
        AecFrontendCfg cfg{};
        cfg.u8DcBlock = 1;
        Frontend fe(rate, cfg);
        std::vector<int16_t> x(rate, 0), no, fo;
        std::fill(x.begin() + rate / 10, x.end(), 20000);
        fe.run(x, x, no, fo);
        for (size_t i = rate / 10 + rate / 5; i < rate; ++i)
            ASSERT_LE(std::abs(no[i]), 1) << rate << " " << i;
        AecFrontendEstimate est{};
        ASSERT_EQ(Sonvel_AEC_FrontendGetEstimate(fe.handle(), &est), SONVEL_AEC_OK);
        EXPECT_GT(est.s16DcNear, 20000 * 0.3);  // the meter is a slow mean: on its way up
        EXPECT_EQ(est.s16DcNear, est.s16DcFar);
    }
}

TEST(DelayLine, FixedDelayIsExactAndTheMicrophoneUntouched) {
    for (uint32_t rate : {8000u, 16000u}) {
        for (uint16_t ms : {uint16_t{0}, uint16_t{7}, uint16_t{130},
                            uint16_t{SONVEL_AEC_FRONTEND_MAX_DELAY_MS}}) {
            AecFrontendCfg cfg{};
            cfg.u8DelayMode = SONVEL_AEC_DELAY_FIXED;
            cfg.u16DelayMs = ms;
            Frontend fe(rate, cfg);
            const size_t n = rate;
            std::vector<int16_t> nearv(n), farv(n), no, fo;
            for (size_t i = 0; i < n; ++i) {
                farv[i] = static_cast<int16_t>((i * 7919) % 65536 - 32768);
                nearv[i] = static_cast<int16_t>((i * 104729) % 65536 - 32768);
            }
            fe.run(nearv, farv, no, fo);
            EXPECT_EQ(no, nearv);
            const size_t d = ms * rate / 1000;
            for (size_t i = 0; i < n; ++i)
                ASSERT_EQ(fo[i], i >= d ? farv[i - d] : 0) << rate << " " << ms << " " << i;
            AecFrontendEstimate est{};
            ASSERT_EQ(Sonvel_AEC_FrontendGetEstimate(fe.handle(), &est), SONVEL_AEC_OK);
            EXPECT_EQ(est.s32DelayApplied, static_cast<int32_t>(d));
            EXPECT_EQ(est.u32Frames, n / (rate / 100));
            EXPECT_EQ(est.u32LatencySamples, 0u);
            // Switching the delay line off on the live instance: the reference comes as it is.
            const AecFrontendCfg off{};
            ASSERT_EQ(Sonvel_AEC_FrontendSetCfg(fe.handle(), &off), SONVEL_AEC_OK);
            fe.run(nearv, farv, no, fo);
            EXPECT_EQ(fo, farv);
        }
    }
}

}  // namespace
