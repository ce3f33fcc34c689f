// Filter update: a constrained frequency-domain gradient step whose per-bin gradient is the error
// spectrum divided by the smoothed far-end power and scaled to one fixed magnitude. Each of the six
// partitions receives that gradient times the conjugate of its far-end spectrum, constrained in
// the time domain to the first half of the block, added with saturation. Per-bin values are
// mantissas with one Q value per part until the gradient is brought to a common Q.
#include <cstring>

#include "linear/linear_internal.h"
#include "linear/linear_loops.h"
#include "sonvel_aec_spectral.h"
#include "sonvel_aec_stages.h"
#include "spectral/kernels.h"

namespace {

// Work arrays are sized for the largest transform: N + 8 words, L + 4 bins.
constexpr int kWords = lin::kMaxFft + 8;
constexpr int kBins = lin::kMaxFft / 2 + 4;
constexpr int kShiftBase = 90;

// Per-bin reciprocal of 0.75 times the far-end power, normalised: mantissa and Q value.
struct Recip {
    int32_t man[kBins];
    int32_t q[kBins];
};

// Only the words a step reads before another one writes them are cleared per block: the two
// guard bins of G beyond the normalised error, read by the gradient power.
struct Work {
    int32_t g[kWords];   // gradient (complex)
    int32_t qg[kWords];  // Q value of every part of the gradient
    int32_t e2[kBins];   // gradient power, then the per-bin gain
    int32_t qe2[kBins];  // Q value of the gradient power
    Recip r;
    int32_t t[kWords];  // gradient of one partition
};

void clear_guard_bins(Work &wk, int n) {
    std::memset(wk.g + n + 4, 0, sizeof(int32_t) * 4);
    std::memset(wk.qg + n + 4, 0, sizeof(int32_t) * 4);
}

}  // namespace

extern "C" SONVEL_API void Sonvel_AEC_UpdateFilterParameter(AecState *state, int32_t *eblock) {
    const lin::Geometry geo = lin::geometry(*state);
    const void *plan = state->au8FftPlan;
    const sp::Isa isa = sp::instance_isa(state);
    const int guard = 16 - geo.s;
    Work wk;
    clear_guard_bins(wk, geo.n);

    // 1. Error spectrum E; words N+2, N+3 (the guard bin) keep what the echo estimate left.
    Sonvel_AEC_Realfft(eblock, geo.n, plan);

    // 2. Reciprocal of the far-end power.
    lin::reciprocal_far_power(isa, state->aiFarPow, geo.l + 4, geo.s, wk.r.man, wk.r.q);

    // 3. Normalised error G with one Q value per part.
    lin::normalised_error(isa, eblock, wk.r.man, wk.r.q, geo.l + 2, wk.g, wk.qg);

    // 4. Gradient power with a common Q per bin.
    sp::energy_dq_f(isa, wk.g, wk.qg, wk.e2, wk.qe2, geo.l + 4);

    // 5.-6. Constant-magnitude gain, applied to G.
    lin::constant_magnitude_gain(isa, wk.e2, wk.qe2, geo.l + 4);
    lin::apply_gain(isa, wk.g, wk.e2, geo.l + 4);

    // 7.-8. One Q value for the whole gradient.
    const int minQ = lin::common_q(isa, wk.g, wk.qg, geo.n + 2);
    lin::align_to_q(isa, wk.g, wk.qg, geo.n + 4, minQ);

    // 9. Normalise G to full scale.
    const int hG = sp::vector_norm(isa, wk.g, 0, geo.n + 2);

    // 10. Constrained gradient of each partition, added into the filter.
    for (int p = geo.start; p < geo.start + lin::kParts; ++p) {
        int32_t *t = wk.t;
        sp::complex_conj_mult(isa, wk.g, state->aiFarSpecHist[p], t, geo.l + 2);
        const int h1 = sp::vector_norm(isa, t, guard, geo.n + 2);
        Sonvel_AEC_Realifft(t, geo.n, plan);
        std::memset(t + geo.l, 0, sizeof(int32_t) * static_cast<size_t>(geo.n - geo.l));
        const int h2 = sp::block_headroom(isa, t, geo.l);
        sp::shift_block(isa, t, geo.l, h2 - guard);
        Sonvel_AEC_Realfft(t, geo.n, plan);
        const auto shift = static_cast<int16_t>(kShiftBase - 3 * geo.s - h1 - h2 - hG - minQ);
        lin::accumulate_into_filter(isa, state->aiFiltPart[p], t, geo.n + 2, shift);
    }
}
