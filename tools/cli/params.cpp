// Parameter record by name: field access, the two starting records and the explanation of
// refusals.
#include "cli/params.h"

#include <cstddef>
#include <cstring>
#include <sstream>

#include "cli/error.h"

namespace cli {
namespace {

long load_field_impl(const AecCfg &cfg, const Field &field, int index) {
    const auto *base = reinterpret_cast<const unsigned char *>(&cfg) + field.offset;
    if (field.is_byte) return base[index];
    int16_t s = 0;
    std::memcpy(&s, base + 2 * index, sizeof s);
    return s;
}

}  // namespace

const std::vector<Field> &record_fields() {
    static const std::vector<Field> fields = {
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
    return fields;
}

const Field *find_field(std::string_view name) {
    for (const Field &f : record_fields()) {
        if (f.name == name) return &f;
    }
    return nullptr;
}

void store_field(AecCfg &cfg, const Field &field, int index, long value) {
    auto *base = reinterpret_cast<unsigned char *>(&cfg) + field.offset;
    if (field.is_byte) {
        base[index] = static_cast<uint8_t>(value);
    } else {
        const auto s = static_cast<int16_t>(value);
        std::memcpy(base + 2 * index, &s, sizeof s);
    }
}

AecCfg library_defaults(int rate) {
    AecCfg cfg = Sonvel_AEC_gastMrvAecCfgTab;
    cfg.u8SampleRate = rate == 8000 ? 0 : 1;
    return cfg;
}

AecCfg host_builtin_record(int rate) {
    AecCfg cfg = library_defaults(rate);
    const int16_t edges[6] = {5, 17, 28, 32, 45, 56};
    const int16_t shifts[7] = {11, 12, 16, 14, 15, 12, 16};
    cfg.u8CnEnable = 1;
    cfg.u8StartPart = 0;
    cfg.s16CohThr = 20000;
    cfg.s16CohBinLo = 8;
    cfg.s16CohBinHi = 17;
    std::memcpy(cfg.as16BandEdge, edges, sizeof edges);
    cfg.s16ClampBinLo = 5;
    cfg.s16ClampBinHi = 10;
    std::memcpy(cfg.as16BandShift, shifts, sizeof shifts);
    return cfg;
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

void check_record(const AecCfg &cfg) {
    const int32_t status = Sonvel_AEC_Check(&cfg);
    if (status == SONVEL_AEC_OK) return;
    const Refusal r = explain_refusal(status, cfg);
    if (r.field.empty()) {
        throw Error("the library refused the parameters (status " + std::to_string(status) + ")");
    }
    std::string value;
    if (const Field *f = find_field(r.field)) {
        for (int i = 0; i < f->count; ++i) {
            if (i > 0) value += ',';
            value += std::to_string(load_field_impl(cfg, *f, i));
        }
    }
    throw Error("parameter " + r.field + " = " + value + " refused by the library (status " +
                std::to_string(status) + "); allowed: " + r.range);
}

std::string format_record(const AecCfg &cfg) {
    std::ostringstream out;
    for (const Field &f : record_fields()) {
        out << f.name << " =";
        for (int i = 0; i < f.count; ++i) out << (i ? ", " : " ") << load_field_impl(cfg, f, i);
        out << '\n';
    }
    return out.str();
}

}  // namespace cli
