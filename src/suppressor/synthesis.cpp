// Windowed overlap-add synthesis of the suppressor's output (stub until the synthesis lands).
#include "sonvel_aec_stages.h"

#include "state/aec_state.h"

extern "C" SONVEL_API int32_t Sonvel_AEC_OutPutSmooth(AecState *, int32_t *, const int16_t *,
                                                      int32_t *, int16_t *) {
    return 0;
}
