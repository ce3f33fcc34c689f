// Instance memory: size query, initialisation of the header and the processing state.
#include "sonvel_aec.h"

extern "C" SONVEL_API int32_t Sonvel_AEC_GetSize(uint32_t *size, uint32_t *) {
    *size = SONVEL_AEC_INSTANCE_BYTES;
    return 0;
}
extern "C" SONVEL_API int32_t Sonvel_AEC_Init(void **, void *, uint32_t, const AecCfg *) { return 0; }
extern "C" SONVEL_API int32_t Sonvel_AEC_Check8Align(const void *) { return 1; }
extern "C" SONVEL_API int32_t Sonvel_AEC_SUB_Init(void *, const AecCfg *, int32_t) { return 0; }
