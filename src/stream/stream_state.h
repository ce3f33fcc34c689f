// Stream instance: the sample FIFO (input frame being filled, output frame being emptied), the
// caller's core record, the core instance and the front-end instance, in one caller-owned block.
#pragma once

#include <cstdint>

#include "frontend/frontend_state.h"
#include "sonvel_aec.h"

namespace sonvel::stream {

inline constexpr uint32_t kStreamMagic = 0x53535431u;  // "SST1"
inline constexpr int kMaxFrame = 160;

struct StreamState {
    uint32_t magic;
    int32_t frameLen;
    int32_t pos;           // samples of the current frame already taken (and given out)
    uint32_t latency;      // output lag behind the input, samples
    AecCfg userCfg;        // the caller's core record
    uint8_t runStartPart;  // the start partition the core runs with
    alignas(8) int16_t inNear[kMaxFrame];
    alignas(8) int16_t inFar[kMaxFrame];
    alignas(8) int16_t out[kMaxFrame];
    alignas(8) int16_t coreNear[kMaxFrame];
    alignas(8) int16_t coreFar[kMaxFrame];
    alignas(8) uint8_t core[SONVEL_AEC_INSTANCE_BYTES];
    alignas(8) frontend::FrontendState fe;
};

}  // namespace sonvel::stream

static_assert(alignof(sonvel::stream::StreamState) <= 8,
              "stream state must fit an 8-byte aligned block");
