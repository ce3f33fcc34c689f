// A flat JSON object writer for the tool's --json outputs (numbers, strings, booleans, null).
#pragma once

#include <string>

namespace cli {

class JsonObject {
  public:
    JsonObject &num(const std::string &key, double v, int decimals = 2);
    JsonObject &integer(const std::string &key, long long v);
    JsonObject &str(const std::string &key, const std::string &v);
    JsonObject &boolean(const std::string &key, bool v);
    JsonObject &null(const std::string &key);
    // A nested object or array given as JSON text.
    JsonObject &raw(const std::string &key, const std::string &json);
    std::string text() const { return "{" + body_ + "}"; }

  private:
    JsonObject &add(const std::string &key, const std::string &json);
    std::string body_;
};

std::string json_string(const std::string &s);

}  // namespace cli
