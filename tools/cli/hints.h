// One-line hints after a run: problems of the recordings that an option of the tool fixes.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "cli/canceller.h"
#include "cli/input_pair.h"
#include "cli/settings.h"

namespace cli {

// The DC offset of a signal in LSB: the median mean of its quietest 10 ms pieces, where a
// constant offset shows and the asymmetry of speech does not.
double dc_offset(std::span<const int16_t> x);

// Hints for a finished run: a DC offset on either input without --dc-block, an echo delay beyond
// the filter's reach without --ref-delay.
std::vector<std::string> run_hints(const Settings &s, const InputPair &in, const RunResult &r);

}  // namespace cli
