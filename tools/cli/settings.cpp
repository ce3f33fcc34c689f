// Settings by key: one table of the parameter and front-end options with their allowed values, the
// parsing of a value in the option's own language, and key suggestions.
#include "cli/settings.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <sstream>

#include "cli/error.h"
#include "cli/params.h"

namespace cli {
namespace {

enum class Kind { Integer, OnOff, Fraction };

// A parameter option: `count` values stored from the record field `field` on, each in lo..hi.
struct ParamSpec {
    const char *option;
    const char *field;
    int count;
    Kind kind;
    long lo, hi;
    const char *metavar;
    const char *help;
};

constexpr long kMaxBin = 256;  // bins of the 16000 Hz spectrum; the library checks the rate's own

constexpr ParamSpec kParams[] = {
    {"comfort-noise", "u8CnEnable", 1, Kind::OnOff, 0, 1, "on|off",
     "comfort noise in suppressed parts"},
    {"suppression-level", "u8NlpLevel", 1, Kind::Integer, 0, 2, "0..2",
     "far-end level below which the near end passes"},
    {"high-freq-mode", "u8HighFreqMode", 1, Kind::Integer, 0, 1, "0|1",
     "high-frequency gain shaping mode"},
    {"start-part", "u8StartPart", 1, Kind::Integer, 0, 6, "0..6",
     "bulk delay of the echo filter, in 8 ms blocks"},
    {"coh-threshold", "s16CohThr", 1, Kind::Fraction, 0, 32767, "0..32767|0.x",
     "incoherence threshold of raised suppression (Q15 or a fraction)"},
    {"coh-band", "s16CohBinLo", 2, Kind::Integer, 0, kMaxBin, "LO,HI",
     "bins LO..HI-1 of the mean incoherence"},
    {"hf-band", "s16HfBinLo", 2, Kind::Integer, 0, kMaxBin, "LO,HI",
     "bins examined by the upper-band cut-off"},
    {"band-edges", "as16BandEdge", 6, Kind::Integer, 0, kMaxBin, "E0,..,E5",
     "edges of the seven coupling bands (bins)"},
    {"band-shifts", "as16BandShift", 7, Kind::Integer, INT16_MIN, INT16_MAX, "H0,..,H6",
     "coupling gain 4*2^H (Q15) of each band"},
    {"clamp-bins", "s16ClampBinLo", 2, Kind::Integer, 0, kMaxBin, "LO,HI",
     "overdrive caps: 2.0 up to LO, 3.0 up to HI"},
};

// Band shifts act modulo 32 and above about 22 lower the suppression again.
constexpr long kShiftMonotonicHi = 22;

constexpr const char *kFrontendKeys[] = {"ref-delay", "dc-block", "drift"};

std::string lower(std::string_view s) {
    std::string r(s);
    for (char &c : r) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return r;
}

std::string_view trim(std::string_view s) {
    const auto first = s.find_first_not_of(" \t\r");
    if (first == std::string_view::npos) return {};
    const auto last = s.find_last_not_of(" \t\r");
    return s.substr(first, last - first + 1);
}

[[noreturn]] void fail(const SettingText &t, const std::string &why) {
    const std::string m = t.where + ": " + why;
    if (t.source == Source::CommandLine) throw UsageError(m);
    throw Error(m);
}

// "on"/"off" in any case, and the synonyms yes/no, true/false, 1/0.
int parse_on_off(const SettingText &t, std::string_view text) {
    const std::string v = lower(trim(text));
    if (v == "on" || v == "yes" || v == "true" || v == "1") return 1;
    if (v == "off" || v == "no" || v == "false" || v == "0") return 0;
    fail(t, "expected on or off, got '" + std::string(trim(text)) + "'");
}

long parse_value(const SettingText &t, const ParamSpec &p, std::string_view text) {
    const std::string s(trim(text));
    const std::string range = std::to_string(p.lo) + ".." + std::to_string(p.hi);
    if (p.kind == Kind::OnOff) return parse_on_off(t, s);
    if (p.kind == Kind::Fraction && s.find('.') != std::string::npos) {
        char *end = nullptr;
        const double v = std::strtod(s.c_str(), &end);
        if (s.empty() || *end != '\0' || !(v >= 0.0 && v <= 1.0))
            fail(t, "expected a fraction 0..1 or an integer " + range + ", got '" + s + "'");
        return std::lround(std::min(v * 32768.0, 32767.0));
    }
    char *end = nullptr;
    errno = 0;
    const long v = std::strtol(s.c_str(), &end, 0);
    if (s.empty() || *end != '\0' || errno != 0)
        fail(t, "expected an integer " + range + ", got '" + s + "'");
    if (v < p.lo || v > p.hi) fail(t, s + " is outside " + range);
    return v;
}

std::vector<std::string_view> split(std::string_view text) {
    std::vector<std::string_view> parts;
    for (std::size_t start = 0;;) {
        const auto comma = text.find(',', start);
        parts.push_back(
            text.substr(start, comma == std::string_view::npos ? comma : comma - start));
        if (comma == std::string_view::npos) break;
        start = comma + 1;
    }
    return parts;
}

// A key resolved: the parameter, the first element and how many elements it sets.
struct Target {
    const ParamSpec *param = nullptr;
    int first = 0;
    int count = 0;
};

// "suppression-level", "u8NlpLevel", "s16CohBinHi" (second of a pair), "as16BandShift[3]".
Target find_target(std::string_view key) {
    int index = -1;
    if (const auto br = key.find('['); br != std::string_view::npos && key.back() == ']') {
        const std::string digits(key.substr(br + 1, key.size() - br - 2));
        if (digits.empty() || digits.find_first_not_of("0123456789") != std::string::npos)
            return {};
        index = std::atoi(digits.c_str());
        key = key.substr(0, br);
    }
    for (const ParamSpec &p : kParams) {
        if (key == p.option && index < 0) return {&p, 0, p.count};
        const Field *f = find_field(p.field);
        if (key == p.field) {
            if (f->count == 1 && index < 0) return {&p, 0, 1};
            if (f->count > 1 && index < 0) return {&p, 0, f->count};
            if (f->count > 1 && index < f->count) return {&p, index, 1};
            return {};
        }
        // The second field of a LO,HI pair (s16CohBinHi ...) follows the first.
        if (p.count == 2 && f->count == 1) {
            const Field *second = &f[1];
            if (key == second->name && index < 0) return {&p, 1, 1};
        }
    }
    return {};
}

bool is_frontend_key(std::string_view key) {
    return std::find(std::begin(kFrontendKeys), std::end(kFrontendKeys), key) !=
           std::end(kFrontendKeys);
}

void apply_frontend(FrontendSettings &fe, const SettingText &t) {
    const std::string v = lower(trim(t.value));
    if (t.key == "dc-block") {
        fe.dc_block = parse_on_off(t, t.value) != 0;
    } else if (t.key == "drift") {
        if (v != "auto" && v != "off") fail(t, "expected auto or off, got '" + t.value + "'");
        fe.drift = v == "auto";
    } else if (v == "auto") {
        fe.delay = FrontendSettings::Delay::Auto;
    } else if (v == "off") {
        fe.delay = FrontendSettings::Delay::Off;
    } else {
        char *end = nullptr;
        errno = 0;
        const long ms = std::strtol(v.c_str(), &end, 10);
        if (v.empty() || (*end != '\0' && std::string_view(end) != "ms") || errno != 0)
            fail(t, "expected auto, off or milliseconds 0.." +
                        std::to_string(SONVEL_AEC_FRONTEND_MAX_DELAY_MS) + ", got '" + t.value +
                        "'");
        if (ms < 0 || ms > SONVEL_AEC_FRONTEND_MAX_DELAY_MS)
            fail(t, v + " ms is outside 0.." + std::to_string(SONVEL_AEC_FRONTEND_MAX_DELAY_MS));
        fe.delay = FrontendSettings::Delay::Fixed;
        fe.delay_ms = static_cast<int>(ms);
    }
}

std::size_t edit_distance(std::string_view a, std::string_view b) {
    std::vector<std::size_t> row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diag = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t up = row[j];
            const bool same = std::tolower(static_cast<unsigned char>(a[i - 1])) ==
                              std::tolower(static_cast<unsigned char>(b[j - 1]));
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diag + (same ? 0 : 1)});
            diag = up;
        }
    }
    return row[b.size()];
}

}  // namespace

