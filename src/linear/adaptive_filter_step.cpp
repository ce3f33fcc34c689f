// Per-block step of the linear echo canceller (placeholder until the adaptive filter lands).
#include "sonvel_aec_stages.h"

#include "state/aec_state.h"

extern "C" SONVEL_API int32_t Sonvel_AEC_Mdf(AecState *, const int16_t *, const int16_t *) {
    return 0;
}
