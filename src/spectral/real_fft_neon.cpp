// The real FFT pair's loops for aarch64 (NEON): four samples or bins per step, the structure
// loads and stores splitting and joining the re / im words, the mirrored bins reversed in their
// lanes and their imaginary parts negated with saturation.
#include "spectral/real_fft_vec.h"

#if defined(__aarch64__)

#include "spectral/simd_neon.h"

namespace sp::vec {
namespace {

// Lanes 3, 2, 1, 0.
inline int32x4_t reverse4(int32x4_t x) {
    const int32x4_t r = vrev64q_s32(x);
    return vextq_s32(r, r, 2);
}

}  // namespace

int32_t real_to_complex(const int32_t *buf, int32_t *c, int32_t n) {
    int32_t i = 0;
    for (; i + 4 <= n; i += 4) simd::store4c(c + 2 * i, {{simd::load4(buf + i), vdupq_n_s32(0)}});
    return i;
}

// Output bins k..k+3 read source bins n-k-3 .. n-k, reversed in the lanes.
int32_t mirror_bins(const int32_t *buf, int32_t *c, int32_t n) {
    int32_t k = n / 2 + 1;
    for (; k + 3 <= n - 2; k += 4) {
        const int32x4x2_t src = simd::load4c(buf + 2 * (n - k - 3));
        simd::store4c(c + 2 * k, {{reverse4(src.val[0]), vqnegq_s32(reverse4(src.val[1]))}});
    }
    return k;
}

int32_t real_parts(const int32_t *c, int32_t *buf, int32_t n) {
    int32_t i = 0;
    for (; i + 4 <= n; i += 4) simd::store4(buf + i, simd::load4c(c + 2 * i).val[0]);
    return i;
}

}  // namespace sp::vec

#endif
