// Host plug-in wrapper.
#include "sonvel_aec_host.h"

extern "C" SONVEL_API int32_t KX_AEC_Init(void **, int32_t, const KxAecHostConfig *) { return -1; }
extern "C" SONVEL_API int32_t KX_AEC_Process(void *, const KxAecFrame *, KxAecFrame *) { return -1; }
extern "C" SONVEL_API int32_t KX_AEC_DeInit(void *) { return 0; }

extern "C" SONVEL_API const KxAecWorkHandle g_Audio_AEC_WorkHandle = {"AEC", KX_AEC_Init, KX_AEC_Process, KX_AEC_DeInit};
