/* What a program may rely on at compile time and at run time: the release the headers name
 * (SONVEL_AEC_VERSION_*) is the one the library reports in its version record, and the library
 * explains a refused parameter record in words. The headers are included by their bare names, as
 * programs written for earlier releases do: through pkg-config or find_package(SonvelAec) they
 * come from include/sonvel_aec/; with only the prefix's include/ directory, through the forwarding
 * headers kept at the old flat path. Exits non-zero on any mismatch. */
#include <stdio.h>
#include <string.h>

#include "sonvel_aec.h"
#include "sonvel_aec_frontend.h"
#include "sonvel_aec_host.h"

#if SONVEL_AEC_VERSION < 10600
#error "these headers predate the release macros"
#endif

int main(void) {
    const AecVersion *v = NULL;
    char release[32];
    snprintf(release, sizeof release, "REL-%02d.%02d.%d", SONVEL_AEC_VERSION_MAJOR,
             SONVEL_AEC_VERSION_MINOR, SONVEL_AEC_VERSION_PATCH);
    if (Sonvel_AEC_GetVersion(&v) != SONVEL_AEC_OK || strstr(v->acProduct, release) == NULL) {
        fprintf(stderr, "the library does not report %s\n", release);
        return 1;
    }
    printf("headers %d.%d.%d (%d), library \"%s\", plug-in \"%s\"\n", SONVEL_AEC_VERSION_MAJOR,
           SONVEL_AEC_VERSION_MINOR, SONVEL_AEC_VERSION_PATCH, SONVEL_AEC_VERSION, v->acProduct,
           g_Audio_AEC_WorkHandle.acName);

    AecCfg cfg = Sonvel_AEC_gastMrvAecCfgTab;
    cfg.u8NlpLevel = 3;
    const int32_t rc = Sonvel_AEC_Check(&cfg);
    const char *text = Sonvel_AEC_StatusText(rc);
    printf("u8NlpLevel = 3: %s (status %d)\n", text, (int)rc);
    printf("status %d: %s\n", SONVEL_AEC_ERR_FE_DELAY_MS,
           Sonvel_AEC_StatusText(SONVEL_AEC_ERR_FE_DELAY_MS));
    return rc == SONVEL_AEC_ERR_CFG_NLP_LEVEL && strstr(text, "u8NlpLevel") != NULL ? 0 : 1;
}
