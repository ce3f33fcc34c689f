// Bounded fill used to clear records of a known size.
#include "host/bounded_fill.h"

#include <cstring>

namespace sonvel {

int bounded_fill(void *dest, std::size_t destSize, int value, std::size_t count) {
    if (dest == nullptr || count > destSize) return -1;
    std::memset(dest, value, count);
    return 0;
}

}  // namespace sonvel
