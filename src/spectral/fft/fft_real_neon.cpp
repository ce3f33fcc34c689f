// NEON steps of the FFT service's real-data paths: two bins (or four words) per step, 64-bit
// lanes for the split and merge arithmetic, bit for bit the portable steps.
#include "spectral/fft/fft_real_simd.h"

#if defined(__aarch64__)

#include <arm_neon.h>

#include "fixedpoint/block_float.h"
#include "spectral/fft/fft_butterflies.h"

namespace sonvel::fft::simd {
namespace {

inline int32x4_t magnitude(int32x4_t x) { return veorq_s32(x, vshrq_n_s32(x, 31)); }
inline uint32_t or_lanes(int32x4_t x) {
    const uint32x4_t u = vreinterpretq_u32_s32(x);
    const uint32x2_t h = vorr_u32(vget_low_u32(u), vget_high_u32(u));
    return vget_lane_u32(h, 0) | vget_lane_u32(h, 1);
}

// Two bins as (re, im) lanes in order, or the last one first.
inline int32x2x2_t reversed(int32x2x2_t x) {
    return {{vrev64_s32(x.val[0]), vrev64_s32(x.val[1])}};
}

// Bins b, b+1 with their partners M-b, M-b-1 (see the portable step): S 2^kProductBits and
// t = w' D with D = A - conj B. Forward, D may not fit 32 bits (the spectrum's words reach
// sqrt(2) 2^30), so t is w' A - w' conj B, every factor 32 bits. Inverse, the input has log2 N
// bits of headroom, D fits 32 bits and t takes half the products.
struct Pair {
    int64x2_t sr, si, tr, ti;
};
inline Pair pair(const int32_t *a, const int32_t *b, const int32_t *w, bool inverse) {
    const int32x2x2_t A = vld2_s32(a);
    const int32x2x2_t B = reversed(vld2_s32(b));
    const int32x2x2_t W = vld2_s32(w);
    const int32x2_t w0 = W.val[1];
    const int32x2_t w1 = inverse ? W.val[0] : vneg_s32(W.val[0]);  // wr >= 0: no wrap
    int64x2_t re, im;
    if (inverse) {
        const int32x2_t dr = vsub_s32(A.val[0], B.val[0]);
        const int32x2_t di = vadd_s32(A.val[1], B.val[1]);
        re = vmlsl_s32(vmull_s32(dr, w0), di, w1);
        im = vmlal_s32(vmull_s32(dr, w1), di, w0);
    } else {
        re = vmlsl_s32(vmull_s32(A.val[0], w0), B.val[0], w0);
        re = vmlsl_s32(vmlsl_s32(re, A.val[1], w1), B.val[1], w1);
        im = vmlsl_s32(vmull_s32(A.val[0], w1), B.val[0], w1);
        im = vmlal_s32(vmlal_s32(im, A.val[1], w0), B.val[1], w0);
    }
    return {vshlq_n_s64(vaddl_s32(A.val[0], B.val[0]), kProductBits),
            vshlq_n_s64(vsubl_s32(A.val[1], B.val[1]), kProductBits),
            vrshrq_n_s64(re, 31 - kProductBits), vrshrq_n_s64(im, 31 - kProductBits)};
}

}  // namespace

int pack_real(const int32_t *src, int32_t *z, int n) {
    int32x4_t bits = vdupq_n_s32(0);
    int32x4_t imag = vdupq_n_s32(0);
    for (int i = 0; i < 2 * n; i += 8) {
        const int32x4x2_t x = vld2q_s32(src + i);
        bits = vorrq_s32(bits, magnitude(x.val[0]));
        imag = vorrq_s32(imag, x.val[1]);
        vst1q_s32(z + i / 2, x.val[0]);
    }
    if (or_lanes(imag) != 0) return -1;
    return fx::hr(static_cast<int32_t>(or_lanes(bits)));
}

void split(const int32_t *spectrum, const int32_t *w, int32_t *dst, int m, int k) {
    const int64x2_t down = vdupq_n_s64(-k);
    for (int b = 1; b <= m / 2; b += 2) {
        const Pair p = pair(spectrum + 2 * b, spectrum + 2 * (m - b - 1), w + 2 * b, false);
        // Bins M-b-1, M-b first, then b, b+1 (for b + 1 = M/2 both write bin M/2 alike), each
        // with its conjugate at N - bin: M+b, M+b+1 and N-b-1, N-b (both write bin 3M/2 alike).
        const int32x2_t jr = vmovn_s64(vrshlq_s64(vsubq_s64(p.sr, p.tr), down));
        const int32x2_t ji = vmovn_s64(vrshlq_s64(vsubq_s64(p.ti, p.si), down));
        vst2_s32(dst + 2 * (m - b - 1), (int32x2x2_t{{vrev64_s32(jr), vrev64_s32(ji)}}));
        vst2_s32(dst + 2 * (m + b), (int32x2x2_t{{jr, vneg_s32(ji)}}));
        const int32x2_t kr = vmovn_s64(vrshlq_s64(vaddq_s64(p.sr, p.tr), down));
        const int32x2_t ki = vmovn_s64(vrshlq_s64(vaddq_s64(p.si, p.ti), down));
        vst2_s32(dst + 2 * b, (int32x2x2_t{{kr, ki}}));
        vst2_s32(dst + 2 * (2 * m - b - 1),
                 (int32x2x2_t{{vrev64_s32(kr), vrev64_s32(vneg_s32(ki))}}));
    }
}

Merged merge(const int32_t *src, const int32_t *w, int32_t *out, int m) {
    const int n = 2 * m;
    int32x2_t in = vdup_n_s32(0);
    int32x2_t differ = vdup_n_s32(0);
    // Bins k, k+1 against bins N-k, N-k-1; the last step takes bin M against itself, whose
    // imaginary part the caller checks. -(-2^31) wraps here; such an input has no headroom and
    // is refused by it as well.
    for (int k = 1; k < m; k += 2) {
        const int32x2x2_t a = vld2_s32(src + 2 * k);
        const int32x2x2_t b = reversed(vld2_s32(src + 2 * (n - k - 1)));
        differ = vorr_s32(
            differ, vorr_s32(veor_s32(a.val[0], b.val[0]), veor_s32(vneg_s32(a.val[1]), b.val[1])));
        in = vorr_s32(in, vorr_s32(veor_s32(a.val[0], vshr_n_s32(a.val[0], 31)),
                                   veor_s32(a.val[1], vshr_n_s32(a.val[1], 31))));
    }
    // Bin M's real part joined the OR above; it belongs to the caller's headroom anyway.
    int32x2_t bits = vdup_n_s32(0);
    for (int b = 1; b <= m / 2; b += 2) {
        const Pair p = pair(src + 2 * b, src + 2 * (m - b - 1), w + 2 * b, true);
        // Partner lanes hold bins M-b, M-b-1.
        const int32x2_t jr = vmovn_s64(vsubq_s64(p.sr, p.tr));
        const int32x2_t ji = vmovn_s64(vsubq_s64(p.ti, p.si));
        const int32x2_t kr = vmovn_s64(vaddq_s64(p.sr, p.tr));
        const int32x2_t ki = vmovn_s64(vaddq_s64(p.si, p.ti));
        vst2_s32(out + 2 * (m - b - 1), (int32x2x2_t{{vrev64_s32(jr), vrev64_s32(ji)}}));
        vst2_s32(out + 2 * b, (int32x2x2_t{{kr, ki}}));
        const int32x4_t jk =
            vorrq_s32(magnitude(vcombine_s32(jr, ji)), magnitude(vcombine_s32(kr, ki)));
        bits = vorr_s32(bits, vorr_s32(vget_low_s32(jk), vget_high_s32(jk)));
    }
    return {(vget_lane_s32(differ, 0) | vget_lane_s32(differ, 1)) == 0,
            static_cast<uint32_t>(vget_lane_s32(in, 0) | vget_lane_s32(in, 1)),
            static_cast<uint32_t>(vget_lane_s32(bits, 0) | vget_lane_s32(bits, 1))};
}

void round_words(int32_t *v, int n, int k) {
    const int32x4_t down = vdupq_n_s32(-k);
    for (int i = 0; i < n; i += 4) vst1q_s32(v + i, vrshlq_s32(vld1q_s32(v + i), down));
}

void unpack_real(const int32_t *z, int32_t *dst, int m) {
    // Pairs (re, im) of z become (re, 0, im, 0); from the front, as the portable loop.
    const int32x4_t zero = vdupq_n_s32(0);
    for (int t = 0; t < m; t += 2)
        vst2q_s32(dst + 4 * t, (int32x4x2_t{{vld1q_s32(z + 2 * t), zero}}));
}

}  // namespace sonvel::fft::simd

#endif
