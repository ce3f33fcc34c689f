// Host configuration: frame length of a host rate and the parameter record built from the default
// table and either the host's values or the wrapper's built-in set.
#include "host/host_config.h"

namespace sonvel {
namespace {

// Values the host supplies; the clamp pair comes after the shifts in its record.
void copy_host_values(AecCfg &cfg, const KxAecConfig &host) {
    cfg.u8CnEnable = host.u8CnEnable;
    cfg.u8NlpLevel = host.u8NlpLevel;
    cfg.s16CohThr = host.s16CohThr;
    cfg.s16HfBinLo = host.s16HfBinLo;
    cfg.s16HfBinHi = host.s16HfBinHi;
    cfg.s16CohBinLo = host.s16CohBinLo;
    cfg.s16CohBinHi = host.s16CohBinHi;
    for (int k = 0; k < 6; ++k) cfg.as16BandEdge[k] = host.as16BandEdge[k];
    for (int k = 0; k < 7; ++k) cfg.as16BandShift[k] = host.as16BandShift[k];
    cfg.s16ClampBinLo = host.s16ClampBinLo;
    cfg.s16ClampBinHi = host.s16ClampBinHi;
}

// The wrapper's built-in set; level and upper band stay those of the default table.
void write_builtin_values(AecCfg &cfg) {
    static constexpr int16_t kEdges[6] = {5, 17, 28, 32, 45, 56};
    static constexpr int16_t kShifts[7] = {11, 12, 16, 14, 15, 12, 16};
    cfg.u8CnEnable = 1;
    cfg.s16CohThr = 20000;
    cfg.s16CohBinLo = 8;
    cfg.s16CohBinHi = 17;
    for (int k = 0; k < 6; ++k) cfg.as16BandEdge[k] = kEdges[k];
    cfg.s16ClampBinLo = 5;
    cfg.s16ClampBinHi = 10;
    for (int k = 0; k < 7; ++k) cfg.as16BandShift[k] = kShifts[k];
}

}  // namespace

uint32_t host_frame_length(int32_t sampleRate) {
    if (sampleRate == 8000) return 80;
    if (sampleRate == 16000) return 160;
    return 0;
}

AecCfg host_parameter_record(int32_t sampleRate, const KxAecConfig &host) {
    AecCfg cfg = Sonvel_AEC_gastMrvAecCfgTab;
    if (sampleRate == 8000) cfg.u8SampleRate = 0;
    if (sampleRate == 16000) cfg.u8SampleRate = 1;
    cfg.u8StartPart = 0;
    if (host.s32UseCfg != 0) {
        copy_host_values(cfg, host);
    } else {
        write_builtin_values(cfg);
    }
    return cfg;
}

}  // namespace sonvel
