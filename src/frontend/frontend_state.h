// Front-end instance: the record it runs with, the filters, the delay line, the delay estimator,
// the drift tracker and the automatic alignment's state, in one caller-owned block.
#pragma once

#include <cstdint>

#include "frontend/dc_block.h"
#include "frontend/delay_estimator.h"
#include "frontend/delay_line.h"
#include "frontend/drift_tracker.h"
#include "sonvel_aec_frontend.h"

namespace sonvel::frontend {

inline constexpr uint32_t kFrontendMagic = 0x53464531u;  // "SFE1"
inline constexpr int kMaxFrame = 160;

struct Alignment {
    int32_t applied;        // samples the delay line applies
    int32_t lockedEstQ8;    // estimate (Q8 samples) the current alignment follows
    int32_t awayBlocks;     // consecutive confident blocks that disagree with it
    int32_t blocksToPoint;  // blocks until the next drift point
    uint8_t locked;
    uint8_t startPart;
};

struct FrontendState {
    uint32_t magic;
    uint32_t rate;
    int32_t frameLen;
    int32_t poleQ15;
    AecFrontendCfg cfg;
    uint32_t frames;
    HighPass hpNear, hpFar;
    Alignment align;
    DriftTracker drift;
    DelayEstimator est;
    DelayLine line;
    int16_t nearHp[kMaxFrame], farHp[kMaxFrame];
};

// Validates a front-end record (null is accepted: the front end is off).
int32_t check_frontend_cfg(const AecFrontendCfg *cfg);
// The live front end behind a handle, or nullptr.
FrontendState *live_frontend(void *h);
const FrontendState *live_frontend(const void *h);

// Automatic alignment: applies a mode change, and follows the estimates after each frame.
void alignment_set_mode(FrontendState &fe, const AecFrontendCfg &next);
void alignment_after_frame(FrontendState &fe, bool searched);

}  // namespace sonvel::frontend

// The caller's block need only be 8-byte aligned.
static_assert(alignof(sonvel::frontend::FrontendState) <= 8,
              "front-end state must fit an 8-byte aligned block");
