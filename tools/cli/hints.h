// One-line hints after a run: problems of the recordings that an option of the tool fixes.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "cli/frontend_probe.h"
#include "cli/input_pair.h"
#include "cli/settings.h"

namespace cli {

// The DC offset of a signal in LSB: the median mean of its quietest 10 ms pieces, where a
// constant offset shows and the asymmetry of speech does not.
double dc_offset(std::span<const int16_t> x);

// The adaptive filter's span behind the (delayed) reference, in ms: six partitions of 8 ms.
constexpr double kFilterReachMs = 48.0;
// How far inside the span the front end's automatic mode puts the echo's first arrival.
constexpr double kLeadMs = 4.0;

// True when an echo `behind_ms` after the reference is out of the filter's useful reach: before
// it, or so late that less than 8 ms of the span is left for the room's response.
bool echo_out_of_reach(double behind_ms);

// Hints for a finished run: a DC offset on either input without --dc-block; an echo that arrives
// beyond the filter's reach behind the reference as the run delayed it.
std::vector<std::string> run_hints(const Settings &s, const InputPair &in,
                                   const FrontendProbe &probe);

}  // namespace cli
