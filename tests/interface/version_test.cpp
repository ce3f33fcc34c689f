// Release numbers: the header's macros, their combined number and the version record the library
// reports name the same release (CMake checks the macros against the project's version when it
// configures).

#include <cstdio>
#include <string>

#include <gtest/gtest.h>
#include "sonvel_aec.h"

namespace {

static_assert(SONVEL_AEC_VERSION == SONVEL_AEC_VERSION_MAJOR * 10000 +
                                        SONVEL_AEC_VERSION_MINOR * 100 + SONVEL_AEC_VERSION_PATCH);
#if SONVEL_AEC_VERSION < 10600
#error "the combined number must work in preprocessor comparisons"
#endif

TEST(Version, RecordNamesTheReleaseOfTheHeader) {
    const AecVersion *v = nullptr;
    ASSERT_EQ(Sonvel_AEC_GetVersion(&v), SONVEL_AEC_OK);
    char release[32];
    std::snprintf(release, sizeof release, "REL-%02d.%02d.%d", SONVEL_AEC_VERSION_MAJOR,
                  SONVEL_AEC_VERSION_MINOR, SONVEL_AEC_VERSION_PATCH);
    EXPECT_NE(std::string(v->acProduct).find(release), std::string::npos)
        << v->acProduct << " does not name " << release;
}

}  // namespace
