// The real FFT pair: a real block to its packed half spectrum (bins 0..N/2, re / im interleaved)
// and back, over the complex FFT service. The real block is transformed as a full complex block
// with zero imaginary parts; the inverse rebuilds the conjugate-symmetric upper half first. The
// loops around the transform take lane steps where the plan's processor choice allows.
#include <cstdint>
#include <cstring>

#include "fixedpoint/block_float.h"
#include "sonvel_aec_fft.h"
#include "sonvel_aec_spectral.h"
#include "spectral/fft/fft_plan.h"
#include "spectral/kernel_elements.h"
#include "spectral/lane_check.h"
#include "spectral/lanes.h"

namespace {

constexpr int32_t kMaxLen = 256;
constexpr int32_t kBadLength = -1;

// The vector loops run on every aarch64 core; on x86-64 only behind this library's own prepared
// plan that found AVX2 (a plan area of another transform service takes the portable loops).
bool vector_loops(const sonvel::fft::Plan *p, int32_t n) {
#if SONVEL_HAS_LANES
    if (n % (2 * ln::kLanes) != 0) return false;  // the lane loops take whole pairs of registers
#else
    (void)n;
#endif
#if defined(__aarch64__)
    (void)p;
    return true;
#elif defined(__x86_64__)
    return p != nullptr && p->vectorised == 1;
#else
    (void)p;
    return false;
#endif
}

// The pair's loops for a block of n words behind plan (in the lane self-check's terms: under the
// check, the words of buf and the status from the lane loops against those from the portable
// ones), or false for a length the work arrays cannot hold (whole vector steps of 8 samples up to
// kMaxLen) or, behind a prepared plan of this library, other than the plan's own: a shorter block
// would leave words of the transform's input unset, a longer one read words of its output that it
// never wrote.
bool pair_isa(const void *plan, int32_t n, sp::Isa *isa) {
    if (n < 8 || n > kMaxLen || n % 8 != 0) return false;
    const sonvel::fft::Plan *p = sonvel::fft::prepared(plan);
    if (p != nullptr && p->n != n) return false;
    *isa = vector_loops(p, n) ? sp::Isa::kVector : sp::Isa::kPortable;
    return true;
}

// -x saturated: -2^31 gives 2^31 - 1.
int32_t neg_sat(int32_t x) { return fx::sat32(-static_cast<int64_t>(x)); }

// c[2i] = (buf[i], 0) for i = 0..N-1.
// One word pair per pass: the compiler vectorises this form (c is a local of the caller, never
// buf).
void real_to_complex(const int32_t *__restrict buf, int32_t *__restrict c, int32_t n) {
    for (int32_t i = 0; i < n; ++i) {
        c[2 * i] = buf[i];
        c[2 * i + 1] = 0;
    }
}

// Bins from..N-2 (from > N/2, N-1-from even) from bins N-from .. 2, conjugated with saturating
// negation, two per pass; bin N-1 from bin 1 with two's-complement negation.
void mirror_upper_half(const int32_t *buf, int32_t *c, int32_t from, int32_t n) {
    for (int32_t k = from; k <= n - 2; k += 2) {
        c[2 * k] = buf[2 * (n - k)];
        c[2 * k + 1] = neg_sat(buf[2 * (n - k) + 1]);
        c[2 * k + 2] = buf[2 * (n - k - 1)];
        c[2 * k + 3] = neg_sat(buf[2 * (n - k - 1) + 1]);
    }
    c[2 * (n - 1)] = buf[2];
    c[2 * (n - 1) + 1] = sp::neg_wrap(buf[3]);
}

void copy_words(int32_t *dst, const int32_t *src, int32_t words) {
    std::memcpy(dst, src, sizeof(int32_t) * static_cast<size_t>(words));
}

}  // namespace

namespace sp::lanes {
namespace {

#if SONVEL_HAS_LANES

// dst[0..words-1] = src[0..words-1] for a multiple of 2 kLanes words.
SONVEL_LANES_TARGET void copy_words(int32_t *dst, const int32_t *src, int32_t words) {
#pragma GCC unroll 4
    for (int32_t i = 0; i < words; i += 2 * ln::kLanes) {
        const ln::I32 a = ln::load(src + i), b = ln::load(src + i + ln::kLanes);
        ln::store(dst + i, a);
        ln::store(dst + i + ln::kLanes, b);
    }
}

// c[2i], c[2i + 1] = buf[i], 0 for all n samples (a multiple of 2 kLanes).
SONVEL_LANES_TARGET void real_to_complex(const int32_t *buf, int32_t *c, int32_t n) {
#pragma GCC unroll 4
    for (int32_t i = 0; i < n; i += 2 * ln::kLanes) {
        ln::store_real_bins(c + 2 * i, buf + i);
        ln::store_real_bins(c + 2 * i + 2 * ln::kLanes, buf + i + ln::kLanes);
    }
}

// Bins 0..N/2 of c from buf as stored and the conjugate upper half, as the portable copy and
// mirror_upper_half: register by register (kLanes / 2 bins) bins L..N/2-1 go to their place
// and, reversed and conjugated, to bins N/2+1..N-L; the first register's bins, bin N/2 and
// the bins mirrored from them word by word.
SONVEL_LANES_TARGET void conjugate_symmetric(const int32_t *buf, int32_t *c, int32_t n) {
    constexpr int32_t kBins = ln::kLanes / 2;
    ln::store(c, ln::load(buf));
    c[n] = buf[n];
    c[n + 1] = buf[n + 1];
    // Two registers per step: bins L..N/2-1 are an odd number of registers, the first alone.
    const ln::I32 first = ln::load(buf + 2 * kBins);
    ln::store(c + 2 * kBins, first);
    ln::store(c + 2 * (n - 2 * kBins + 1), ln::conj_reverse_pairs(first));
#pragma GCC unroll 4
    for (int32_t k = 2 * kBins; k < n / 2; k += 2 * kBins) {
        const ln::I32 a = ln::load(buf + 2 * k), b = ln::load(buf + 2 * k + ln::kLanes);
        ln::store(c + 2 * k, a);
        ln::store(c + 2 * k + ln::kLanes, b);
        ln::store(c + 2 * (n - k - kBins + 1), ln::conj_reverse_pairs(a));
        ln::store(c + 2 * (n - k - 2 * kBins + 1), ln::conj_reverse_pairs(b));
    }
    mirror_upper_half(buf, c, n - kBins + 1, n);
}

// buf[i] = c[2i], the real parts of all n samples (a multiple of 2 kLanes).
SONVEL_LANES_TARGET void real_parts(const int32_t *c, int32_t *buf, int32_t n) {
#pragma GCC unroll 4
    for (int32_t i = 0; i < n; i += 2 * ln::kLanes) {
        ln::store(buf + i, ln::load_bins(c + 2 * i).re);
        ln::store(buf + i + ln::kLanes, ln::load_bins(c + 2 * i + 2 * ln::kLanes).re);
    }
}

#else

void copy_words(int32_t *, const int32_t *, int32_t) {}
void real_to_complex(const int32_t *, int32_t *, int32_t) {}
void conjugate_symmetric(const int32_t *, int32_t *, int32_t) {}
void real_parts(const int32_t *, int32_t *, int32_t) {}

#endif

}  // namespace
}  // namespace sp::lanes

