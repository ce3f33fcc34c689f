// Forward and inverse transforms of the FFT service: decimation in time, a radix-4 or radix-2
// first stage reading the source in natural order and writing the destination in digit-reversed
// order, then three radix-4 stages in place in the destination. 64-bit butterflies; the inverse
// runs the forward kernel on swapped re / im. These portable stages define the results; the
// vectorised stages (AVX2, NEON) compute the same for inputs with headroom.
//
// Scaling: the forward transform is unscaled and the inverse divides by N; both then multiply by
// 2^-scaleFactor (scaleFactor > 0: rounding right shift, < 0: saturating left shift). Each stage
// rounds its results once; the division by N and the scale factor are applied by the last stage.
//
// Precision: data between stages carries g guard bits (stored value = true value * 2^g). An
// input whose parts have at least log2 N bits of headroom keeps the headroom that the growth of
// the remaining stages does not yet need, g = log2 N - 1 - log2 len after building transforms of
// length len, so early roundings fall below the last place of the result and nothing overflows.
// Any other input is scaled down as it grows, g = -log2 len, so that only the last stage's store
// can saturate (no wrap-around, no undefined behaviour).
#include <cstdint>

#include "fixedpoint/block_float.h"
#include "spectral/fft/fft_butterflies.h"
#include "spectral/fft/fft_plan.h"
#include "spectral/fft/fft_stages_simd.h"
#include "spectral/fft/fft_transform.h"

