// Parameter record: the default table, validation, and setting / reading the parameters of a live
// instance.
#include "sonvel_aec.h"

extern "C" SONVEL_API const AecCfg Sonvel_AEC_gastMrvAecCfgTab = {
    1, 0, 1, 0, 1, 25000, 7, 38, 47, 72, {4, 6, 36, 49, 49, 49}, 3, 6, {7, 10, 16, 10, 18, 18, 18}};

extern "C" SONVEL_API int32_t Sonvel_AEC_Check(const AecCfg *) { return 0; }
extern "C" SONVEL_API int32_t Sonvel_AEC_SetParams(void *, const AecCfg *) { return 0; }
extern "C" SONVEL_API int32_t Sonvel_AEC_GetParams(void *, AecCfg *) { return 0; }
