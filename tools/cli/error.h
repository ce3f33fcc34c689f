// The tool's error types (one message for the user, naming the file or parameter and the reason)
// and its warnings.
#pragma once

#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace cli {

struct Error : std::runtime_error {
    explicit Error(const std::string &message) : std::runtime_error(message) {}
};

// A mistake in the command line itself (exit status 2 and a hint to --help).
struct UsageError : Error {
    explicit UsageError(const std::string &message) : Error(message) {}
};

// Prints warnings on standard error, one line each ("note: ..." lines as they are).
inline void print_warnings(const std::vector<std::string> &warnings) {
    for (const std::string &w : warnings) {
        std::cerr << "sonvel-aec: " << (w.rfind("note: ", 0) == 0 ? "" : "warning: ") << w << "\n";
    }
}

}  // namespace cli
