// Settings of the framework plug-ins: parsing of "key = value" arguments into the canceller's and
// the front end's records, validation with the library, refusal explanations, values as text.
#include "aec_settings.h"

#include <cerrno>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace sonvel::integration {
namespace {

// One field of the parameter record (arrays have count > 1).
struct Field {
    const char *name;
    int count;
    bool is_byte;
    std::size_t offset;
};

constexpr Field kFields[] = {
    {"u8CnEnable", 1, true, offsetof(AecCfg, u8CnEnable)},
    {"u8StartPart", 1, true, offsetof(AecCfg, u8StartPart)},
    {"u8NlpLevel", 1, true, offsetof(AecCfg, u8NlpLevel)},
    {"u8HighFreqMode", 1, true, offsetof(AecCfg, u8HighFreqMode)},
    {"s16CohThr", 1, false, offsetof(AecCfg, s16CohThr)},
    {"s16HfBinLo", 1, false, offsetof(AecCfg, s16HfBinLo)},
    {"s16HfBinHi", 1, false, offsetof(AecCfg, s16HfBinHi)},
    {"s16CohBinLo", 1, false, offsetof(AecCfg, s16CohBinLo)},
    {"s16CohBinHi", 1, false, offsetof(AecCfg, s16CohBinHi)},
    {"as16BandEdge", 6, false, offsetof(AecCfg, as16BandEdge)},
    {"s16ClampBinLo", 1, false, offsetof(AecCfg, s16ClampBinLo)},
    {"s16ClampBinHi", 1, false, offsetof(AecCfg, s16ClampBinHi)},
    {"as16BandShift", 7, false, offsetof(AecCfg, as16BandShift)},
};

// Option names of the record: each writes `count` consecutive fields from `field` on.
struct Option {
    const char *name;
    const char *field;
    int count;
};

constexpr Option kOptions[] = {
    {"comfort-noise", "u8CnEnable", 1},
    {"suppression-level", "u8NlpLevel", 1},
    {"high-freq-mode", "u8HighFreqMode", 1},
    {"start-part", "u8StartPart", 1},
    {"coh-threshold", "s16CohThr", 1},
    {"coh-band", "s16CohBinLo", 2},
    {"hf-band", "s16HfBinLo", 2},
    {"band-edges", "as16BandEdge", 6},
    {"band-shifts", "as16BandShift", 7},
    {"clamp-bins", "s16ClampBinLo", 2},
};

const Field *find_field(std::string_view name) {
    for (const Field &f : kFields)
        if (name == f.name) return &f;
    return nullptr;
}

const Option *find_option(std::string_view name) {
    for (const Option &o : kOptions)
        if (name == o.name) return &o;
    return nullptr;
}

long load(const AecCfg &cfg, const Field &f, int i) {
    const auto *base = reinterpret_cast<const unsigned char *>(&cfg) + f.offset;
    if (f.is_byte) return base[i];
    int16_t v;
    std::memcpy(&v, base + 2 * i, 2);
    return v;
}

void store(AecCfg &cfg, const Field &f, int i, long v) {
    auto *base = reinterpret_cast<unsigned char *>(&cfg) + f.offset;
    if (f.is_byte) {
        base[i] = static_cast<uint8_t>(v);
    } else {
        const auto s = static_cast<int16_t>(v);
        std::memcpy(base + 2 * i, &s, 2);
    }
}

// "8,17", "8 17" or "[ 8 17 ]" -> the items.
std::vector<std::string> split_list(std::string_view text) {
    std::vector<std::string> items;
    std::string cur;
    for (char c : text) {
        if (c == ',' || c == ' ' || c == '\t' || c == '[' || c == ']' || c == '"') {
            if (!cur.empty()) items.push_back(cur);
            cur.clear();
        } else {
            cur += c;
        }
    }
    if (!cur.empty()) items.push_back(cur);
    return items;
}

bool parse_long(const std::string &s, long &v) {
    char *end = nullptr;
    errno = 0;
    v = std::strtol(s.c_str(), &end, 0);
    return !s.empty() && *end == '\0' && errno == 0;
}

// on/off, yes/no, true/false, 1/0.
int parse_switch(std::string_view v) {
    if (v == "on" || v == "yes" || v == "true" || v == "1") return 1;
    if (v == "off" || v == "no" || v == "false" || v == "0") return 0;
    return -1;
}

std::string trimmed(std::string_view v) {
    const auto items = split_list(v);
    return items.size() == 1 ? items[0] : std::string(v);
}

// Stores `count` integers from `text` into the fields from `field` on; false with an error.
bool assign(AecCfg &cfg, const Field &field, int count, std::string_view key, std::string_view text,
            Messages &m) {
    const std::vector<std::string> items = split_list(text);
    const long lo = field.is_byte ? 0 : INT16_MIN, hi = field.is_byte ? UINT8_MAX : INT16_MAX;
    if (static_cast<int>(items.size()) != count) {
        m.errors.push_back(std::string(key) + ": takes " + std::to_string(count) +
                           (count == 1 ? " integer" : " integers separated by commas") + ", got '" +
                           std::string(text) + "'");
        return false;
    }
    AecCfg next = cfg;
    for (int i = 0; i < count; ++i) {
        long v;
        if (!parse_long(items[i], v) || v < lo || v > hi) {
            m.errors.push_back(std::string(key) + ": '" + items[i] + "' is not an integer " +
                               std::to_string(lo) + ".." + std::to_string(hi));
            return false;
        }
        store(next, field, i, v);
    }
    cfg = next;
    return true;
}

bool apply_frontend(AecFrontendCfg &fe, std::string_view key, const std::string &v, Messages &m) {
    if (key == "dc-block" || key == "drift") {
        const bool drift = key == "drift";
        const int on = (drift && v == "auto") ? 1 : parse_switch(v);
        if (on < 0) {
            m.errors.push_back(std::string(key) + ": '" + v + "' is not " +
                               (drift ? "auto or off" : "on or off"));
            return false;
        }
        (drift ? fe.u8Drift : fe.u8DcBlock) = static_cast<uint8_t>(on);
        return true;
    }
    // ref-delay: auto | off | milliseconds
    long ms;
    if (v == "auto") {
        fe.u8DelayMode = SONVEL_AEC_DELAY_AUTO;
        fe.u16DelayMs = 0;
    } else if (v == "off") {
        fe.u8DelayMode = SONVEL_AEC_DELAY_OFF;
        fe.u16DelayMs = 0;
    } else if (parse_long(v, ms) && ms >= 0 && ms <= SONVEL_AEC_FRONTEND_MAX_DELAY_MS) {
        fe.u8DelayMode = SONVEL_AEC_DELAY_FIXED;
        fe.u16DelayMs = static_cast<uint16_t>(ms);
    } else {
        m.errors.push_back("ref-delay: '" + v + "' is not auto, off or milliseconds 0.." +
                           std::to_string(SONVEL_AEC_FRONTEND_MAX_DELAY_MS));
        return false;
    }
    return true;
}

}  // namespace

