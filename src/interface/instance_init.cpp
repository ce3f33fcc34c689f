// Instance memory: the size query, initialisation of a caller-owned block (header, then the
// processing state), and the two-mode state initialiser: full set-up of every initial value, or
// replacement of the parameter copies and the coupling table of a live instance.
#include <cstring>

#include "interface/band_coupling.h"
#include "interface/instance_access.h"
#include "sonvel_aec.h"
#include "sonvel_aec_fft.h"
#include "spectral/processor.h"

static_assert(SONVEL_AEC_INSTANCE_BYTES == sonvel::kInstanceBytes);

namespace {

// Fixed initial values of a fresh state (everything else starts at zero).
void write_initial_values(AecState *st) {
    st->s32NotNearState = 1;
    st->s16CnSeed = 0x5555;
    st->s16Ovrd = 1024;
    st->s16OvrdSm = 1024;
    st->s16FbLocalMin = 32767;
    st->s16XdAvgMin = 32767;
    st->s16FbMin = 32767;
    for (int k = 0; k <= 128; ++k) {
        st->as16SeExp[k] = 5;
        st->as16SdExp[k] = 5;
        st->as16SxExp[k] = 5;
    }
    st->s16OvrdCapLo = 1024;
    st->s16OvrdCapHi = 1536;
    st->u16InitMagic = sonvel::kInitMagic;
    st->u32GuardA = sonvel::kGuardWord;
    st->u32GuardB = sonvel::kGuardWord;
    st->u32GuardC = sonvel::kGuardWord;
    st->u32StateMagic = sonvel::kStateMagic;
    st->s32OvrdTarget0 = 226353;  // ln 1000 in Q15
    st->s32OvrdTarget1 = 377256;  // ln 1e5
    st->s32OvrdTarget2 = 603609;  // ln 1e8
    st->s16OvrdFloor0 = 512;
    st->s16OvrdFloor1 = 1536;
    st->s16OvrdFloor2 = 2560;
    st->s16PrefBandLo = 6;
    st->s16PrefBandHi = 58;
}

// Block geometry of the rate: 0 selects 8000 Hz, anything else 16000 Hz.
void write_rate_values(AecState *st, uint8_t u8SampleRate) {
    const bool wide = u8SampleRate != 0;
    st->s16BlockLen = wide ? 128 : 64;
    st->s16HalfFftLen = wide ? 128 : 64;
    st->s16FftLen = wide ? 256 : 128;
    st->s16FftLen2 = wide ? 256 : 128;
    st->s16FftOrder = wide ? 8 : 7;
    st->s16RateShift = wide ? 7 : 8;
    st->s32RateFactor = wide ? 2 : 1;
}

void copy_parameters(AecState *st, const AecCfg &c) {
    st->u32CnEnable = c.u8CnEnable != 0 ? 1u : 0u;
    st->s16StartPart = c.u8StartPart;
    st->u16NlpLevel = c.u8NlpLevel;
    st->u16HighFreqMode = c.u8HighFreqMode;
    st->u16SampleRate = c.u8SampleRate;
    st->s16ClampBinLo = c.s16ClampBinLo;
    st->s16ClampBinHi = c.s16ClampBinHi;
    st->s16CohBinLo = c.s16CohBinLo;
    st->s16CohBinHi = c.s16CohBinHi;
    st->s16HfBinLo = c.s16HfBinLo;
    st->s16HfBinHi = c.s16HfBinHi;
    st->s16CohThr = c.s16CohThr;
    for (int k = 0; k < 6; ++k) st->as16BandEdge[k] = c.as16BandEdge[k];
    for (int k = 0; k < 7; ++k) st->as16BandShift[k] = c.as16BandShift[k];
    st->s16BandEdgeEnd = st->s16HalfFftLen;
}

}  // namespace

extern "C" SONVEL_API int32_t Sonvel_AEC_Check8Align(const void *p) {
    return sonvel::is_8_aligned(p) ? 1 : 0;
}

