// Configuration files: "key = value" lines with the keys and values the command line accepts.
#pragma once

#include <string>
#include <vector>

#include "cli/settings.h"

namespace cli {

// Reads the settings of a file ('#' starts a comment, a UTF-8 byte-order mark is skipped), checks
// each one against `scratch` and returns them in order. Warnings (a key set twice, a band shift
// outside its useful range) go to `warnings`. Throws Error for an unreadable file, a directory, a
// malformed line, an unknown key (with a suggestion) or a value that is not allowed.
std::vector<SettingText> read_config_file(const std::string &path, Settings scratch,
                                          std::vector<std::string> &warnings);

}  // namespace cli
