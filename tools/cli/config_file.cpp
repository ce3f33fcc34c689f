// Configuration-file reading: lines, comments, byte-order mark, duplicate keys.
#include "cli/config_file.h"

#include <sys/stat.h>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <map>

#include "cli/error.h"

namespace cli {
namespace {

std::string trim(const std::string &s) {
    const auto first = s.find_first_not_of(" \t\r");
    if (first == std::string::npos) return {};
    const auto last = s.find_last_not_of(" \t\r");
    return s.substr(first, last - first + 1);
}

}  // namespace

std::vector<SettingText> read_config_file(const std::string &path, Settings scratch,
                                          std::vector<std::string> &warnings) {
    const std::string what = "configuration file '" + path + "'";
    struct stat st {};
    if (stat(path.c_str(), &st) != 0)
        throw Error("cannot read " + what + ": " + std::strerror(errno));
    if (S_ISDIR(st.st_mode)) throw Error("cannot read " + what + ": it is a directory");
    std::ifstream in(path);
    if (!in) throw Error("cannot read " + what + ": " + std::strerror(errno));
    std::vector<SettingText> settings;
    std::map<std::string, int> seen;  // canonical key -> line
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        if (number == 1 && line.rfind("\xEF\xBB\xBF", 0) == 0) line.erase(0, 3);
        if (const auto hash = line.find('#'); hash != std::string::npos) line.resize(hash);
        if (trim(line).empty()) continue;
        const std::string where = path + ":" + std::to_string(number);
        const auto eq = line.find('=');
        if (eq == std::string::npos) throw Error(where + ": expected 'key = value'");
        SettingText t{trim(line.substr(0, eq)), trim(line.substr(eq + 1)), where, Source::File};
        if (const std::string w = apply_setting(scratch, t); !w.empty()) warnings.push_back(w);
        const std::string key = canonical_key(t.key);
        if (const auto it = seen.find(key); it != seen.end()) {
            warnings.push_back(where + ": " + t.key + " is also set on line " +
                               std::to_string(it->second) + "; line " + std::to_string(number) +
                               " wins");
        }
        seen[key] = number;
        settings.push_back(std::move(t));
    }
    if (in.bad()) throw Error("cannot read " + what + ": " + std::strerror(errno));
    return settings;
}

}  // namespace cli
