// Cut-off and smoothing of the shaped suppression gains: the upper band is zeroed when a band of
// bins is mostly suppressed; gains are smoothed across frequency from bin 12 on and over time in
// bins 0..11, and the top five bins are tapered down to zero.
#include <algorithm>
#include <cstdint>

#include "sonvel_aec_stages.h"

#include "fixedpoint/block_float.h"
#include "spectral/lane_check.h"
#include "state/aec_state.h"
#include "suppressor/suppressor_lanes.h"

namespace {

constexpr int16_t kWeakGain = 1638;    // 0.05 in Q15
constexpr int kHighestCutBin = 24;     // 1500 Hz at both rates
constexpr int kFirstSmoothedBin = 12;  // spectral smoothing from here, temporal below
constexpr int32_t kKeepOld = 19660;    // 0.6 in Q15
constexpr int32_t kTakeNew = 13108;    // 0.4 in Q15

// Rounded mean of the four smallest of g[-2..2].
int16_t mean_of_four_smallest(const int16_t *g) {
    int32_t sum = 0;
    int16_t top = g[-2];
    for (int d = -2; d <= 2; ++d) {
        sum += g[d];
        top = std::max(top, g[d]);
    }
    return fx::sat16((sum - top + 2) >> 2);
}

// Spectral smoothing of bins 12..c-1 from the unsmoothed gains g into t.
void smooth_across(sp::Isa isa, const int16_t *g, int16_t *t, int32_t c) {
    const int32_t count = c > kFirstSmoothedBin ? c - kFirstSmoothedBin : 0;
    if (sp::lanes_checked(isa, {{t + kFirstSmoothedBin, 2u * count}},
                          [&](sp::Isa i) { smooth_across(i, g, t, c); }))
        return;
    int32_t j = kFirstSmoothedBin;
    if (sp::lanes_on(isa)) j = sup::lanes::smooth_across(g, t, j, c);
    for (; j < c; ++j) t[j] = mean_of_four_smallest(g + j);
}

// 0.6 * old + 0.4 * new, rounded.
int16_t smooth_over_time(int16_t old, int16_t fresh) {
    const int32_t sum = fx::sat_add(kKeepOld * old + kTakeNew * fresh, 16384);
    return fx::sat16(sum >> 15);
}

}  // namespace

// Scans m[lo..hi-1] and may zero g[24..last]; the caller keeps hi within its arrays.
extern "C" SONVEL_API void Sonvel_AEC_HighFreqProc(int16_t *g, const int16_t *m, int16_t lo,
                                                   int16_t hi, int32_t last) {
    // 1. A stretch of q weak bins (a quarter of the band) starts a cut-off.
    int64_t cut = int64_t{last} + 1;
    int run = 0;
    int total = 0;
    const auto q = static_cast<int16_t>((hi - lo + 1) >> 2);

    // 2. Scan: once the stretch is long enough, every later strong bin moves the cut to itself.
    for (int i = lo; i < hi; ++i) {
        if (m[i] < kWeakGain) {
            ++run;
            ++total;
        } else if (run < q) {
            run = 0;
        } else {
            cut = i;
        }
    }

    // 3. Zero the band from the cut (bin 24 at the highest) up to last.
    if (total > (hi >> 1) && run > q) {
        for (int64_t k = std::min<int64_t>(cut, kHighestCutBin); k <= last; ++k) g[k] = 0;
    }
}

// Smooths bins 12..c-1 (reading g up to c + 1) and tapers bins last-4..last; the caller keeps
// c <= last - 1 and last <= 131.
extern "C" SONVEL_API void Sonvel_AEC_HnledSm(AecState *state, int16_t *g, int32_t c,
                                              int32_t last) {
    // 1. Working copy of the gains.
    int16_t t[sonvel::kBinWords];
    std::copy(g, g + last + 1, t);

    // 2. Spectral smoothing of bins 12..c-1 from the unsmoothed gains.
    smooth_across(sp::instance_isa(state), g, t, c);

    // 3. Temporal smoothing of bins 0..11.
    for (int k = 0; k < kFirstSmoothedBin; ++k) {
        state->as16LowGainSm[k] = smooth_over_time(state->as16LowGainSm[k], t[k]);
        t[k] = state->as16LowGainSm[k];
    }

    // 4. Back into the gains.
    std::copy(t, t + last + 1, g);

    // 5. Taper of the top five bins; the highest becomes 0.
    for (int i = 0; i <= 4; ++i) {
        int16_t &v = g[last - 4 + i];
        v = static_cast<int16_t>(v >> (3 * (i + 1)));
    }
}
