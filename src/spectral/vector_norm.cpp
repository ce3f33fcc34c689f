// Block normaliser used before an inverse transform: brings a vector to a fixed number of guard
// bits by one common shift and returns the headroom it found, so the caller can undo the shift.
#include "sonvel_aec_spectral.h"

#include <algorithm>

#include "fixedpoint/block_float.h"

extern "C" SONVEL_API int32_t Sonvel_AEC_VetorNorm(int32_t *v, int32_t q, int32_t n) {
    if (n < 0) return 31;  // a negative count touches nothing
    // 1. Guard words of value 1 behind the vector bound the headroom of a zero spectrum.
    for (int64_t i = int64_t{n} + 1; i <= int64_t{n} + 4; ++i) v[i] = 1;
    // 2. Common headroom over the count rounded up to a multiple of 4.
    const int64_t m = (static_cast<int64_t>(n) + 3) & ~int64_t{3};
    int h = 31;
    for (int64_t i = 0; i < m; ++i) h = std::min(h, fx::hr(v[i]));
    // 3. One shift for all words, not saturating: a left shift stays within the headroom.
    const int c = static_cast<int>(std::clamp<int64_t>(int64_t{h} - q, -32, 32));
    for (int64_t i = 0; i < m; ++i) v[i] = fx::shift_wrap(v[i], c);
    // 4. The caller undoes the normalisation with h.
    return h;
}
