// Runs a generated recording through the streaming layer in frames and keeps the output and the
// front end's estimate after every frame.
#pragma once

#include <gtest/gtest.h>

#include <vector>

#include "frontend/echo_scenario.h"
#include "sonvel_aec.h"
#include "sonvel_aec_frontend.h"

namespace fetest {

struct StreamRun {
    std::vector<int16_t> out;
    std::vector<AecFrontendEstimate> est;  // one per frame
    uint32_t latency = 0;
};

inline StreamRun run_stream(const Recording &r, int rate, const AecFrontendCfg &fe) {
    AecCfg cfg = Sonvel_AEC_gastMrvAecCfgTab;
    cfg.u8SampleRate = rate == 16000;
    uint32_t size = 0;
    EXPECT_EQ(Sonvel_AEC_StreamGetSize(&size), SONVEL_AEC_OK);
    std::vector<uint64_t> mem(size / 8 + 1);
    void *h = nullptr;
    EXPECT_EQ(Sonvel_AEC_StreamInit(&h, mem.data(), size, &cfg, &fe), SONVEL_AEC_OK);
    const size_t f = static_cast<size_t>(rate / 100);
    StreamRun run;
    run.out.assign(r.nearv.size(), 0);
    for (size_t k = 0; k + f <= r.nearv.size(); k += f) {
        EXPECT_EQ(Sonvel_AEC_StreamProcess(h, &r.nearv[k], &r.farv[k], &run.out[k],
                                           static_cast<uint32_t>(f)),
                  SONVEL_AEC_OK);
        AecFrontendEstimate e{};
        EXPECT_EQ(Sonvel_AEC_StreamGetEstimate(h, &e), SONVEL_AEC_OK);
        run.est.push_back(e);
    }
    run.latency = run.est.empty() ? 0 : run.est.back().u32LatencySamples;
    return run;
}

// The long recordings run natively; emulated and sanitised runs keep the short ones.
inline bool slow_target() {
#if defined(SONVEL_TEST_EMULATED) || defined(__SANITIZE_ADDRESS__)
    return true;
#else
    return false;
#endif
}

inline AecFrontendCfg fe_cfg(uint8_t mode, uint16_t ms = 0, bool dc = false, bool drift = false) {
    AecFrontendCfg c{};
    c.u8DelayMode = mode;
    c.u16DelayMs = ms;
    c.u8DcBlock = dc;
    c.u8Drift = drift;
    return c;
}

}  // namespace fetest