AecFrontendCfg FrontendSettings::record() const {
    AecFrontendCfg r{};
    r.u8DcBlock = dc_block ? 1 : 0;
    r.u8DelayMode = delay == Delay::Off     ? SONVEL_AEC_DELAY_OFF
                    : delay == Delay::Fixed ? SONVEL_AEC_DELAY_FIXED
                                            : SONVEL_AEC_DELAY_AUTO;
    r.u8Drift = drift ? 1 : 0;
    r.u16DelayMs = static_cast<uint16_t>(delay == Delay::Fixed ? delay_ms : 0);
    return r;
}

bool is_setting_key(std::string_view key) {
    return is_frontend_key(key) || find_target(key).param != nullptr;
}

std::string canonical_key(std::string_view key) {
    if (is_frontend_key(key)) return std::string(key);
    const Target t = find_target(key);
    if (t.param == nullptr) return std::string(key);
    const Field *f = find_field(t.param->field);
    if (f->count == 1 && t.count == 1) return std::string(f[t.first].name);
    if (f->count == 1) return t.param->field;  // a pair as a whole
    if (t.count == 1) return std::string(f->name) + "[" + std::to_string(t.first) + "]";
    return std::string(f->name);
}

std::string apply_setting(Settings &s, const SettingText &given) {
    if (given.key == "u8SampleRate" || given.key == "sample-rate")
        fail(given, "the sample rate follows the input files; remove it");
    const bool known = is_frontend_key(given.key) || find_target(given.key).param != nullptr;
    if (!known) {
        const std::string near = suggest_key(given.key);
        fail(given, "unknown setting '" + given.key + "'" +
                        (near.empty() ? std::string() : " (did you mean '" + near + "'?)"));
    }
    // In a file the key follows the line ("a.cfg:3: u8NlpLevel: 3 is outside 0..2").
    SettingText t = given;
    if (t.source == Source::File) t.where += ": " + t.key;
    if (is_frontend_key(t.key)) {
        apply_frontend(s.fe, t);
        return {};
    }
    const Target target = find_target(t.key);
    const ParamSpec &p = *target.param;
    const std::vector<std::string_view> parts = split(t.value);
    if (static_cast<int>(parts.size()) != target.count) {
        fail(t, "expected " +
                    (target.count == 1 ? std::string("one value")
                                       : std::to_string(target.count) + " comma-separated values") +
                    ", got " + std::to_string(parts.size()));
    }
    const Field &first = *find_field(p.field);
    // A LO,HI pair is two adjacent single fields: address it as one of two elements.
    const Field field{first.name, std::max(first.count, p.count), first.is_byte, first.offset};
    std::string warning;
    for (int i = 0; i < target.count; ++i) {
        const long v = parse_value(t, p, parts[static_cast<std::size_t>(i)]);
        store_field(s.cfg, field, target.first + i, v);
        if (p.field == std::string_view("as16BandShift") && (v < 0 || v > kShiftMonotonicHi)) {
            warning = t.where + ": shift " + std::to_string(v) + " lies outside 0.." +
                      std::to_string(kShiftMonotonicHi) +
                      ", where a larger shift means more suppression (shifts act modulo 32; "
                      "above about " +
                      std::to_string(kShiftMonotonicHi) + " they lower suppression)";
        }
    }
    return warning;
}

