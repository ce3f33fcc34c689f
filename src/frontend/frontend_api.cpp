// Public entry points of the front end: size query, initialisation, record changes, the per-frame
// processing (high-pass, estimator, alignment, delay line) and the estimate read-out.
#include <cstring>

#include "frontend/frontend_state.h"

namespace sonvel::frontend {

namespace {

bool aligned8(const void *p) { return (reinterpret_cast<uintptr_t>(p) & 7u) == 0; }

}  // namespace

int32_t check_frontend_cfg(const AecFrontendCfg *cfg) {
    if (cfg == nullptr) return SONVEL_AEC_OK;
    if (cfg->u8DelayMode > SONVEL_AEC_DELAY_AUTO) return SONVEL_AEC_ERR_FE_DELAY_MODE;
    if (cfg->u16DelayMs > SONVEL_AEC_FRONTEND_MAX_DELAY_MS) return SONVEL_AEC_ERR_FE_DELAY_MS;
    if (cfg->u8Reserved != 0) return SONVEL_AEC_ERR_FE_RESERVED;
    return SONVEL_AEC_OK;
}

FrontendState *live_frontend(void *h) {
    if (h == nullptr || !aligned8(h)) return nullptr;
    auto *fe = static_cast<FrontendState *>(h);
    if (fe->magic != kFrontendMagic || (fe->rate != 8000 && fe->rate != 16000)) return nullptr;
    return fe;
}

const FrontendState *live_frontend(const void *h) { return live_frontend(const_cast<void *>(h)); }

}  // namespace sonvel::frontend

using sonvel::frontend::FrontendState;

extern "C" SONVEL_API int32_t Sonvel_AEC_FrontendGetSize(uint32_t *pu32Size) {
    if (pu32Size == nullptr) return SONVEL_AEC_ERR_FE_NULL;
    *pu32Size = sizeof(FrontendState);
    return SONVEL_AEC_OK;
}

extern "C" SONVEL_API int32_t Sonvel_AEC_FrontendInit(void **phFe, void *pMem, uint32_t u32MemSize,
                                                      uint32_t u32SampleRate,
                                                      const AecFrontendCfg *pstCfg) {
    using namespace sonvel::frontend;
    if (phFe == nullptr || pMem == nullptr) return SONVEL_AEC_ERR_FE_NULL;
    if (!aligned8(pMem)) return SONVEL_AEC_ERR_FE_MEM_ALIGN;
    if (u32MemSize < sizeof(FrontendState)) return SONVEL_AEC_ERR_FE_MEM_SIZE;
    if (u32SampleRate != 8000 && u32SampleRate != 16000) return SONVEL_AEC_ERR_FE_RATE;
    const int32_t check = check_frontend_cfg(pstCfg);
    if (check != SONVEL_AEC_OK) return check;
    auto *fe = static_cast<FrontendState *>(pMem);
    std::memset(fe, 0, sizeof *fe);
    fe->rate = u32SampleRate;
    fe->frameLen = static_cast<int32_t>(u32SampleRate / 100);
    fe->poleQ15 = high_pass_pole(u32SampleRate);
    delay_estimator_init(fe->est, u32SampleRate);
    drift_tracker_reset(fe->drift);
    const AecFrontendCfg off{};
    alignment_set_mode(*fe, pstCfg != nullptr ? *pstCfg : off);
    fe->magic = kFrontendMagic;
    *phFe = fe;
    return SONVEL_AEC_OK;
}

extern "C" SONVEL_API int32_t Sonvel_AEC_FrontendSetCfg(void *hFe, const AecFrontendCfg *pstCfg) {
    using namespace sonvel::frontend;
    if (hFe == nullptr || pstCfg == nullptr) return SONVEL_AEC_ERR_FE_NULL;
    FrontendState *fe = live_frontend(hFe);
    if (fe == nullptr) return SONVEL_AEC_ERR_FE_NOT_INITIALISED;
    const int32_t check = check_frontend_cfg(pstCfg);
    if (check != SONVEL_AEC_OK) return check;
    alignment_set_mode(*fe, *pstCfg);
    return SONVEL_AEC_OK;
}

extern "C" SONVEL_API int32_t Sonvel_AEC_FrontendProcess(void *hFe, const int16_t *ps16Near,
                                                         const int16_t *ps16Far,
                                                         int16_t *ps16NearOut, int16_t *ps16FarOut,
                                                         uint8_t *pu8StartPart) {
    using namespace sonvel::frontend;
    if (hFe == nullptr) return SONVEL_AEC_ERR_FE_NULL;
    FrontendState *fe = live_frontend(hFe);
    if (fe == nullptr) return SONVEL_AEC_ERR_FE_NOT_INITIALISED;
    if (ps16Near == nullptr || ps16Far == nullptr || ps16NearOut == nullptr ||
        ps16FarOut == nullptr) {
        return SONVEL_AEC_ERR_FE_NULL;
    }
    const int n = fe->frameLen;
    // The estimator and the meters read the raw inputs before any output is written, so an
    // output may alias its own input.
    dc_meter_frame(fe->hpNear, ps16Near, n);
    dc_meter_frame(fe->hpFar, ps16Far, n);
    const bool searched = delay_estimator_frame(fe->est, ps16Near, ps16Far, n);
    ++fe->frames;
    alignment_after_frame(*fe, searched);
    if (fe->cfg.u8DcBlock != 0) {
        high_pass(fe->hpNear, fe->poleQ15, ps16Near, fe->nearHp, n);
        high_pass(fe->hpFar, fe->poleQ15, ps16Far, fe->farHp, n);
        delay_line_process(fe->line, fe->farHp, ps16FarOut, n, fe->align.applied);
        std::memcpy(ps16NearOut, fe->nearHp, static_cast<size_t>(n) * sizeof(int16_t));
    } else {
        delay_line_process(fe->line, ps16Far, ps16FarOut, n, fe->align.applied);
        if (ps16NearOut != ps16Near)
            std::memcpy(ps16NearOut, ps16Near, static_cast<size_t>(n) * sizeof(int16_t));
    }
    if (pu8StartPart != nullptr && fe->cfg.u8DelayMode == SONVEL_AEC_DELAY_AUTO) {
        *pu8StartPart = fe->align.startPart;
    }
    return SONVEL_AEC_OK;
}

extern "C" SONVEL_API int32_t Sonvel_AEC_FrontendGetEstimate(const void *hFe,
                                                             AecFrontendEstimate *pstEst) {
    using namespace sonvel::frontend;
    if (hFe == nullptr || pstEst == nullptr) return SONVEL_AEC_ERR_FE_NULL;
    const FrontendState *fe = live_frontend(hFe);
    if (fe == nullptr) return SONVEL_AEC_ERR_FE_NOT_INITIALISED;
    AecFrontendEstimate e{};
    const int32_t q8 = delay_estimate_q8(fe->est);
    e.s32DelayEstimate = q8 < 0 ? -1 : (q8 + 128) >> 8;
    e.s32DelayApplied = fe->align.applied;
    e.s32DriftPpm = fe->drift.ppm;
    e.s16Confidence = static_cast<int16_t>(q8 < 0 ? 0 : fe->est.confidence);
    e.u8StartPart = fe->align.startPart;
    e.u8Locked = fe->align.locked;
    e.s16DcNear = dc_estimate(fe->hpNear);
    e.s16DcFar = dc_estimate(fe->hpFar);
    e.u32Frames = fe->frames;
    e.u32LatencySamples = 0;
    *pstEst = e;
    return SONVEL_AEC_OK;
}
