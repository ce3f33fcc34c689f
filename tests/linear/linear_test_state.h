// A zeroed processing state with the rate-derived sizes and the FFT plan set, for exercising the
// linear canceller's stage functions without the core interface.
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <random>

#include "sonvel_aec_fft.h"
#include "spectral/processor.h"
#include "state/aec_state.h"

namespace lintest {

struct Rate {
    int n, l, order, s, factor;  // transform length, block length, log2 N, rate shift, rate factor
};

inline constexpr Rate k8k{128, 64, 7, 8, 1};
inline constexpr Rate k16k{256, 128, 8, 7, 2};
inline constexpr Rate kRates[] = {k8k, k16k};

inline std::unique_ptr<AecState> make_state(const Rate &r, int startPart = 0) {
    auto st = std::make_unique<AecState>();
    std::memset(st.get(), 0, sizeof(AecState));
    st->s16FftLen = st->s16FftLen2 = static_cast<int16_t>(r.n);
    st->s16BlockLen = st->s16HalfFftLen = static_cast<int16_t>(r.l);
    st->s16FftOrder = static_cast<int16_t>(r.order);
    st->s16RateShift = static_cast<int16_t>(r.s);
    st->s32RateFactor = r.factor;
    st->s16StartPart = static_cast<int16_t>(startPart);
    Sonvel_FFTInit_C_SC32(st->au8FftPlan, r.order);
    st->s32LanePath = static_cast<int32_t>(sp::probe_isa());
    return st;
}

// Packed spectrum of random bins 0..N/2 with magnitudes below 2^bits; guard words stay 0.
inline void random_spectrum(int32_t *slot, const Rate &r, int bits, std::mt19937 &rng) {
    std::uniform_int_distribution<int32_t> d(-(1 << bits), (1 << bits) - 1);
    for (int w = 0; w < r.n + 2; ++w) slot[w] = d(rng);
}

inline void random_block(int16_t *x, int n, int amplitude, std::mt19937 &rng) {
    std::uniform_int_distribution<int> d(-amplitude, amplitude);
    for (int i = 0; i < n; ++i) x[i] = static_cast<int16_t>(d(rng));
}

}  // namespace lintest
