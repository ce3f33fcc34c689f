// JSON text of the tool's reports.
#include "cli/json.h"

#include <cmath>
#include <cstdio>

namespace cli {

std::string json_string(const std::string &s) {
    std::string out = "\"";
    for (const char c : s) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (static_cast<unsigned char>(c) < 0x20) {
            char buf[8];
            std::snprintf(buf, sizeof buf, "\\u%04x", c);
            out += buf;
        } else {
            out += c;
        }
    }
    return out + "\"";
}

JsonObject &JsonObject::add(const std::string &key, const std::string &json) {
    if (!body_.empty()) body_ += ", ";
    body_ += json_string(key) + ": " + json;
    return *this;
}

JsonObject &JsonObject::num(const std::string &key, double v, int decimals) {
    if (!std::isfinite(v)) return null(key);
    char buf[64];
    std::snprintf(buf, sizeof buf, "%.*f", decimals, v);
    return add(key, buf);
}

JsonObject &JsonObject::integer(const std::string &key, long long v) {
    return add(key, std::to_string(v));
}

JsonObject &JsonObject::str(const std::string &key, const std::string &v) {
    return add(key, json_string(v));
}

JsonObject &JsonObject::boolean(const std::string &key, bool v) {
    return add(key, v ? "true" : "false");
}

JsonObject &JsonObject::null(const std::string &key) { return add(key, "null"); }

JsonObject &JsonObject::raw(const std::string &key, const std::string &json) {
    return add(key, json);
}

}  // namespace cli
