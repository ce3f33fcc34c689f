// Bounded fill: writes count bytes of value into a destination of known size, and refuses (writing
// nothing) when count exceeds that size.
#pragma once

#include <cstddef>

namespace sonvel {

// Returns 0 after filling, non-zero (nothing written) for a null destination or count > size.
int bounded_fill(void *dest, std::size_t destSize, int value, std::size_t count);

}  // namespace sonvel
