// The delay estimator on generated recordings at both rates: within 2 ms of the echo's bulk delay
// (0..400 ms) once the far end has spoken for 3 s, with -50 dBFS noise, an echo 0 or 12 dB below
// the reference, a soft-clipping loudspeaker and a third of double talk; locked then. A silent
// reference or one the microphone never hears gives no confident estimate and no lock.
#include <gtest/gtest.h>

#include "frontend/stream_runner.h"

namespace fetest {
namespace {

TEST(DelayEstimate, WithinTwoMsAfterThreeSecondsOfFarSpeech) {
    for (int rate : {8000, 16000}) {
        for (double erl : {0.0, 12.0}) {
            for (double delay : {0.0, 35.0, 120.0, 250.0, 400.0}) {
                // Emulated and sanitised runs: the two ends of the range.
                if (slow_target() && delay != 0.0 && delay != 400.0) continue;
                Scenario sc;
                sc.rate = rate;
                sc.seconds = 10;
                sc.delayMs = delay;
                sc.erlDb = erl;
                sc.noiseDbfs = -50;
                sc.softClip = true;
                sc.doubleTalk = 1.0 / 3;
                sc.seed = static_cast<unsigned>(rate + delay + erl);
                const Recording r = make_recording(sc);
                const StreamRun run = run_stream(r, rate, fe_cfg(SONVEL_AEC_DELAY_AUTO));
                const size_t from = after_far_speech(r, rate, 3.0) / (rate / 100);
                ASSERT_LT(from, run.est.size());
                const double tol = 2.0 * rate / 1000;
                for (size_t k = from; k < run.est.size(); ++k) {
                    const double err =
                        run.est[k].s32DelayEstimate - true_delay(sc, k * (rate / 100.0));
                    ASSERT_LE(std::abs(err), tol)
                        << rate << " Hz, " << delay << " ms, ERL " << erl << " dB, frame " << k;
                }
                // Confident enough to lock the automatic mode, at the estimate less 4 ms.
                EXPECT_EQ(run.est.back().u8Locked, 1) << rate << " Hz, " << delay << " ms";
                EXPECT_NEAR(run.est.back().s32DelayApplied,
                            std::max(0.0, true_delay(sc, 0) - 4.0 * rate / 1000), tol);
            }
        }
    }
}

TEST(DelayEstimate, SilenceOrAnUnheardReferenceGivesNoLock) {
    for (int rate : {8000, 16000}) {
        Scenario sc;
        sc.rate = rate;
        sc.seconds = 6;
        sc.noiseDbfs = -50;
        Recording r = make_recording(sc);
        Recording silent = r;
        std::fill(silent.farv.begin(), silent.farv.end(), 0);
        StreamRun run = run_stream(silent, rate, fe_cfg(SONVEL_AEC_DELAY_AUTO, 30));
        EXPECT_EQ(run.est.back().s32DelayEstimate, -1);
        EXPECT_EQ(run.est.back().u8Locked, 0);
        EXPECT_EQ(run.est.back().s32DelayApplied, 30 * rate / 1000);  // the starting delay stays
        // The microphone holds only noise: the reference is never heard.
        Recording unheard = r;
        testsupport_fill_noise(unheard.nearv, 100, rate);
        run = run_stream(unheard, rate, fe_cfg(SONVEL_AEC_DELAY_AUTO));
        int maxConf = 0;
        for (const auto &e : run.est) maxConf = std::max<int>(maxConf, e.s16Confidence);
        EXPECT_LT(maxConf, 16384) << rate;
        EXPECT_EQ(run.est.back().u8Locked, 0);
    }
}

}  // namespace
}  // namespace fetest
