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

}  // namespace

namespace sp::lanes {
namespace {

#if SONVEL_HAS_LANES

// One shift of all lanes: left by c keeping the low 32 bits, or arithmetic right by c.
template <bool Left>
SONVEL_LANES_TARGET inline ln::I32 shifted(ln::I32 x, int c) {
    return Left ? ln::shl_all(x, c) : ln::shr_all(x, c);
}

// v[0..n-1] shifted in place, two registers per step; a count that is not a multiple of kLanes
// ends with the last kLanes words, loaded before any store so that the words they share with the
// steps before are shifted once, from their old values. Returns the words done (n, or 0 for
// fewer than kLanes words).
template <bool Left>
SONVEL_LANES_TARGET inline int32_t shift_words(int32_t *v, int32_t n, int c) {
    if (n < ln::kLanes) return 0;
    const ln::I32 last = ln::load(v + n - ln::kLanes);
    int32_t i = 0;
#pragma GCC unroll 8
    for (; i + 2 * ln::kLanes <= n; i += 2 * ln::kLanes) {
        const ln::I32 a = ln::load(v + i), b = ln::load(v + i + ln::kLanes);
        ln::store(v + i, shifted<Left>(a, c));
        ln::store(v + i + ln::kLanes, shifted<Left>(b, c));
    }
    if (i + ln::kLanes <= n) ln::store(v + i, shifted<Left>(ln::load(v + i), c));
    ln::store(v + n - ln::kLanes, shifted<Left>(last, c));
    return n;
}

// *bits is ORed with bits whose highest set bit is that of the OR of the magnitudes (x ^ sign) of
// the words done: the magnitudes of their least and greatest. Returns the words done; a count
// that is not a multiple of kLanes ends with the last kLanes words, some of them read twice.
SONVEL_LANES_TARGET int32_t magnitude_bits(const int32_t *v, int32_t n, uint32_t *bits) {
    if (n < ln::kLanes) return 0;
    ln::I32 lo = ln::load(v + n - ln::kLanes);
    ln::I32 hi = lo;
    int32_t i = 0;
#pragma GCC unroll 8
    for (; i + 2 * ln::kLanes <= n; i += 2 * ln::kLanes) {
        const ln::I32 a = ln::load(v + i), b = ln::load(v + i + ln::kLanes);
        lo = ln::min(lo, ln::min(a, b));
        hi = ln::max(hi, ln::max(a, b));
    }
    if (i + ln::kLanes <= n) {
        const ln::I32 a = ln::load(v + i);
        lo = ln::min(lo, a);
        hi = ln::max(hi, a);
    }
    *bits |= ln::or_lanes(ln::bor(ln::mag(lo), ln::mag(hi)));
    return n;
}

// Left shift by c in 0..31 keeping the low 32 bits.
SONVEL_LANES_TARGET int32_t shift_left(int32_t *v, int32_t n, int c) {
    return shift_words<true>(v, n, c);
}

// Truncating right shift by r in 0..31.
SONVEL_LANES_TARGET int32_t shift_right(int32_t *v, int32_t n, int r) {
    return shift_words<false>(v, n, r);
}

#else

int32_t magnitude_bits(const int32_t *, int32_t, uint32_t *) { return 0; }
int32_t shift_left(int32_t *, int32_t, int) { return 0; }
int32_t shift_right(int32_t *, int32_t, int) { return 0; }

#endif

}  // namespace
}  // namespace sp::lanes

// The headroom of the OR of all magnitudes (x ^ sign).
int sp::block_headroom(Isa isa, const int32_t *v, int64_t m) {
    int h = 0;
    if (lanes_checked(isa, {{&h, sizeof h}}, [&](Isa i) { h = block_headroom(i, v, m); })) return h;
    const bool vec = lanes_on(isa);
    uint32_t bits = 0;
    int64_t i = vec ? lanes::magnitude_bits(v, vector_count(m), &bits) : 0;
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
        int64_t i = vec ? lanes::shift_left(v, vector_count(m), c) : 0;
        for (; i < m; ++i) v[i] = static_cast<int32_t>(static_cast<uint32_t>(v[i]) << c);
    } else {
        const int r = c <= -31 ? 31 : -c;
        int64_t i = vec ? lanes::shift_right(v, vector_count(m), r) : 0;
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
