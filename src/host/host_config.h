// Mapping of the host's sample rate and AEC configuration onto the core parameter record.
#pragma once

#include <cstdint>

#include "sonvel_aec.h"
#include "sonvel_aec_host.h"

namespace sonvel {

// Samples per 10 ms frame of a host rate: 80, 160, or 0 when the core does not run at it.
uint32_t host_frame_length(int32_t sampleRate);

// The record the core is initialised with: the default table, the rate byte, bulk delay 0, then
// either the host's values (s32UseCfg non-zero) or the built-in set.
AecCfg host_parameter_record(int32_t sampleRate, const KxAecConfig &host);

}  // namespace sonvel
