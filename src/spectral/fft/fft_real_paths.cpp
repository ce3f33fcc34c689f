// Real-data paths of the FFT service. A forward input whose imaginary parts are all zero, or an
// inverse input that is conjugate-symmetric (its result is real), is transformed through one
// N/2-point complex transform with a split (forward) or merge (inverse) step around it, about
// half the work of the N-point stages. Both shapes are recognised exactly, word by word; any
// other input, or one without log2 N bits of headroom, takes the N-point stages.
//
// Forward: z[t] = x[2t] + j x[2t+1] (t < M = N/2), Z = DFT_M(z) * 2^f, and for k = 0..M
//   X[k] 2^(f+1) = (Z[k] + conj Z[M-k]) - j W_N^k (Z[k] - conj Z[M-k]),
// the bins above M being the conjugates of those below. f = 0..2 extra bits that the input's
// headroom beyond log2 N leaves room for.
// Inverse: Y[k] 2^(1-e) = (X[k] + conj X[M-k]) + j conj(W_N^k) (X[k] - conj X[M-k]) for
// k < M, z = IDFT_M(Y) and x[2t] = Re z[t], x[2t+1] = Im z[t]; Y is handed to the N/2-point
// stages with as many fractional bits as their first stage's headroom leaves.
//
// Split and merge compute in 64 bits, turn by Q31 twiddles rounded as the stages round theirs
// (kProductBits fractional bits) and round each result once. The steps around the N/2-point
// transform (recognition, packing, split, merge, rounding, unpacking) have vectorised versions
// (fft_real_simd.h) that the plan's processor choice selects; they give the portable steps' bits,
// which the lane self-check (spectral/lane_check.h) verifies when it is built in. The N/2-point
// transform takes the vectorised stages where the processor has them, with the portable stages'
// bits.
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "fixedpoint/block_float.h"
#include "spectral/fft/fft_butterflies.h"
#include "spectral/fft/fft_plan.h"
#include "spectral/fft/fft_real_simd.h"
#include "spectral/fft/fft_transform.h"
#include "spectral/lane_check.h"