Settings live_defaults(uint32_t rate) {
    Settings s{};
    s.core = Sonvel_AEC_gastMrvAecCfgTab;
    s.core.u8SampleRate = rate == 8000 ? 0 : 1;
    s.frontend.u8DcBlock = 1;
    s.frontend.u8DelayMode = SONVEL_AEC_DELAY_AUTO;
    s.frontend.u8Drift = 1;
    s.frontend.u16DelayMs = 0;
    return s;
}

const std::vector<KeyInfo> &option_keys() {
    static const std::vector<KeyInfo> keys = {
        {"comfort-noise", KeyKind::Switch, 0, 1, "comfort noise in suppressed parts"},
        {"suppression-level", KeyKind::Integer, 0, 2,
         "far-end level below which the near end passes"},
        {"high-freq-mode", KeyKind::Integer, 0, 1, "high-frequency gain shaping mode"},
        {"start-part", KeyKind::Integer, 0, 6, "bulk delay of the echo filter, in 8 ms blocks"},
        {"coh-threshold", KeyKind::Integer, 0, 32767,
         "Q15 incoherence threshold of raised suppression"},
        {"coh-band", KeyKind::Text, 0, 0, "LO,HI: bins LO..HI-1 of the mean incoherence"},
        {"hf-band", KeyKind::Text, 0, 0, "LO,HI: bins examined by the upper-band cut-off"},
        {"band-edges", KeyKind::Text, 0, 0, "E0,..,E5: edges of the seven coupling bands (bins)"},
        {"band-shifts", KeyKind::Text, 0, 0, "H0,..,H6: coupling gain 4*2^H (Q15) of each band"},
        {"clamp-bins", KeyKind::Text, 0, 0, "LO,HI: overdrive caps 2.0 up to LO, 3.0 up to HI"},
        {"ref-delay", KeyKind::Text, 0, 0, "auto, off or milliseconds 0..500 of reference delay"},
        {"dc-block", KeyKind::Switch, 0, 1, "high-pass the microphone and the reference"},
        {"drift", KeyKind::Text, 0, 0, "auto or off: follow the clock drift"},
    };
    return keys;
}

