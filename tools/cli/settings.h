// The settings a run is made of, by key: the canceller's record fields and the front end's modes.
// A key is a tool option's name without its dashes ("suppression-level", "ref-delay") or a record
// field's name ("u8NlpLevel", "as16BandShift[3]"); the command line and configuration files go
// through the same parsing, so they accept the same values and give the same messages.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "sonvel_aec.h"
#include "sonvel_aec_frontend.h"

namespace cli {

// What the front end does in front of the core. All off: the pure core runs.
struct FrontendSettings {
    enum class Delay { Off, Fixed, Auto };
    Delay delay = Delay::Off;
    int delay_ms = 0;
    bool dc_block = false;
    bool drift = false;
    bool active() const { return delay != Delay::Off || dc_block || drift; }
    AecFrontendCfg record() const;
};

struct Settings {
    AecCfg cfg{};
    FrontendSettings fe;
};

// Where a value comes from: a mistake on the command line is a usage error (exit status 2), one in
// a configuration file an input error (exit status 1).
enum class Source { CommandLine, File };

// One "key = value" as given, with where it was given ("--suppression-level", "a.cfg:3").
struct SettingText {
    std::string key, value, where;
    Source source;
};

// True when `key` names a setting (option name without dashes, or a field name with an optional
// [index]); is_option_key only for the option names.
bool is_setting_key(std::string_view key);
bool is_option_key(std::string_view key);

// The canonical name of a key: the record field (with its index) or the front-end option, so that
// "suppression-level" and "u8NlpLevel" are recognised as the same setting.
std::string canonical_key(std::string_view key);

// Parses and stores one setting; throws UsageError (command line) or Error (file) naming `where`,
// the option's allowed values and the value given. Returns a warning to print, or "".
std::string apply_setting(Settings &s, const SettingText &given);

// The closest known key to a mistyped one ("" when nothing is close): among every key, or among
// `extra` (a command's own options, without dashes) and, with `settings`, the option names.
std::string suggest_key(std::string_view key);
std::string suggest_option(std::string_view key, const std::vector<std::string> &extra,
                           bool settings);

// Help lines of the parameter and front-end options.
std::string setting_option_help();

// The settings as "key = value" lines (the format configuration files use).
std::string format_settings(const Settings &s);

}  // namespace cli
