// Echo estimate of the partitioned-block filter in overlap-save form: the far-end spectra of the
// last blocks times the filter partitions, summed, normalised, transformed back; the second half
// of the block is the estimate, and the error (near end minus estimate) is left in the work
// buffer as [L zeros, L error samples] for the filter update.
#include <cstring>

#include "linear/linear_internal.h"
#include "linear/linear_loops.h"
#include "sonvel_aec_spectral.h"
#include "sonvel_aec_stages.h"
#include "spectral/kernels.h"

extern "C" SONVEL_API void Sonvel_AEC_MdfFilter(AecState *state, int32_t *y, const int16_t *near) {
    const lin::Geometry g = lin::geometry(*state);

    // 1. Clear the spectrum accumulator.
    std::memset(y, 0, sizeof(int32_t) * static_cast<size_t>(g.n + 2));

    // 2. Y = sum over the six partitions of rnd_31(X_p * W_p), saturating, oldest slot last.
    const sp::Isa isa = sp::instance_isa(state);
    sp::complex_mla_sum(isa, state->aiFarSpecHist[g.start], state->aiFiltPart[g.start],
                        sonvel::kSpecSlotWords, lin::kParts, y, g.l + 2);

    // 3. Leave log2 N guard bits for the inverse transform.
    const int h = sp::vector_norm(isa, y, g.order, g.n + 1);

    // 4. Back to the time domain.
    Sonvel_AEC_Realifft(y, g.n, state->au8FftPlan);

    // 5. Undo the normalisation (with a gain of 2^4) on the second half, subtract from the
    //    near end, and rebuild the buffer as [0, error].
    const int undo = g.order - h + 4;
    lin::estimate_and_error(isa, y, near, g.l, undo, g.s, state->ai32EchoEst, state->ai32ErrBlk);

    // 6. Optional clearing of the tail of the error block.
    const int clearFrom = std::max<int>(state->s16FftLen2, 0);
    if (clearFrom < g.n) {
        std::memset(y + clearFrom, 0, sizeof(int32_t) * static_cast<size_t>(g.n - clearFrom));
    }
}
