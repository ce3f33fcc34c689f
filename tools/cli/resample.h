// Sample-rate conversion of 16-bit audio (libsamplerate, best sinc quality).
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace cli {

// Converts `in` from rate `from` to rate `to`; the result holds round(n * to / from) samples.
std::vector<int16_t> resample(std::span<const int16_t> in, int from, int to);

}  // namespace cli
