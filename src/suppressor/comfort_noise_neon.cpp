// Vectorised comfort-noise generator for aarch64 (NEON): the noise components of four bins per
// step, added to the interleaved error spectrum.
#include "suppressor/comfort_noise_lanes.h"

#if defined(__aarch64__)

#include <arm_neon.h>

#include "spectral/reciprocal_vec.h"
#include "spectral/simd_neon.h"

namespace sonvel::comfort_noise::lanes {
namespace {

using V = int32x4_t;

inline V load16(const int16_t *p) { return vmovl_s16(vld1_s16(p)); }

inline V set1(int32_t v) { return vdupq_n_s32(v); }

// Noise components of four bins as separate re and im lanes.
int32x4x2_t noise4(V m, V q, V g, V cs, V sn, V s) {
    // F = m' / 4^e2 with m' a non-negative 31-bit value.
    const V n = vclsq_s32(m);
    const V e = vaddq_s32(q, n);
    const V odd = vandq_s32(e, set1(1));
    const V mm = vshlq_s32(vshlq_s32(m, n), vnegq_s32(odd));
    const V e2 = vshrq_n_s32(vsubq_s32(e, odd), 1);

    const float32x4_t root = sp::sqrt4(sp::simd::i2f(mm));
    const float32x4_t gf = sp::simd::i2f(g);
    const float32x4_t g2 = vmulq_f32(gf, gf);
    const float32x4_t amp = sp::sqrt4(vsubq_f32(vdupq_n_f32(1073741824.0f), g2));

    const float32x4_t nr1 = vmulq_f32(vmulq_f32(root, sp::simd::i2f(cs)), amp);
    const float32x4_t ni1 = vmulq_f32(vmulq_f32(root, sp::simd::i2f(sn)), amp);
    const V nr = sp::simd::f2i(vmulq_f32(nr1, vdupq_n_f32(1.0f / 32768.0f)));
    const V ni = sp::simd::f2i(vmulq_f32(ni1, vdupq_n_f32(-1.0f / 32768.0f)));

    const V sh = vsubq_s32(vsubq_s32(s, set1(15)), e2);
    return {{sp::simd::shift_sat32(nr, sh), sp::simd::shift_sat32(ni, sh)}};
}

}  // namespace

int add_noise(const Bins &b, const int32_t *e, int32_t *out, int n) {
    const V s = set1(b.s);
    int k = 0;
    for (; k + 4 <= n; k += 4) {
        const int32x4x2_t c = noise4(vld1q_s32(b.floor_man + k), load16(b.floor_exp + k),
                                     load16(b.gain + k), load16(b.cos + k), load16(b.sin + k), s);
        const int32x4x2_t x = vld2q_s32(e + 2 * k);
        vst2q_s32(out + 2 * k, (int32x4x2_t{{vqaddq_s32(x.val[0], c.val[0]),
                                             vqaddq_s32(x.val[1], c.val[1])}}));
    }
    return k;
}

}  // namespace sonvel::comfort_noise::lanes

#endif
