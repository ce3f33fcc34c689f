// Diagnostics of the host wrapper: one coloured line on standard error per failure, with the
// function name, a fixed line number and a message, optionally followed by the core status.
#pragma once

#include <cstdint>

namespace sonvel {

void report_failure(const char *function, int line, const char *message);
// "s32Ret is %d\n" after a failed initialisation.
void report_init_status(int32_t status);
// "s32Return is %d\n" after a failed frame.
void report_process_status(int32_t status);

}  // namespace sonvel