namespace sonvel::fft {
namespace {

// Common headroom of the 2n words of x.
int headroom(const int32_t *x, int n) {
    uint32_t acc = 0;
    for (int i = 0; i < 2 * n; ++i) acc |= static_cast<uint32_t>(x[i] ^ (x[i] >> 31));
    return fx::hr(static_cast<int32_t>(acc));
}

// src[index] * 2^guard, re / im exchanged with Swap.
template <bool Swap>
C64 load_src(const int32_t *src, int index, int guard) {
    const C64 x = Swap ? load_swapped(src + 2 * index) : load(src + 2 * index);
    return {x.re * (int64_t{1} << guard), x.im * (int64_t{1} << guard)};
}

// Where the first-stage butterfly o writes its results.
int first_out(const Layout &p, int o) { return p.firstOut[o / 4] + (o % 4) * (p.n / 4); }

// First stage, radix 4: four-point DFTs of x[o + q N/4] into dst in digit-reversed order.
template <bool Swap, class Store>
void first_stage4(const int32_t *src, int32_t *dst, const Layout &p, int guard, Store store) {
    const int stride = p.n / 4;
    for (int o = 0; o < stride; ++o) {
        C64 a[4];
        for (int q = 0; q < 4; ++q) a[q] = load_src<Swap>(src, o + q * stride, guard);
        radix4(a);
        int32_t *y = dst + 2 * first_out(p, o);
        for (int q = 0; q < 4; ++q) store(y + 2 * q, a[q].re, a[q].im);
    }
}

// First stage, radix 2: two-point DFTs of x[o + q N/2] into dst in digit-reversed order.
template <bool Swap, class Store>
void first_stage2(const int32_t *src, int32_t *dst, const Layout &p, int guard, Store store) {
    const int stride = p.n / 2;
    for (int o = 0; o < stride; ++o) {
        const C64 a0 = load_src<Swap>(src, o, guard);
        const C64 a1 = load_src<Swap>(src, o + stride, guard);
        int32_t *y = dst + 2 * first_out(p, o);
        store(y, a0.re + a1.re, a0.im + a1.im);
        store(y + 2, a0.re - a1.re, a0.im - a1.im);
    }
}

// One radix-4 stage in place: groups of four sub-transforms of length m become transforms of
// length 4m. Element k of sub-transform q is turned by W_4m^{qk} before the four-point DFT; the
// results carry kProductBits extra bits until the store.
template <class Store>
void radix4_stage(int32_t *d, int n, int m, const int32_t *tw, Store store) {
    const int32_t *w1 = tw;
    const int32_t *w2 = tw + 2 * m;
    const int32_t *w3 = tw + 4 * m;
    for (int base = 0; base < n; base += 4 * m) {
        int32_t *x = d + 2 * base;
        {
            C64 a[4] = {widen(load(x)), widen(load(x + 2 * m)), widen(load(x + 4 * m)),
                        widen(load(x + 6 * m))};
            radix4(a);
            for (int q = 0; q < 4; ++q) store(x + 2 * q * m, a[q].re, a[q].im);
        }
        for (int k = 1; k < m; ++k) {
            int32_t *y = x + 2 * k;
            C64 a[4] = {widen(load(y)), twiddle(load(y + 2 * m), w1 + 2 * k),
                        twiddle(load(y + 4 * m), w2 + 2 * k), twiddle(load(y + 6 * m), w3 + 2 * k)};
            radix4(a);
            for (int q = 0; q < 4; ++q) store(y + 2 * q * m, a[q].re, a[q].im);
        }
    }
}

// Length of the sub-transforms the radix-4 stage s (1..3) combines.
int sub_len(const Layout &p, int s) { return p.firstRadix << (2 * (s - 1)); }

// log2 of the transform length after stage s.
int len_bits(const Layout &p, int s) { return (p.firstRadix == 4 ? 2 : 1) + 2 * s; }

// The first stage, from the source to data with `guard` guard bits.
template <bool Swap, bool Sat>
void first_stage(const int32_t *src, int32_t *dst, const Layout &p, int guard) {
    if (guard >= 0) {
        const StoreSame<false, Sat> store;
        if (p.firstRadix == 4) {
            first_stage4<Swap>(src, dst, p, guard, store);
        } else {
            first_stage2<Swap>(src, dst, p, guard, store);
        }
    } else {
        const StoreRound<false, Sat> store{-guard};
        if (p.firstRadix == 4) {
            first_stage4<Swap>(src, dst, p, 0, store);
        } else {
            first_stage2<Swap>(src, dst, p, 0, store);
        }
    }
}

// The last stage, from data with `guard` guard bits to result * 2^-shift.
template <bool Swap>
void last_stage(int32_t *dst, const Plan &p, const Layout &l, int guard, int shift) {
    const int s = l.stages - 1;
    const int32_t *tw = p.tw + l.twOffset[s];
    const int k = kProductBits + guard + shift;
    if (k > 0) {
        radix4_stage(dst, l.n, sub_len(l, s), tw, StoreRound<Swap, true>{k > 63 ? 63 : k});
    } else {
        radix4_stage(dst, l.n, sub_len(l, s), tw, StoreLeft<Swap>{-k > 64 ? 64 : -k});
    }
}

// All stages with guard bits G - log2 len; each radix-4 stage but the last drops two of them.
template <bool Swap, bool Sat>
void stages(const int32_t *src, int32_t *dst, const Plan &p, const Layout &l, int G, int shift,
            int pre) {
    first_stage<Swap, Sat>(src, dst, l, G - len_bits(l, 0) - pre);
    for (int s = 1; s < l.stages - 1; ++s) {
        radix4_stage(dst, l.n, sub_len(l, s), p.tw + l.twOffset[s],
                     StoreRound<false, Sat>{kProductBits + 2});
    }
    last_stage<Swap>(dst, p, l, G - len_bits(l, l.stages - 2), shift);
}

// The vectorised stages for an input with headroom when the processor has them and the last
// stage's rounding shift suits them; false when the portable stages must run. known: as for
// complex_transform.
bool vectorised(const int32_t *src, int32_t *dst, const Plan &p, const Layout &l, int shift,
                bool swap, int pre, int known) {
    const int guard = l.order - 1;
    const int last = kProductBits + guard - len_bits(l, l.stages - 2) + shift;
    if (!p.vectorised || last < 1 || last > 31) return false;
    // The first stages find the headroom while they read the input (unless the caller knows it);
    // without enough of it the portable stages rewrite all of dst.
    const int h = simd::first_stages(src, dst, p, l, guard - len_bits(l, 0) - pre, swap, known);
    if (h < l.order - pre) return false;
    for (int s = 2; s < l.stages - 1; ++s) simd::middle_stage(dst, p, l, s);
    // The words of src are at most 2^(31-h) in magnitude, so the exact result DFT(src 2^-pre)
    // 2^-shift has modulus at most sqrt(2) 2^(31 + l.order - h - pre - shift). From
    // h + pre + shift > l.order on that is sqrt(2) 2^30 or less, and the roundings of the stages
    // (a few units of the result's last place) cannot take a part beyond the 32-bit range: the
    // clamp would never act and is left out. (The real-data paths' half-length transforms are
    // such cases.) A lower bound h serves as well: at worst the clamp stays, with the same bits.
    simd::last_stage(dst, p, l, last, swap, h + pre + shift > l.order);
    return true;
}

// dst = DFT(src) * 2^-shift; with Swap the re / im parts of input and output are exchanged,
// which turns the forward kernel into the unscaled inverse.
template <bool Swap>
void transform(const int32_t *src, int32_t *dst, const Plan &p, const Layout &l, int shift, int pre,
               int known) {
    if ((known >= 0 ? known : headroom(src, l.n)) >= l.order - pre) {
        stages<Swap, false>(src, dst, p, l, l.order - 1, shift, pre);
    } else {
        stages<Swap, true>(src, dst, p, l, 0, shift + pre, 0);
    }
}

bool overlap(const int32_t *a, const int32_t *b, int words) {
    const uintptr_t x = reinterpret_cast<uintptr_t>(a);
    const uintptr_t y = reinterpret_cast<uintptr_t>(b);
    const uintptr_t bytes = static_cast<uintptr_t>(words) * sizeof(int32_t);
    return x < y + bytes && y < x + bytes;
}

// Argument checks shared by both directions; the plan on success.
int32_t check(const int32_t *src, const int32_t *dst, const void *area, const Plan **plan) {
    if (src == nullptr) return kNullSrc;
    if (dst == nullptr) return kNullDst;
    if (area == nullptr) return kNullPlan;
    if (reinterpret_cast<uintptr_t>(src) % alignof(int32_t) != 0 ||
        reinterpret_cast<uintptr_t>(dst) % alignof(int32_t) != 0) {
        return kMisalignedData;
    }
    *plan = prepared(area);
    if (*plan == nullptr) return kUnprepared;
    if (overlap(src, dst, 2 * (*plan)->n)) return kOverlap;
    return kOk;
}

// Clamp a shift count to a range every store handles.
int clamp_shift(int64_t s) { return static_cast<int>(s > 64 ? 64 : (s < -65 ? -65 : s)); }

}  // namespace

int first_guard(const Layout &l) { return l.order - 1 - len_bits(l, 0); }

void complex_transform(const int32_t *src, int32_t *dst, const Plan &p, const Layout &l, int shift,
                       bool inverse, Kernels kernels, int pre, int known) {
    // A bound below what the stages need says nothing: the input is looked at.
    if (known < l.order - pre) known = -1;
    if (kernels == Kernels::Best && vectorised(src, dst, p, l, shift, inverse, pre, known)) return;
    if (inverse) {
        transform<true>(src, dst, p, l, shift, pre, known);
    } else {
        transform<false>(src, dst, p, l, shift, pre, known);
    }
}

void run_transform(const int32_t *src, int32_t *dst, const Plan &p, int shift, bool inverse,
                   Kernels kernels) {
    if (inverse ? real_inverse(src, dst, p, shift, kernels)
                : real_forward(src, dst, p, shift, kernels)) {
        return;
    }
    complex_transform(src, dst, p, p.full, shift, inverse, kernels);
}

}  // namespace sonvel::fft