bool is_known_key(std::string_view key) {
    const std::string_view name = key.substr(0, key.find('['));
    return key == "ref-delay" || key == "dc-block" || key == "drift" || key == "u8SampleRate" ||
           find_field(name) != nullptr || find_option(key) != nullptr;
}

bool apply_arg(Settings &s, std::string_view key, std::string_view value, Messages &m) {
    const std::string v = trimmed(value);
    if (key == "ref-delay" || key == "dc-block" || key == "drift")
        return apply_frontend(s.frontend, key, v, m);
    if (key == "u8SampleRate") {
        m.warnings.push_back("u8SampleRate follows the stream's audio.rate; ignored");
        return false;
    }
    if (const Field *f = find_field(key)) return assign(s.core, *f, f->count, key, value, m);
    // One element of an array field, as in the tool's configuration files: as16BandEdge[2] = 30.
    if (const auto br = key.find('['); br != std::string_view::npos && key.back() == ']') {
        const Field *f = find_field(key.substr(0, br));
        long index = -1;
        if (f != nullptr && f->count > 1 &&
            parse_long(std::string(key.substr(br + 1, key.size() - br - 2)), index) && index >= 0 &&
            index < f->count) {
            Field element = *f;
            element.offset += 2 * static_cast<std::size_t>(index);
            return assign(s.core, element, 1, key, value, m);
        }
    }
    const Option *o = find_option(key);
    if (o == nullptr) {
        m.warnings.push_back("unknown key '" + std::string(key) + "' ignored");
        return false;
    }
    const Field &f = *find_field(o->field);
    if (key == "comfort-noise") {
        const int on = parse_switch(v);
        if (on < 0) {
            m.errors.push_back("comfort-noise: '" + v + "' is not on or off");
            return false;
        }
        s.core.u8CnEnable = static_cast<uint8_t>(on);
        return true;
    }
    if (key == "coh-threshold" && v.find('.') != std::string::npos) {
        char *end = nullptr;
        const double d = std::strtod(v.c_str(), &end);
        if (*end != '\0' || !(d >= 0.0 && d <= 1.0)) {
            m.errors.push_back("coh-threshold: '" + v +
                               "' is not a fraction 0..1 or a Q15 integer");
            return false;
        }
        s.core.s16CohThr =
            static_cast<int16_t>(d * 32768.0 >= 32767.0 ? 32767 : std::lround(d * 32768.0));
        return true;
    }
    return assign(s.core, f, o->count, key, value, m);
}

