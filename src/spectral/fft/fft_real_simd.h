// Vectorised steps of the FFT service's real-data paths (AVX2 on x86-64, NEON on aarch64): the
// recognition of a real input while it is packed, unpacking, the split step with the mirrored
// upper half, the merge step with the recognition of a conjugate-symmetric input, and the merge's
// rounding. Each computes exactly what the portable steps in fft_real_paths.cpp compute;
// kRealSteps is false where there are none (there the portable steps serve).
#pragma once

#include <cstdint>

namespace sonvel::fft::simd {

#if (defined(__x86_64__) && defined(__GNUC__)) || defined(__aarch64__)
inline constexpr bool kRealSteps = true;
#else
inline constexpr bool kRealSteps = false;
#endif

// z[t] = (x[2t], x[2t+1]) for the real parts x of N complex values in src, t < N/2; returns the
// headroom of x, or -1 when an imaginary part is not zero (z is written anyway).
int pack_real(const int32_t *src, int32_t *z, int n);

// dst[4t..4t+3] = (Re z[t], 0, Im z[t], 0), t < m (a multiple of 8), from the front (z may lie in
// dst's upper half).
void unpack_real(const int32_t *z, int32_t *dst, int m);

// The split step's bins 1..M/2 and M/2..M-1 from spectrum (bins 0..M-1), rounded by 2^-k, k in
// 5..32, and with them bins N-b = conj(bin b) (M+1..N-1); bins 0 and M are left to the caller.
void split(const int32_t *spectrum, const int32_t *w, int32_t *dst, int m, int k);

// The merge step's bins 1..M-1 as 32-bit words into out (bins 0 and M are the caller's), with the
// recognition of the input's other bins: whether bins M+1..N-1 are the conjugates of bins
// M-1..1, and the OR of the magnitude bits (or bits with the same highest set bit) of the parts
// of bins 1..M-1 and of the words written. With log2 N >= 7 bits of headroom in src the words
// are the portable step's 64-bit results, which fit: |S 2^kProductBits| <= 2^29 and
// |t| <= sqrt(2) 2^29 + 1. Without it they are of no use, and the caller discards them.
struct Merged {
    bool symmetric;
    uint32_t inputBits;
    uint32_t outputBits;
};
Merged merge(const int32_t *src, const int32_t *w, int32_t *out, int m);

// v[i] rounded by 2^-k (1..5) in place, i < n, n a multiple of 32 (the sums with the rounding
// half fit 32 bits).
void round_words(int32_t *v, int n, int k);

}  // namespace sonvel::fft::simd
