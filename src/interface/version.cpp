// Version record of the library.
#include "sonvel_aec.h"

extern "C" SONVEL_API const AecVersion Sonvel_AEC_gastAecVersionTab = {"Sonvel Audio REL-01.06.0 ARM AEC", "", ""};

extern "C" SONVEL_API int32_t Sonvel_AEC_GetVersion(const AecVersion **) { return 0; }
