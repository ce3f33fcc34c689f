// The real FFT pair's loops for x86-64 with AVX2: zero-extension of four samples to four complex
// values, the mirrored half spectrum four bins per step (bin order reversed by one permute) and
// the real parts of eight values per step.
#include "spectral/real_fft_vec.h"

#if defined(__x86_64__)

#include "spectral/simd_avx2.h"

namespace sp::vec {
namespace {

using simd::V;

// Four samples zero-extended to 64 bits are four complex values with zero imaginary parts.
SONVEL_LANES_TARGET inline V widen4(const int32_t *p) {
    return _mm256_cvtepu32_epi64(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p)));
}

}  // namespace

SONVEL_LANES_TARGET int32_t real_to_complex(const int32_t *buf, int32_t *c, int32_t n) {
    int32_t i = 0;
    for (; i + 8 <= n; i += 8) {
        simd::store8(c + 2 * i, widen4(buf + i));
        simd::store8(c + 2 * i + 8, widen4(buf + i + 4));
    }
    return i;
}

// Output bins k..k+3 read source bins n-k-3 .. n-k, which the permute puts in reverse order.
SONVEL_LANES_TARGET int32_t mirror_bins(const int32_t *buf, int32_t *c, int32_t n) {
    int32_t k = n / 2 + 1;
    for (; k + 3 <= n - 2; k += 4) {
        const V x = _mm256_permute4x64_epi64(simd::load8(buf + 2 * (n - k - 3)), 0x1B);
        simd::store8(c + 2 * k, simd::conj_sat32(x));
    }
    return k;
}

SONVEL_LANES_TARGET int32_t real_parts(const int32_t *c, int32_t *buf, int32_t n) {
    int32_t i = 0;
    for (; i + 8 <= n; i += 8) {
        V re;
        V im;
        simd::load_bins8(c + 2 * i, re, im);
        simd::store8(buf + i, re);
    }
    return i;
}

}  // namespace sp::vec

#endif