namespace {

// The forward pair on the lane loops (vec) or the portable ones (inlined: the self-check around
// it costs no call when it is not built in).
[[gnu::always_inline]] inline int32_t forward_pair(int32_t *buf, int32_t n, const void *plan,
                                                   bool vec) {
    alignas(32) int32_t c[2 * kMaxLen];
    alignas(32) int32_t out[2 * kMaxLen];
    // 1. Complex input with zero imaginary parts.
    if (vec) {
        sp::lanes::real_to_complex(buf, c, n);
    } else {
        real_to_complex(buf, c, n);
    }
    // 2. Forward transform.
    out[0] = 0;
    const int32_t status = Sonvel_FFTFwd_CToC_SC32_Sfs(c, out, plan, 0);
    if (status != 0) return status;  // no spectrum: buf keeps its words
    // 3. Bins 0..N/2 with both parts.
    if (vec) {
        sp::lanes::copy_words(buf, out, n);
        buf[n] = out[n];
        buf[n + 1] = out[n + 1];
    } else {
        copy_words(buf, out, n + 2);
    }
    return status;
}

// The inverse pair on the lane loops (vec) or the portable ones (inlined as above).
[[gnu::always_inline]] inline int32_t inverse_pair(int32_t *buf, int32_t n, const void *plan,
                                                   bool vec) {
    alignas(32) int32_t c[2 * kMaxLen];
    alignas(32) int32_t out[2 * kMaxLen];
    // 1.-3. Bins 0..N/2 as stored, imaginary parts of DC and Nyquist included, and the conjugate
    // upper half.
    if (vec) {
        sp::lanes::conjugate_symmetric(buf, c, n);
    } else {
        copy_words(c, buf, n + 2);
        mirror_upper_half(buf, c, n / 2 + 1, n);
    }
    // 4. Inverse transform.
    out[0] = 0;
    const int32_t status = Sonvel_FFTInv_CToC_SC32_Sfs(c, out, plan, 0);
    if (status != 0) return status;  // no block: buf keeps its words
    // 5. Real parts.
    if (vec) {
        sp::lanes::real_parts(out, buf, n);
    } else {
        for (int32_t i = 0; i < n; ++i) buf[i] = out[2 * i];
    }
    return status;
}

}  // namespace

// Real block buf[0..n-1] -> packed half spectrum buf[0..n+1], unscaled. Returns the service's
// status (buf untouched unless it is 0), or -1 for a length the work arrays cannot hold or that
// is not the plan's (buf untouched).
extern "C" SONVEL_API int32_t Sonvel_AEC_Realfft(int32_t *buf, int32_t n, const void *plan) {
    sp::Isa isa;
    if (!pair_isa(plan, n, &isa)) return kBadLength;
    int32_t status = 0;
    if (sp::lanes_checked(isa, {{buf, 4u * static_cast<size_t>(n + 2)}, {&status, sizeof status}},
                          [&](sp::Isa i) { status = forward_pair(buf, n, plan, sp::lanes_on(i)); }))
        return status;
    return forward_pair(buf, n, plan, sp::lanes_on(isa));
}

// Packed half spectrum buf[0..n+1] -> real block buf[0..n-1] (the inverse divides by N);
// buf[n], buf[n+1] keep their values. Returns the service's status, or -1 as above.
extern "C" SONVEL_API int32_t Sonvel_AEC_Realifft(int32_t *buf, int32_t n, const void *plan) {
    sp::Isa isa;
    if (!pair_isa(plan, n, &isa)) return kBadLength;
    int32_t status = 0;
    if (sp::lanes_checked(isa, {{buf, 4u * static_cast<size_t>(n + 2)}, {&status, sizeof status}},
                          [&](sp::Isa i) { status = inverse_pair(buf, n, plan, sp::lanes_on(i)); }))
        return status;
    return inverse_pair(buf, n, plan, sp::lanes_on(isa));
}
