// Block normaliser used before an inverse transform: brings a vector to a fixed number of guard
// bits by one common shift and returns the headroom it found, so the caller can undo the shift.
// The stages pass their instance's path; the exported function takes the stateless one.
#include "sonvel_aec_spectral.h"

#include <algorithm>

#include "fixedpoint/block_float.h"
#include "spectral/kernels.h"
#include "spectral/lane_check.h"
#include "spectral/lanes.h"

namespace {

// The part of a count the lane loops take (they count in int32).
int32_t vector_count(int64_t m) { return static_cast<int32_t>(std::min<int64_t>(m, INT32_MAX)); }

#if SONVEL_HAS_LANES

// *bits is ORed with the magnitudes (x ^ sign) of the words done; returns the words done.
SONVEL_LANES_TARGET int32_t magnitude_bits(const int32_t *v, int32_t n, uint32_t *bits) {
    ln::I32 acc = ln::zero();
    int32_t i = 0;
    for (; i + ln::kLanes <= n; i += ln::kLanes) acc = ln::bor(acc, ln::mag(ln::load(v + i)));
    *bits |= ln::or_lanes(acc);
    return i;
}

// Left shift by c in 0..31 keeping the low 32 bits.
SONVEL_LANES_TARGET int32_t shift_left(int32_t *v, int32_t n, int c) {
    int32_t i = 0;
    for (; i + ln::kLanes <= n; i += ln::kLanes) ln::store(v + i, ln::shl_all(ln::load(v + i), c));
    return i;
}

// Truncating right shift by r in 0..31.
SONVEL_LANES_TARGET int32_t shift_right(int32_t *v, int32_t n, int r) {
    int32_t i = 0;
    for (; i + ln::kLanes <= n; i += ln::kLanes) ln::store(v + i, ln::shr_all(ln::load(v + i), r));
    return i;
}

#else

int32_t magnitude_bits(const int32_t *, int32_t, uint32_t *) { return 0; }
int32_t shift_left(int32_t *, int32_t, int) { return 0; }
int32_t shift_right(int32_t *, int32_t, int) { return 0; }

#endif

}  // namespace

// The headroom of the OR of all magnitudes (x ^ sign).
int sp::block_headroom(Isa isa, const int32_t *v, int64_t m) {
    int h = 0;
    if (lanes_checked(isa, {{&h, sizeof h}}, [&](Isa i) { h = block_headroom(i, v, m); })) return h;
    const bool vec = lanes_on(isa);
    uint32_t bits = 0;
    int64_t i = vec ? magnitude_bits(v, vector_count(m), &bits) : 0;
    for (; i < m; ++i) bits |= static_cast<uint32_t>(v[i] ^ (v[i] >> 31));
    return bits == 0 ? 31 : __builtin_clz(bits) - 1;
}

// The direction decided once; right shifts beyond 31 give the sign fill.
void sp::shift_block(Isa isa, int32_t *v, int64_t m, int c) {
    if (lanes_checked(isa, {{v, 4u * static_cast<size_t>(m)}},
                      [&](Isa i) { shift_block(i, v, m, c); }))
        return;
    const bool vec = lanes_on(isa);
    if (c >= 32) {
        std::fill_n(v, m, 0);
    } else if (c >= 0) {
        int64_t i = vec ? shift_left(v, vector_count(m), c) : 0;
        for (; i < m; ++i) v[i] = static_cast<int32_t>(static_cast<uint32_t>(v[i]) << c);
    } else {
        const int r = c <= -31 ? 31 : -c;
        int64_t i = vec ? shift_right(v, vector_count(m), r) : 0;
        for (; i < m; ++i) v[i] >>= r;
    }
}

int32_t sp::vector_norm(Isa isa, int32_t *v, int32_t q, int32_t n) {
    if (n < 0) return 31;  // a negative count touches nothing
    // 1. Guard words of value 1 behind the vector bound the headroom of a zero spectrum.
    for (int64_t i = int64_t{n} + 1; i <= int64_t{n} + 4; ++i) v[i] = 1;
    // 2. Common headroom over the count rounded up to a multiple of 4.
    const int64_t m = (static_cast<int64_t>(n) + 3) & ~int64_t{3};
    const int h = block_headroom(isa, v, m);
    // 3. One shift for all words, not saturating: a left shift stays within the headroom.
    const int c = static_cast<int>(std::clamp<int64_t>(int64_t{h} - q, -32, 32));
    shift_block(isa, v, m, c);
    // 4. The caller undoes the normalisation with h.
    return h;
}

extern "C" SONVEL_API int32_t Sonvel_AEC_VetorNorm(int32_t *v, int32_t q, int32_t n) {
    return sp::vector_norm(sp::kStatelessIsa, v, q, n);
}
