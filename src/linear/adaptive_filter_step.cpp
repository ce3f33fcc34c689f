// Per-block step of the linear echo canceller: buffers the block, transforms the far end, keeps
// the smoothed far-end power, measures both levels and runs the activity detectors, stores the
// far-end spectrum in the history, forms the echo estimate and error, adapts the filter and
// periodically looks for the dominant partition.
#include <cstring>

#include "linear/linear_internal.h"
#include "sonvel_aec_spectral.h"
#include "sonvel_aec_stages.h"

namespace {

// The far-end level judged by the detector is the one of the dominant echo path's delay.
constexpr int kLevelHist = 24;

void push_level(int16_t *hist, int16_t level) {
    std::memmove(hist + 1, hist, sizeof(int16_t) * (kLevelHist - 1));
    hist[0] = level;
}

}  // namespace

extern "C" SONVEL_API int32_t Sonvel_AEC_Mdf(AecState *state, const int16_t *near,
                                             const int16_t *far) {
    const lin::Geometry g = lin::geometry(*state);
    const sp::Isa isa = sp::instance_isa(state);
    int32_t f[lin::kFarWords] = {};
    int32_t y[lin::kErrWords] = {};

    // 1. Current halves of the time buffers.
    std::memcpy(state->as16FarTimeBuf + g.l, far, sizeof(int16_t) * static_cast<size_t>(g.l));
    std::memcpy(state->as16NearTimeBuf + g.l, near, sizeof(int16_t) * static_cast<size_t>(g.l));

    // 2.-3. Far-end spectrum of the last two blocks.
    lin::widen_shifted(isa, state->as16FarTimeBuf, g.n + 4, g.s, f);
    Sonvel_AEC_Realfft(f, g.n, state->au8FftPlan);

    // 4. Smoothed far-end power.
    Sonvel_AEC_Energy(state, f, state->aiFarPow);

    // 5.-6. Levels of both blocks; far-end levels are kept for the last 24 blocks.
    state->s16NearLevel = lin::block_level(isa, near, g.l);
    push_level(state->as16FarLevelHist, lin::block_level(isa, far, g.l));

    // 7.-8. Activity of the near end now and of the far end at the echo path's delay.
    Sonvel_AEC_Vad(state, state->as16NearVadSt, state->s16NearLevel, &state->s16NearActive);
    const int delay = std::clamp<int32_t>(state->s32MaxPartIdx, 0, kLevelHist - 1);
    Sonvel_AEC_Vad(state, state->as16FarVadSt, state->as16FarLevelHist[delay],
                   &state->s16FarActive);

    // 9. Newest far-end spectrum into history slot 0.
    std::memcpy(state->aiFarSpecHist[0], f, sizeof(int32_t) * static_cast<size_t>(g.n + 2));

    // 10.-11. Echo estimate and error, then the filter update.
    Sonvel_AEC_MdfFilter(state, y, near);
    Sonvel_AEC_UpdateFilterParameter(state, y);

    // 12. Dominant partition.
    Sonvel_AEC_FilterDelayEstimate(state);
    return 0;
}
