// The block normaliser's loops for aarch64 (NEON): four words per step, one count for all (the
// shift instruction shifts right for a negative count).
#include "spectral/vector_norm_vec.h"

#if defined(__aarch64__)

#include "spectral/simd_neon.h"

namespace sp::vec {
namespace {

int32_t shift_by(int32_t *v, int32_t n, int32_t c) {
    const int32x4_t count = vdupq_n_s32(c);
    int32_t i = 0;
    for (; i + 4 <= n; i += 4) simd::store4(v + i, vshlq_s32(simd::load4(v + i), count));
    return i;
}

}  // namespace

int32_t magnitude_bits(const int32_t *v, int32_t n, uint32_t *bits) {
    int32x4_t acc = vdupq_n_s32(0);
    int32_t i = 0;
    for (; i + 4 <= n; i += 4) {
        const int32x4_t x = simd::load4(v + i);
        acc = vorrq_s32(acc, veorq_s32(x, vshrq_n_s32(x, 31)));
    }
    const int32x2_t half = vorr_s32(vget_low_s32(acc), vget_high_s32(acc));
    *bits |= static_cast<uint32_t>(vget_lane_s32(half, 0) | vget_lane_s32(half, 1));
    return i;
}

int32_t shift_left(int32_t *v, int32_t n, int32_t c) { return shift_by(v, n, c); }

int32_t shift_right(int32_t *v, int32_t n, int32_t r) { return shift_by(v, n, -r); }

}  // namespace sp::vec

#endif
