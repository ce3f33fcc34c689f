// Parameter record: the default table, validation with its fixed precedence, and setting /
// reading the parameters of a live instance.
#include <cstddef>

#include "interface/instance_access.h"
#include "sonvel_aec.h"

static_assert(sizeof(AecCfg) == 46, "parameter record: five bytes, one pad byte, 20 int16");
static_assert(offsetof(AecCfg, u8SampleRate) == 4);
static_assert(offsetof(AecCfg, s16CohThr) == 6);
static_assert(offsetof(AecCfg, as16BandEdge) == 16);
static_assert(offsetof(AecCfg, s16ClampBinLo) == 28);
static_assert(offsetof(AecCfg, as16BandShift) == 32);

extern "C" SONVEL_API const AecCfg Sonvel_AEC_gastMrvAecCfgTab = {
    1,      // u8CnEnable
    0,      // u8StartPart
    1,      // u8NlpLevel
    0,      // u8HighFreqMode
    1,      // u8SampleRate: 16000 Hz
    25000,  // s16CohThr (0.763)
    7,      // s16HfBinLo
    38,     // s16HfBinHi
    47,     // s16CohBinLo
    72,     // s16CohBinHi
    {4, 6, 36, 49, 49, 49},
    3,  // s16ClampBinLo
    6,  // s16ClampBinHi
    {7, 10, 16, 10, 18, 18, 18},
};

namespace {

// Rules R1..R9: each failing rule overrides the ones before it.
int32_t check_scalar_fields(const AecCfg &c, int bound) {
    int32_t ret = SONVEL_AEC_OK;
    if (c.u8StartPart > 6) ret = SONVEL_AEC_ERR_CFG_START_PART;
    if (c.u8NlpLevel > 2) ret = SONVEL_AEC_ERR_CFG_NLP_LEVEL;
    if (c.u8HighFreqMode > 1) ret = SONVEL_AEC_ERR_CFG_HIGH_FREQ_MODE;
    if (c.u8SampleRate > 1) ret = SONVEL_AEC_ERR_CFG_SAMPLE_RATE;
    if (c.s16CohThr < 0) ret = SONVEL_AEC_ERR_CFG_COH_THR;
    if (c.s16HfBinLo > c.s16HfBinHi || c.s16HfBinLo < 0) ret = SONVEL_AEC_ERR_CFG_HF_BIN_ORDER;
    if (c.s16HfBinHi > bound) ret = SONVEL_AEC_ERR_CFG_HF_BIN_HI;
    if (c.s16CohBinLo > c.s16CohBinHi || c.s16CohBinLo < 0) ret = SONVEL_AEC_ERR_CFG_COH_BIN_ORDER;
    if (c.s16CohBinHi > bound) ret = SONVEL_AEC_ERR_CFG_COH_BIN_HI;
    return ret;
}

// Rules R10, R11: the last edge within the bound, the first two in order.
bool outer_edges_fail(const AecCfg &c, int bound) {
    return c.as16BandEdge[5] > bound || c.as16BandEdge[0] > c.as16BandEdge[1];
}

// Rule R12: edges 1..5 non-decreasing and edges 1..4 not negative.
bool inner_edges_fail(const AecCfg &c) {
    for (int k = 1; k <= 4; ++k) {
        if (c.as16BandEdge[k] > c.as16BandEdge[k + 1] || c.as16BandEdge[k] < 0) return true;
    }
    return false;
}

}  // namespace

extern "C" SONVEL_API int32_t Sonvel_AEC_Check(const AecCfg *pstCfg) {
    if (pstCfg == nullptr) return SONVEL_AEC_ERR_CFG_NULL;
    const AecCfg &c = *pstCfg;
    const int bound = c.u8SampleRate == 0 ? 128 : 256;  // the FFT length

    // 1. A negative first edge skips R1..R11.
    int32_t ret = SONVEL_AEC_ERR_CFG_BAND_EDGE;
    if (c.as16BandEdge[0] >= 0) {
        ret = check_scalar_fields(c, bound);
        if (outer_edges_fail(c, bound)) ret = SONVEL_AEC_ERR_CFG_BAND_EDGE;
    }
    // 2. R12..R14 always.
    if (inner_edges_fail(c)) ret = SONVEL_AEC_ERR_CFG_BAND_EDGE;
    if (c.s16ClampBinLo > c.s16ClampBinHi || c.s16ClampBinLo < 0) {
        ret = SONVEL_AEC_ERR_CFG_CLAMP_BIN_ORDER;
    }
    if (c.s16ClampBinLo > bound) ret = SONVEL_AEC_ERR_CFG_CLAMP_BIN_LO;
    return ret;
}

extern "C" SONVEL_API int32_t Sonvel_AEC_SetParams(void *hAec, const AecCfg *pstCfg) {
    if (hAec == nullptr) return SONVEL_AEC_ERR_SET_HANDLE_NULL;
    if (pstCfg == nullptr) return SONVEL_AEC_ERR_SET_CFG_NULL;
    AecState *st = sonvel::live_state_of(hAec);
    if (st == nullptr) return SONVEL_AEC_ERR_NOT_INITIALISED;
    const int32_t ret = Sonvel_AEC_Check(pstCfg);
    if (ret != SONVEL_AEC_OK) return ret;
    // The rate-derived sizes, the plan and the scheduler stay those of the creation rate.
    if (pstCfg->u8SampleRate != st->u16SampleRate) return SONVEL_AEC_ERR_CFG_SAMPLE_RATE;
    return Sonvel_AEC_SUB_Init(st, pstCfg, 1);
}

extern "C" SONVEL_API int32_t Sonvel_AEC_GetParams(void *hAec, AecCfg *pstCfg) {
    if (hAec == nullptr) return SONVEL_AEC_ERR_GET_HANDLE_NULL;
    if (pstCfg == nullptr) return SONVEL_AEC_ERR_GET_CFG_NULL;
    const AecState *st = sonvel::live_state_of(hAec);
    if (st == nullptr) return SONVEL_AEC_ERR_NOT_INITIALISED;

    AecCfg &c = *pstCfg;
    c.u8CnEnable = static_cast<uint8_t>(st->u32CnEnable);
    c.u8StartPart = static_cast<uint8_t>(st->s16StartPart);
    c.u8NlpLevel = static_cast<uint8_t>(st->u16NlpLevel);
    c.u8HighFreqMode = static_cast<uint8_t>(st->u16HighFreqMode);
    c.u8SampleRate = static_cast<uint8_t>(st->u16SampleRate);
    c.s16CohThr = st->s16CohThr;
    c.s16HfBinLo = st->s16HfBinLo;
    c.s16HfBinHi = st->s16HfBinHi;
    c.s16CohBinLo = st->s16CohBinLo;
    c.s16CohBinHi = st->s16CohBinHi;
    for (int k = 0; k < 6; ++k) c.as16BandEdge[k] = st->as16BandEdge[k];
    c.s16ClampBinLo = st->s16ClampBinLo;
    c.s16ClampBinHi = st->s16ClampBinHi;
    for (int k = 0; k < 7; ++k) c.as16BandShift[k] = st->as16BandShift[k];
    return SONVEL_AEC_OK;
}
