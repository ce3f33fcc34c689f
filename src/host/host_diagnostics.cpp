// Diagnostic lines of the host wrapper, written to standard error.
#include "host/host_diagnostics.h"

#include <cstdio>

namespace sonvel {

void report_failure(const char *function, int line, const char *message) {
    std::fprintf(stderr, "\n\n\033[40m\033[31m\033[1m**Err In %s-%d:  %s**\033[0m\n\n", function,
                 line, message);
}

void report_init_status(int32_t status) { std::fprintf(stderr, "s32Ret is %d\n", status); }

void report_process_status(int32_t status) { std::fprintf(stderr, "s32Return is %d\n", status); }

}  // namespace sonvel