namespace sonvel::fft {
namespace {

constexpr int kMaxExtra = 2;  // extra bits of Z (f) at most

uint32_t magnitude_bits(int32_t v) { return static_cast<uint32_t>(v ^ (v >> 31)); }
uint64_t magnitude_bits64(int64_t v) { return static_cast<uint64_t>(v ^ (v >> 63)); }

// Bin results of a step rounded by 2^-shift into interleaved 32-bit pairs.
struct SinkRounded {
    int32_t *out;
    int shift;
    void operator()(int bin, int64_t re, int64_t im) const {
        out[2 * bin] = fx::rnd(re, shift);
        out[2 * bin + 1] = fx::rnd(im, shift);
    }
};

// Bin results kept in 64 bits, in an area of 32-bit words (any 4-byte alignment).
struct Sink64 {
    int32_t *out;
    void operator()(int bin, int64_t re, int64_t im) const {
        std::memcpy(out + 4 * bin, &re, sizeof re);
        std::memcpy(out + 4 * bin + 2, &im, sizeof im);
    }
    int64_t get(int word) const {
        int64_t v;
        std::memcpy(&v, out + 2 * word, sizeof v);
        return v;
    }
};

// Bins k and M - k (k = 1..M/2) of a split or merge step from `in` (bins 0..M). With A = in[k],
// B = in[M-k], S = A + conj B, D = A - conj B and t = w' D (rounded to kProductBits fractional
// bits), bin k is S 2^kProductBits + t and bin M - k is conj(S) 2^kProductBits + (-t.re, t.im):
// the twiddles of the two bins are -j W_N^k = (wi, -wr) and -j W_N^{M-k} = (wi, wr) forward,
// j conj(W_N^k) = (wi, wr) and j conj(W_N^{M-k}) = (wi, -wr) inverse, and turning -conj(D) by the
// second gives (-t.re, t.im) exactly. For k = M/2 both give the same bin.
template <bool Inverse, class Sink>
void step(const int32_t *in, const int32_t *w, int m, const Sink &sink) {
    for (int k = 1; k <= m / 2; ++k) {
        const int j = m - k;
        const int32_t wr = w[2 * k], wi = w[2 * k + 1];
        const int32_t wk[2] = {wi, Inverse ? wr : -wr};  // wr >= 0: no wrap
        const int64_t ar = in[2 * k], ai = in[2 * k + 1], br = in[2 * j], bi = in[2 * j + 1];
        const int64_t sr = (ar + br) << kProductBits, si = (ai - bi) << kProductBits;
        const C64 t = twiddle({ar - br, ai + bi}, wk);
        sink(j, sr - t.re, t.im - si);
        sink(k, sr + t.re, si + t.im);
    }
}

// z[t] = (x[2t], x[2t+1]) for the real parts x of src (t < N/2); the headroom of x, or -1 when
// an imaginary part is not zero.
int pack_real(const int32_t *src, int32_t *z, int n, bool vec) {
    if constexpr (simd::kRealSteps) {
        if (vec) return simd::pack_real(src, z, n);
    }
    uint32_t acc = 0;
    uint32_t imag = 0;
    for (int i = 0; i < n; ++i) {
        acc |= magnitude_bits(src[2 * i]);
        imag |= static_cast<uint32_t>(src[2 * i + 1]);
        z[i] = src[2 * i];
    }
    return imag != 0 ? -1 : fx::hr(static_cast<int32_t>(acc));
}

// The headroom of a conjugate-symmetric input, or -1 for any other input.
int inverse_headroom(const int32_t *src, int n) {
    if (src[1] != 0 || src[n + 1] != 0) return -1;
    uint32_t acc = magnitude_bits(src[0]) | magnitude_bits(src[n]);
    for (int k = 1; k < n / 2; ++k) {
        const int32_t re = src[2 * k], im = src[2 * k + 1];
        if (src[2 * (n - k)] != re || src[2 * (n - k) + 1] != -int64_t{im}) return -1;
        acc |= magnitude_bits(re) | magnitude_bits(im);
    }
    return fx::hr(static_cast<int32_t>(acc));
}

bool vector_steps(const Plan &p, Kernels kernels) {
    return simd::kRealSteps && kernels == Kernels::Best && p.vectorised != 0;
}

}  // namespace

namespace {

// The forward path with the vectorised steps (vec) or the portable ones (inlined: the self-check
// around it costs no call when it is not built in).
[[gnu::always_inline]] inline bool forward_path(const int32_t *src, int32_t *dst, const Plan &p,
                                                int shift, Kernels kernels, bool vec) {
    const int n = p.n;
    const int m = n / 2;
    // z in the upper half of dst (written even when the input turns out not to be real: the
    // N-point stages then rewrite all of dst).
    int32_t *z = dst + n;
    const int h = pack_real(src, z, n, vec);
    if (h < p.order) return false;
    const int f = std::min(h - p.order, kMaxExtra);
    if (shift < 0 || shift > 32) return false;  // no saturation, nothing shifted out entirely
    const int k = 1 + f + kProductBits + shift;

    // The N/2-point stages take z 2^c, which has just the log2 M bits of headroom they need, so
    // that their roundings fall as far below the last place as they can (their first stage
    // shifts it); Z 2^f on the stack, |Z 2^f| <= sqrt(2) 2^30 with the headroom.
    const int c = h - (p.order - 1);
    alignas(32) int32_t spectrum[kMaxN];
    complex_transform(z, spectrum, p, p.half, c - f, false, kernels, -c, h);
    const SinkRounded sink{dst, k};
    const int32_t *w = p.tw + p.splitOffset;
    // The vectorised split takes the results' bits from 64-bit lanes by logical shifts, which
    // needs k <= 32 (scale factors up to 32 - 5 - f); beyond, the portable split serves.
    const bool vecSplit = vec && k <= 32;
    if constexpr (simd::kRealSteps) {
        if (vecSplit) simd::split(spectrum, w, dst, m, k);
    }
    if (!vecSplit) step<false>(spectrum, w, m, sink);
    const int64_t r0 = spectrum[0], i0 = spectrum[1];
    sink(0, (r0 + i0) << (1 + kProductBits), 0);
    sink(m, (r0 - i0) << (1 + kProductBits), 0);
    // Bins N-b = conj(bin b); |Im X[b]| < 2^31 - 2^(31 - log2 N) + 2, so the negation never
    // saturates.
    if (vecSplit) return true;  // the vectorised split wrote them
    for (int b = 1; b < m; ++b) {
        dst[2 * (n - b)] = dst[2 * b];
        dst[2 * (n - b) + 1] = fx::sat32(-int64_t{dst[2 * b + 1]});
    }
    return true;
}

// The inverse path with the vectorised steps (vec) or the portable ones (inlined as above).
[[gnu::always_inline]] inline bool inverse_path(const int32_t *src, int32_t *dst, const Plan &p,
                                                int shift, Kernels kernels, bool vec) {
    const int n = p.n;
    const int m = n / 2;

    // The merge in 64 bits into dst (N int64 words, (Y 2) 2^kProductBits), then Y 2^e rounded
    // onto the stack as the input of the N/2-point stages, carrying their first stage's guard
    // bits g: e is the largest (up to kProductBits) that leaves log2 M - g bits of headroom, one
    // spare bit covering the rounding. |Y| <= |X[k]| + |X[k+M]| makes e >= g - 1 for an input
    // with log2 N bits of headroom. The vectorised merge recognises the input while it computes
    // and writes the same values as 32-bit words (they fit, see simd::merge) straight onto the
    // stack, and rounds them there; dst stays untouched until the input is recognised.
    const int64_t x0 = src[0], xm = src[n];
    const int64_t y0r = (x0 + xm) << kProductBits, y0i = (x0 - xm) << kProductBits;
    uint64_t bits = magnitude_bits64(y0r) | magnitude_bits64(y0i);
    const int32_t *w = p.tw + p.splitOffset;
    const Sink64 wide{dst};
    alignas(32) int32_t merged[kMaxN];
    if constexpr (simd::kRealSteps) {
        if (vec) {
            if (src[1] != 0 || src[n + 1] != 0) return false;
            const simd::Merged r = simd::merge(src, w, merged, m);
            const uint32_t edges = magnitude_bits(src[0]) | magnitude_bits(src[n]);
            if (!r.symmetric || fx::hr(static_cast<int32_t>(r.inputBits | edges)) < p.order)
                return false;
            merged[0] = static_cast<int32_t>(y0r);
            merged[1] = static_cast<int32_t>(y0i);
            bits |= r.outputBits;
        }
    }
    if (!vec) {
        if (inverse_headroom(src, n) < p.order) return false;
        wide(0, y0r, y0i);
        step<true>(src, w, m, wide);
        for (int i = 2; i < n; ++i) bits |= magnitude_bits64(wide.get(i));
    }
    const int g = first_guard(p.half);
    const int r = __builtin_clrsbll(static_cast<int64_t>(bits));  // redundant sign bits
    const int e = std::min(r - 28 - (p.order - 1 - g), kProductBits);
    const int k = 1 + kProductBits - e;
    if constexpr (simd::kRealSteps) {
        if (vec) simd::round_words(merged, n, k);
    }
    if (!vec) {
        for (int i = 0; i < n; ++i) merged[i] = fx::rnd(wide.get(i), k);
    }
    // Every word is a value below 2^(63 - r) in magnitude rounded by 2^-k: at most 2^(63 - r - k),
    // so r + k - 33 bits of headroom or more, which the choice of e makes at least log2 M - g.
    const int known = std::min(r + k - 33, 31);
    int32_t *z = dst + n;
    complex_transform(merged, z, p, p.half, shift - 1 + e - g, true, kernels, g, known);
    if constexpr (simd::kRealSteps) {
        if (vec) {
            simd::unpack_real(z, dst, m);
            return true;
        }
    }
    for (int t = 0; t < m; ++t) {
        const int32_t re = z[2 * t], im = z[2 * t + 1];
        dst[4 * t] = re;
        dst[4 * t + 1] = 0;
        dst[4 * t + 2] = im;
        dst[4 * t + 3] = 0;
    }
    return true;
}

// The processor choice of the real-data steps in the lane self-check's terms.
sp::Isa steps_isa(const Plan &p, Kernels kernels) {
    return vector_steps(p, kernels) ? sp::Isa::kVector : sp::Isa::kPortable;
}

}  // namespace

// Under the lane self-check, the vectorised steps' words of dst and answer against those of the
// portable steps (the N/2-point stages the same in both runs).
bool real_forward(const int32_t *src, int32_t *dst, const Plan &p, int shift, Kernels kernels) {
    const sp::Isa isa = steps_isa(p, kernels);
    bool done = false;
    if (sp::lanes_checked(
            isa, {{dst, 8u * static_cast<size_t>(p.n)}, {&done, sizeof done}},
            [&](sp::Isa i) { done = forward_path(src, dst, p, shift, kernels, sp::lanes_on(i)); }))
        return done;
    return forward_path(src, dst, p, shift, kernels, sp::lanes_on(isa));
}

bool real_inverse(const int32_t *src, int32_t *dst, const Plan &p, int shift, Kernels kernels) {
    const sp::Isa isa = steps_isa(p, kernels);
    bool done = false;
    if (sp::lanes_checked(
            isa, {{dst, 8u * static_cast<size_t>(p.n)}, {&done, sizeof done}},
            [&](sp::Isa i) { done = inverse_path(src, dst, p, shift, kernels, sp::lanes_on(i)); }))
        return done;
    return inverse_path(src, dst, p, shift, kernels, sp::lanes_on(isa));
}

}  // namespace sonvel::fft
