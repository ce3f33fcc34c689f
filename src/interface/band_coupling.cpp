// Coupling table of the echo-band gain: seven bands split at six non-decreasing edges, each band
// with the gain 4 * 2^h in Q15 (32768 = 1.0). Bins 0 .. e0-1 form band 0, e(k-1) .. e(k)-1 band
// k, and e5 .. M band 6. Bins above M are never written.
#include "interface/band_coupling.h"

#include <algorithm>

#include "state/aec_state.h"

namespace sonvel {
namespace {

// 4 shifted left by h modulo 32, kept to 32 bits (a shift of 30 or more wraps or clears it).
int32_t band_gain(int16_t h) {
    const uint32_t count = static_cast<uint32_t>(h) & 31u;
    return static_cast<int32_t>(static_cast<uint32_t>(4u << count));
}

void fill_band(int32_t *table, int first, int end, int limit, int16_t h) {
    first = std::clamp(first, 0, limit);
    end = std::clamp(end, 0, limit);
    const int32_t gain = band_gain(h);
    for (int bin = first; bin < end; ++bin) table[bin] = gain;
}

}  // namespace

void build_band_coupling(AecState *st) {
    const int limit = std::clamp(static_cast<int>(st->s16HalfFftLen), 0, kBinWords - 1) + 1;
    const int16_t *e = st->as16BandEdge;
    const int16_t *h = st->as16BandShift;
    fill_band(st->ai32BandCoupling, 0, e[0], limit, h[0]);
    for (int k = 1; k <= 5; ++k) fill_band(st->ai32BandCoupling, e[k - 1], e[k], limit, h[k]);
    fill_band(st->ai32BandCoupling, e[5], limit, limit, h[6]);
}

}  // namespace sonvel
