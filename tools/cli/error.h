// The tool's error type: one message for the user, naming the file or parameter and the reason.
#pragma once

#include <stdexcept>
#include <string>

namespace cli {

struct Error : std::runtime_error {
    explicit Error(const std::string &message) : std::runtime_error(message) {}
};

// A mistake in the command line itself (exit status 2 and a hint to --help).
struct UsageError : Error {
    explicit UsageError(const std::string &message) : Error(message) {}
};

}  // namespace cli
