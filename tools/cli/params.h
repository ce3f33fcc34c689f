// The canceller's parameter record as the tool sees it: fields by name, the starting records of
// the two interfaces, and the explanation of a record the library refuses.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "sonvel_aec.h"

namespace cli {

// One named field of the record (arrays have count > 1).
struct Field {
    std::string_view name;
    int count;
    bool is_byte;
    std::size_t offset;
};

const std::vector<Field> &record_fields();
const Field *find_field(std::string_view name);

// Stores `value` (already checked against the field's type) into element `index` of the field.
void store_field(AecCfg &cfg, const Field &field, int index, long value);

// The library's default record, at the given rate (8000 or 16000).
AecCfg library_defaults(int rate);
// The record the host plug-in builds when the host passes no values of its own.
AecCfg host_builtin_record(int rate);

// Checks the record with the library; throws Error naming the field, its allowed range and the
// status code when it is refused.
void check_record(const AecCfg &cfg);
// The explanation of a refusal code: field name and allowed range (empty name for other codes).
struct Refusal {
    std::string field;
    std::string range;
};
Refusal explain_refusal(int32_t status, const AecCfg &cfg);

// The record as "name = value" lines (the format load_config_file reads).
std::string format_record(const AecCfg &cfg);

}  // namespace cli