bool is_option_key(std::string_view key) {
    if (is_frontend_key(key)) return true;
    for (const ParamSpec &p : kParams) {
        if (key == p.option) return true;
    }
    return false;
}

namespace {

std::string closest(std::string_view key, const std::vector<std::string> &keys) {
    std::string best;
    std::size_t best_d = std::max<std::size_t>(2, key.size() / 3) + 1;
    for (const std::string &k : keys) {
        const std::size_t d = edit_distance(key, k);
        if (d < best_d) {
            best_d = d;
            best = k;
        }
    }
    return best;
}

std::vector<std::string> option_keys() {
    std::vector<std::string> keys(std::begin(kFrontendKeys), std::end(kFrontendKeys));
    for (const ParamSpec &p : kParams) keys.emplace_back(p.option);
    return keys;
}

}  // namespace

std::string suggest_key(std::string_view key) {
    std::vector<std::string> keys = option_keys();
    for (const Field &f : record_fields()) keys.emplace_back(f.name);
    return closest(key, keys);
}

std::string suggest_option(std::string_view key, const std::vector<std::string> &extra,
                           bool settings) {
    std::vector<std::string> keys = settings ? option_keys() : std::vector<std::string>{};
    keys.insert(keys.end(), extra.begin(), extra.end());
    return closest(key, keys);
}

std::string setting_option_help() {
    std::string s;
    const auto line = [&s](std::string head, const char *help) {
        head.resize(std::max<std::size_t>(head.size() + 1, 34), ' ');
        s += head + help + "\n";
    };
    for (const ParamSpec &p : kParams)
        line("  --" + std::string(p.option) + " " + p.metavar, p.help);
    return s;
}

std::string format_settings(const Settings &s) {
    std::ostringstream out;
    out << format_record(s.cfg);
    out << "ref-delay = "
        << (s.fe.delay == FrontendSettings::Delay::Off    ? std::string("off")
            : s.fe.delay == FrontendSettings::Delay::Auto ? std::string("auto")
                                                          : std::to_string(s.fe.delay_ms))
        << "\ndc-block = " << (s.fe.dc_block ? "on" : "off")
        << "\ndrift = " << (s.fe.drift ? "auto" : "off") << "\n";
    return out.str();
}

}  // namespace cli
