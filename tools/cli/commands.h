// The tool's commands; each returns the process exit status and throws Error on failure.
#pragma once

#include <string>
#include <vector>

namespace cli {

int process_command(const std::vector<std::string> &args);
int analyze_command(const std::vector<std::string> &args);
int demo_command(const std::vector<std::string> &args);

}  // namespace cli
