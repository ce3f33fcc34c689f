// Frame scheduler: turns 10 ms frames into processing blocks.
#include "sonvel_aec.h"

extern "C" SONVEL_API const int16_t Sonvel_AEC_gasAecPro8K[4][6] = {};
extern "C" SONVEL_API const int16_t Sonvel_AEC_gasAecPro16K[4][6] = {};

extern "C" SONVEL_API int32_t Sonvel_AEC_Apply(void *, const int16_t *, const int16_t *, int16_t *) { return 0; }
extern "C" SONVEL_API int32_t Sonvel_AEC_SUB_Proc(void *, const int16_t *, const int16_t *, int16_t *) { return 0; }
