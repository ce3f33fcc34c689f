// A processing state after full initialisation with the default parameters, for the tests of the
// suppressor's gain and comfort-noise steps.
#pragma once

#include <gtest/gtest.h>

#include <memory>

#include "sonvel_aec.h"
#include "state/aec_state.h"

inline std::unique_ptr<AecState> make_state(bool wide) {
    auto st = std::make_unique<AecState>();
    AecCfg cfg = Sonvel_AEC_gastMrvAecCfgTab;
    cfg.u8SampleRate = wide ? 1 : 0;
    EXPECT_EQ(Sonvel_AEC_SUB_Init(st.get(), &cfg, 0), 0);
    return st;
}
