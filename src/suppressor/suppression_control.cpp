// Overdrive control of the suppressor (stub until the control lands).
#include "sonvel_aec_stages.h"

#include "state/aec_state.h"

extern "C" SONVEL_API int32_t Sonvel_AEC_HnlCtrl(AecState *state) { return state->s16OvrdSm; }

extern "C" SONVEL_API void Sonvel_AEC_HnlCtrl1(AecState *) {}
