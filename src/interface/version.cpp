// Version record of the library: product and release, build time, toolchain.
//
// The build time comes from the compiler's __TIME__ and __DATE__. GCC and Clang take them from
// SOURCE_DATE_EPOCH when it is set, so a build can be reproduced byte for byte.
#include <cstddef>

#include "sonvel_aec.h"

namespace {

#if defined(__clang__)
#define SONVEL_TOOLCHAIN "Clang " __clang_version__
#elif defined(__GNUC__)
#define SONVEL_TOOLCHAIN "GCC " __VERSION__
#else
#define SONVEL_TOOLCHAIN "unknown toolchain"
#endif

// Copies text into a NUL-padded field, truncated so that at least one NUL ends it.
template <std::size_t N>
constexpr void put_text(char (&field)[N], const char *text) {
    std::size_t i = 0;
    for (; i + 1 < N && text[i] != '\0'; ++i) field[i] = text[i];
    for (; i < N; ++i) field[i] = '\0';
}

constexpr AecVersion make_version() {
    AecVersion v{};
    put_text(v.acProduct, "Sonvel Audio REL-01.06.0 ARM AEC");
    put_text(v.acBuildTime, __TIME__ "  " __DATE__);
    put_text(v.acToolchain, SONVEL_TOOLCHAIN);
    return v;
}

}  // namespace

extern "C" SONVEL_API constinit const AecVersion Sonvel_AEC_gastAecVersionTab = make_version();

extern "C" SONVEL_API int32_t Sonvel_AEC_GetVersion(const AecVersion **ppstVersion) {
    if (ppstVersion == nullptr) return SONVEL_AEC_ERR_VERSION_NULL;
    *ppstVersion = &Sonvel_AEC_gastAecVersionTab;
    return SONVEL_AEC_OK;
}