using namespace sonvel::fft;

// dst = DFT(src) * 2^-scaleFactor: scaleFactor > 0 is a right shift rounding to nearest (ties
// upward), < 0 a left shift saturating to the 32-bit range. src (N complex values) is only read
// and must not overlap dst. Non-zero status for a null or misaligned array, an unprepared plan or
// overlapping arrays (nothing is written then).
extern "C" SONVEL_API int32_t Sonvel_FFTFwd_CToC_SC32_Sfs(const int32_t *src, int32_t *dst,
                                                          const void *plan, int32_t scaleFactor) {
    const Plan *p = nullptr;
    const int32_t status = check(src, dst, plan, &p);
    if (status != kOk) return status;
    run_transform(src, dst, *p, clamp_shift(scaleFactor), false, Kernels::Best);
    return kOk;
}

// dst = IDFT(src) (with the 1/N) * 2^-scaleFactor, rounded once; otherwise as the forward one.
extern "C" SONVEL_API int32_t Sonvel_FFTInv_CToC_SC32_Sfs(const int32_t *src, int32_t *dst,
                                                          const void *plan, int32_t scaleFactor) {
    const Plan *p = nullptr;
    const int32_t status = check(src, dst, plan, &p);
    if (status != kOk) return status;
    run_transform(src, dst, *p, clamp_shift(int64_t{scaleFactor} + p->order), true, Kernels::Best);
    return kOk;
}