extern "C" SONVEL_API int32_t Sonvel_AEC_GetSize(uint32_t *pu32Size, uint32_t *pReserved) {
    if (pu32Size == nullptr) return SONVEL_AEC_ERR_SIZE_NULL;
    if (pReserved == nullptr) return SONVEL_AEC_ERR_SIZE_SECOND_NULL;
    *pu32Size = sonvel::kInstanceBytes;
    return SONVEL_AEC_OK;
}

extern "C" SONVEL_API int32_t Sonvel_AEC_SUB_Init(void *pState, const AecCfg *pstCfg,
                                                  int32_t s32Mode) {
    // 1. The state base.
    if (pState == nullptr) return SONVEL_AEC_ERR_STATE_NULL;
    if (Sonvel_AEC_Check8Align(pState) == 0) return SONVEL_AEC_ERR_STATE_ALIGN;
    auto *st = static_cast<AecState *>(pState);
    const bool full = (s32Mode & 0xFF) == 0;

    if (full) {
        // 3.-5. Clear, fixed initial values, rate-derived values.
        std::memset(st, 0, sizeof(AecState));
        write_initial_values(st);
        write_rate_values(st, pstCfg->u8SampleRate);
    } else if (st->u16InitMagic != sonvel::kInitMagic) {
        // 2. Re-initialisation needs a state that went through full initialisation.
        return SONVEL_AEC_ERR_STATE_INIT_MAGIC;
    }

    // 6.-7. Parameter copies and the coupling table, in both modes.
    copy_parameters(st, *pstCfg);
    sonvel::build_band_coupling(st);
    if (!full) return SONVEL_AEC_OK;

    // 9. The FFT plan of the creation rate.
    const int32_t order = st->u16SampleRate != 0 ? 8 : 7;
    const int32_t fftRet = Sonvel_FFTInit_C_SC32(st->au8FftPlan, order);
    // 10. The processor choice, asked once for the instance's lifetime.
    st->s32LanePath = static_cast<int32_t>(sp::probe_isa());
    return static_cast<int16_t>(fftRet) != 0 ? SONVEL_AEC_ERR_INIT_FFT : SONVEL_AEC_OK;
}

extern "C" SONVEL_API int32_t Sonvel_AEC_Init(void **phAec, void *pMem, uint32_t u32MemSize,
                                              const AecCfg *pstCfg) {
    // 1. Arguments.
    if (phAec == nullptr) return SONVEL_AEC_ERR_INIT_HANDLE_NULL;
    if (pMem == nullptr) return SONVEL_AEC_ERR_INIT_MEM_NULL;
    if (Sonvel_AEC_Check8Align(pMem) == 0) return SONVEL_AEC_ERR_INIT_MEM_ALIGN;
    if (u32MemSize < sonvel::kInstanceBytes) return SONVEL_AEC_ERR_INIT_MEM_SIZE;
    if (pstCfg == nullptr) return SONVEL_AEC_ERR_INIT_CFG_NULL;

    // 2. The record.
    const int32_t checkRet = Sonvel_AEC_Check(pstCfg);
    if (checkRet != SONVEL_AEC_OK) return checkRet;

    // 3. Header.
    sonvel::AecHeader *hdr = sonvel::header_of(pMem);
    std::memset(hdr, 0, sizeof(sonvel::AecHeader));
    hdr->u32StateOffset = sonvel::kHeaderBytes;
    hdr->u8HdrSampleRate = pstCfg->u8SampleRate;

    // 4. Processing state.
    const int32_t initRet = Sonvel_AEC_SUB_Init(sonvel::state_of(pMem), pstCfg, 0);
    if (initRet != SONVEL_AEC_OK) return initRet;

    // 5. Hand out the instance.
    *phAec = pMem;
    hdr->u16HdrMagic = sonvel::kHeaderMagic;
    return SONVEL_AEC_OK;
}
