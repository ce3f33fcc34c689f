// The automatic alignment, the DC block and the drift on generated recordings: auto alignment
// cancels as much echo as a run given the true delay (and at least 25 dB at 120 ms, 16000 Hz);
// a microphone DC offset of -30 dBFS costs at most 2 dB with the DC block; a moved echo path is
// followed; a drift of +-300 ppm is reported within 30 ppm over 60 s and, followed, keeps the
// echo reduction of the last 10 s within 3 dB of the first 10 s after convergence.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "frontend/stream_runner.h"

namespace fetest {
namespace {

double reduction(const Recording &r, const StreamRun &run, double fromS, double toS, int rate) {
    return echo_reduction_db(r, run.out, run.latency, static_cast<size_t>(fromS * rate),
                             static_cast<size_t>(toS * rate));
}

TEST(Alignment, AutoCancelsAsWellAsTheTrueDelay) {
    for (int rate : {16000, 8000}) {
        if (slow_target() && rate == 8000) continue;  // emulated and sanitised runs: 16000 Hz
        Scenario sc;
        sc.rate = rate;
        sc.seconds = 12;
        sc.delayMs = 120;
        sc.doubleTalk = 1.0 / 3;
        const Recording r = make_recording(sc);
        const StreamRun truth = run_stream(r, rate, fe_cfg(SONVEL_AEC_DELAY_FIXED, 120));
        const StreamRun aut = run_stream(r, rate, fe_cfg(SONVEL_AEC_DELAY_AUTO));
        const StreamRun off = run_stream(r, rate, fe_cfg(SONVEL_AEC_DELAY_OFF));
        const double t = reduction(r, truth, 4, 12, rate), a = reduction(r, aut, 4, 12, rate),
                     o = reduction(r, off, 4, 12, rate);
        RecordProperty("erle_" + std::to_string(rate), std::to_string(a));
        EXPECT_GE(a, t - 1.5) << rate << " Hz: true delay " << t << " dB, auto " << a << " dB";
        if (rate == 16000) {
            EXPECT_GE(a, 25.0) << "auto " << a << " dB";
        }
        EXPECT_LT(o, a - 10.0) << "without alignment " << o << " dB";
        EXPECT_EQ(aut.est.back().u8Locked, 1);
        EXPECT_EQ(aut.est.back().u8StartPart, 0);
        // The echo's direct sound lands 4 ms inside the filter's span.
        EXPECT_NEAR(aut.est.back().s32DelayApplied, (120 - 4) * rate / 1000, rate / 1000);
    }
}

TEST(Alignment, DcBlockRecoversAMicrophoneOffset) {
    for (int rate : {16000, 8000}) {
        if (slow_target() && rate == 8000) continue;
        Scenario sc;
        sc.rate = rate;
        sc.seconds = 10;
        sc.delayMs = 60;
        const Recording clean = make_recording(sc);
        sc.dcLsb = 32767.0 * 0.0316;  // -30 dBFS
        const Recording dc = make_recording(sc);
        const StreamRun ref = run_stream(clean, rate, fe_cfg(SONVEL_AEC_DELAY_FIXED, 60));
        const StreamRun blocked = run_stream(dc, rate, fe_cfg(SONVEL_AEC_DELAY_FIXED, 60, true));
        const StreamRun unblocked = run_stream(dc, rate, fe_cfg(SONVEL_AEC_DELAY_FIXED, 60));
        // Measured against the clean microphone: the offset itself is not echo.
        const double base = reduction(clean, ref, 3, 10, rate),
                     b = reduction(clean, blocked, 3, 10, rate),
                     u = reduction(clean, unblocked, 3, 10, rate);
        EXPECT_GE(b, base - 2.0) << rate << " Hz: no DC " << base << " dB, DC blocked " << b
                                 << " dB";
        EXPECT_LT(u, b - 3.0) << rate << " Hz: DC not blocked " << u << " dB";
        // The meter reads the offset on top of what the echo itself carries.
        EXPECT_NEAR(blocked.est.back().s16DcNear - ref.est.back().s16DcNear, sc.dcLsb, 20.0);
    }
}

TEST(Alignment, FollowsAMovedEchoPath) {
    const int rate = 16000;
    Scenario a;
    a.rate = rate;
    a.seconds = 8;
    a.delayMs = 40;
    Scenario b = a;
    b.delayMs = 230;
    b.seed = 2;
    Recording r = make_recording(a);
    const Recording second = make_recording(b);
    r.nearv.insert(r.nearv.end(), second.nearv.begin(), second.nearv.end());
    r.farv.insert(r.farv.end(), second.farv.begin(), second.farv.end());
    r.farOnly.insert(r.farOnly.end(), second.farOnly.begin(), second.farOnly.end());
    const StreamRun run = run_stream(r, rate, fe_cfg(SONVEL_AEC_DELAY_AUTO));
    EXPECT_NEAR(run.est[790].s32DelayApplied, 36 * rate / 1000, rate / 1000);
    EXPECT_NEAR(run.est.back().s32DelayApplied, 226 * rate / 1000, rate / 1000);
    EXPECT_GE(reduction(r, run, 13, 16, rate), 20.0);
}

TEST(Alignment, DriftIsReportedAndFollowed) {
    if (slow_target()) GTEST_SKIP() << "60 s recordings: native runs only";
    for (int rate : {16000, 8000}) {
        for (double ppm : {300.0, -300.0}) {
            Scenario sc;
            sc.rate = rate;
            sc.seconds = 60;
            sc.delayMs = 100;
            sc.driftPpm = ppm;
            sc.seed = 3;
            const Recording r = make_recording(sc);
            const StreamRun run =
                run_stream(r, rate, fe_cfg(SONVEL_AEC_DELAY_AUTO, 0, false, true));
            EXPECT_NEAR(run.est.back().s32DriftPpm, ppm, 30.0) << rate << " Hz";
            const double first = reduction(r, run, 3, 13, rate),
                         last = reduction(r, run, 50, 60, rate);
            EXPECT_GE(last, first - 3.0)
                << rate << " Hz, " << ppm << " ppm: " << first << " -> " << last;
            // The delay line has followed the echo: its direct sound still 4 ms inside the span.
            EXPECT_NEAR(run.est.back().s32DelayApplied + 4 * rate / 1000,
                        true_delay(sc, r.nearv.size()), 1.5 * rate / 1000);
        }
    }
}

// No drift, but a reverberant room (diffuse tail 6-9 dB above the direct sound) whose peak
// wanders between reflections: the line through the estimates must not be taken for a clock
// drift of thousands of ppm, which the delay line would then follow away from the echo.
TEST(Alignment, WanderingPeakIsNoDrift) {
    if (slow_target()) GTEST_SKIP() << "24 s recordings: native runs only";
    for (double tailDb : {6.0, 9.0}) {
        Scenario sc;
        sc.seconds = 24;
        sc.doubleTalk = 1.0 / 3;
        sc.tailDb = tailDb;
        sc.seed = 4;
        const StreamRun run =
            run_stream(make_recording(sc), sc.rate, fe_cfg(SONVEL_AEC_DELAY_AUTO, 0, false, true));
        int32_t worst = 0;
        for (const AecFrontendEstimate &e : run.est)
            worst = std::max(worst, e.s32DriftPpm < 0 ? -e.s32DriftPpm : e.s32DriftPpm);
        EXPECT_LE(worst, 1000) << "tail " << tailDb << " dB";
    }
}

}  // namespace
}  // namespace fetest
