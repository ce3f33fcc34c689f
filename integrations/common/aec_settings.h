// Settings of the framework plug-ins: the canceller's parameter record plus the front end's
// record, set by "key = value" arguments under the same names as the command-line tool's options
// (and the record's own field names), checked by the library, and explained when refused.
// Runs on the control thread only (it allocates); the audio thread only reads finished records.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "sonvel_aec.h"
#include "sonvel_aec_frontend.h"

namespace sonvel::integration {

struct Settings {
    AecCfg core;
    AecFrontendCfg frontend;
};

// What a live user needs at 8000 or 16000 Hz: the library's record at that rate, automatic
// reference delay, DC block on, drift following on.
Settings live_defaults(uint32_t rate);

// How a key's value is shown to a framework (property type).
enum class KeyKind { Switch, Integer, Text };

struct KeyInfo {
    const char *name;
    KeyKind kind;
    int32_t min, max;  // Integer keys
    const char *description;
};

// The keys under their option names (the record's field names are accepted too, not listed).
const std::vector<KeyInfo> &option_keys();

// True for the option keys, the front end's keys and the record's field names.
bool is_known_key(std::string_view key);

// The outcome of applying arguments: messages for the framework's log.
struct Messages {
    std::vector<std::string> warnings;
    std::vector<std::string> errors;
};

// Applies one argument to `s`. An unknown key adds a warning naming it; an unreadable value
// adds an error naming the key and what it takes. Returns true when `s` changed.
bool apply_arg(Settings &s, std::string_view key, std::string_view value, Messages &m);

// Validates the records with the library. On refusal adds an error naming the field, its value,
// the allowed range and the status code, and returns false.
bool check_settings(const Settings &s, Messages &m);

// Applies a list of arguments to a copy of `s` and checks it; `s` takes the result only when
// every value was readable and the library accepts it. Returns true when `s` was replaced.
bool apply_args(Settings &s, const std::vector<std::pair<std::string, std::string>> &args,
                Messages &m);

// The current value of an option key as text (what apply_arg reads back the same).
std::string format_value(const Settings &s, std::string_view key);

// Field name and allowed range of a refusal status of Sonvel_AEC_Check (empty field otherwise).
struct Refusal {
    std::string field;
    std::string range;
};
Refusal explain_refusal(int32_t status, const AecCfg &cfg);

}  // namespace sonvel::integration