Refusal explain_refusal(int32_t status, const AecCfg &cfg) {
    const std::string b = std::to_string(cfg.u8SampleRate == 0 ? 128 : 256);
    switch (status) {
        case SONVEL_AEC_ERR_CFG_START_PART: return {"u8StartPart", "0..6"};
        case SONVEL_AEC_ERR_CFG_NLP_LEVEL: return {"u8NlpLevel", "0..2"};
        case SONVEL_AEC_ERR_CFG_HIGH_FREQ_MODE: return {"u8HighFreqMode", "0..1"};
        case SONVEL_AEC_ERR_CFG_SAMPLE_RATE: return {"u8SampleRate", "0..1"};
        case SONVEL_AEC_ERR_CFG_COH_THR: return {"s16CohThr", "0..32767"};
        case SONVEL_AEC_ERR_CFG_HF_BIN_ORDER: return {"s16HfBinLo", "0..s16HfBinHi"};
        case SONVEL_AEC_ERR_CFG_HF_BIN_HI: return {"s16HfBinHi", "s16HfBinLo.." + b};
        case SONVEL_AEC_ERR_CFG_COH_BIN_ORDER: return {"s16CohBinLo", "0..s16CohBinHi"};
        case SONVEL_AEC_ERR_CFG_COH_BIN_HI: return {"s16CohBinHi", "s16CohBinLo.." + b};
        case SONVEL_AEC_ERR_CFG_BAND_EDGE:
            return {"as16BandEdge", "non-decreasing, 0 <= e0 <= ... <= e5 <= " + b};
        case SONVEL_AEC_ERR_CFG_CLAMP_BIN_ORDER: return {"s16ClampBinLo", "0..s16ClampBinHi"};
        case SONVEL_AEC_ERR_CFG_CLAMP_BIN_LO: return {"s16ClampBinLo", "0.." + b};
        default: return {};
    }
}

bool check_settings(const Settings &s, Messages &m) {
    const int32_t status = Sonvel_AEC_Check(&s.core);
    if (status == SONVEL_AEC_OK) return true;
    const Refusal r = explain_refusal(status, s.core);
    if (r.field.empty()) {
        m.errors.push_back("the library refused the parameters (status " + std::to_string(status) +
                           ")");
        return false;
    }
    std::string value;
    if (const Field *f = find_field(r.field)) {
        for (int i = 0; i < f->count; ++i) {
            if (i > 0) value += ',';
            value += std::to_string(load(s.core, *f, i));
        }
    }
    m.errors.push_back(r.field + " = " + value + " refused by the library (status " +
                       std::to_string(status) + "); allowed: " + r.range +
                       "; the previous parameters stay");
    return false;
}

bool apply_args(Settings &s, const std::vector<std::pair<std::string, std::string>> &args,
                Messages &m) {
    Settings next = s;
    const std::size_t errors = m.errors.size();
    for (const auto &[key, value] : args) apply_arg(next, key, value, m);
    if (m.errors.size() != errors) {
        m.errors.push_back("the new values were not applied; the previous parameters stay");
        return false;
    }
    if (!check_settings(next, m)) return false;
    s = next;
    return true;
}

std::string format_value(const Settings &s, std::string_view key) {
    const AecFrontendCfg &fe = s.frontend;
    if (key == "ref-delay") {
        if (fe.u8DelayMode == SONVEL_AEC_DELAY_AUTO) return "auto";
        if (fe.u8DelayMode == SONVEL_AEC_DELAY_OFF) return "off";
        return std::to_string(fe.u16DelayMs);
    }
    if (key == "dc-block") return fe.u8DcBlock ? "on" : "off";
    if (key == "drift") return fe.u8Drift ? "auto" : "off";
    if (key == "comfort-noise") return s.core.u8CnEnable ? "on" : "off";
    const Option *o = find_option(key);
    const Field *f = o != nullptr ? find_field(o->field) : find_field(key);
    if (f == nullptr) return {};
    const int count = o != nullptr ? o->count : f->count;
    // Options over two scalar fields (coh-band, ...) read on into the next field of the record.
    std::string text;
    for (int i = 0; i < count; ++i) {
        if (i > 0) text += ',';
        text += std::to_string(load(s.core, *f, i));
    }
    return text;
}

}  // namespace sonvel::integration
