// Search for the filter partition with the largest energy; its slot index stands for the delay of
// the dominant echo path in blocks. Runs every 10 blocks at 8000 Hz and every 20 at 16000 Hz.
#include <algorithm>
#include <cstdint>

#include "linear/linear_internal.h"
#include "sonvel_aec_stages.h"

namespace {

inline float bin_energy(const int32_t *w, int bin) {
    const float re = fx::i2f(w[2 * bin]);
    const float im = fx::i2f(w[2 * bin + 1]);
    const float rr = re * re;
    const float ii = im * im;
    return rr + ii;
}

// Energy of one partition over bins 1..4K+1 in single precision: four interleaved running sums,
// combined pairwise, then the last bin's real and imaginary squares joined to either pair.
float partition_energy(const int32_t *w, int k) {
    float acc[4] = {0.0f, 0.0f, 0.0f, 0.0f};
    for (int j = 0; j < k; ++j) {
        for (int i = 0; i < 4; ++i) acc[i] += bin_energy(w, 1 + 4 * j + i);
    }
    const float t0 = acc[0] + acc[2];
    const float t1 = acc[1] + acc[3];
    const int last = 4 * k + 1;
    const float re = fx::i2f(w[2 * last]);
    const float im = fx::i2f(w[2 * last + 1]);
    const float rr = re * re;
    const float ii = im * im;
    const float lo = t0 + rr;
    const float hi = t1 + ii;
    return lo + hi;
}

}  // namespace

extern "C" SONVEL_API void Sonvel_AEC_FilterDelayEstimate(AecState *state) {
    // 1. Count blocks; search only when the period is complete.
    state->s32PartSearchCnt =
        static_cast<int32_t>(static_cast<uint32_t>(state->s32PartSearchCnt) + 1u);
    if (state->s32PartSearchCnt != int64_t{10} * state->s32RateFactor) return;

    // 2. Restart the period.
    state->s32PartSearchCnt = 0;
    float best = 0.0f;

    // 3. Bins 1..61 at 8000 Hz, 1..113 at 16000 Hz.
    const int k = state->s16HalfFftLen == 64 ? 15 : 28;

    // 4.-5. Strictly larger energy wins, so ties and an all-zero filter keep the earlier index.
    const int start = lin::geometry(*state).start;
    for (int p = start; p < start + lin::kParts; ++p) {
        const float e = partition_energy(state->aiFiltPart[p], k);
        if (e > best) {
            best = e;
            state->s32MaxPartIdx = p;
        }
    }
}
