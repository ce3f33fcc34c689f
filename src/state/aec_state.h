// Processing state of one instance: everything the linear canceller and the residual echo
// suppressor keep from block to block, plus the parameter copies, the rate-derived sizes, the FFT
// plan and the integrity words. It starts 3880 bytes into the instance block and fills the
// remaining 58184 bytes; the guard word u32GuardC is its very last word.
#pragma once

#include <cstddef>
#include <cstdint>

#include "sonvel_aec_fft.h"
#include "state/aec_header.h"

namespace sonvel {

inline constexpr int kSpecSlots = 12;       // history / partition slots
inline constexpr int kSpecSlotWords = 260;  // one packed spectrum of N = 256 plus guard words
inline constexpr int kBinWords = 132;       // per-bin arrays: bins 0..M plus guard bins
inline constexpr uint32_t kStateMagic = 0x5A5A;
inline constexpr uint16_t kInitMagic = 0xA5A5;
inline constexpr uint32_t kGuardWord = 0x5A5A5A5A;

}  // namespace sonvel

struct AecState {
    // Spectrum histories and filter partitions (packed spectra, slot 0 newest).
    int32_t aiFarSpecHist[sonvel::kSpecSlots][sonvel::kSpecSlotWords];
    int32_t aiNlpSpecHist[sonvel::kSpecSlots][sonvel::kSpecSlotWords];
    int32_t aiFiltPart[sonvel::kSpecSlots][sonvel::kSpecSlotWords];

    // Suppressor cross-spectra (re, im interleaved), overlap buffer, smoothed far-end power.
    int32_t ai32SxdMan[2 * sonvel::kBinWords];
    int32_t ai32SedMan[2 * sonvel::kBinWords];
    int32_t ai32OlaBuf[256];
    int32_t aiFarPow[sonvel::kBinWords];

    uint32_t u32GuardA;
    int32_t s32MaxPartIdx;

    alignas(8) uint8_t au8FftPlan[SONVEL_FFT_PLAN_BYTES];

    // Band edges (with the closing edge M) and band shifts.
    int16_t as16BandEdge[6];
    int16_t s16BandEdgeEnd;
    int16_t as16BandShift[7];

    // Cross-spectrum Q values (re, im interleaved).
    int16_t as16SxdExp[2 * sonvel::kBinWords];
    int16_t as16SedExp[2 * sonvel::kBinWords];

    // Time buffers: [0, L) previous block, [L, 2L) current block. The far buffer has four
    // trailing entries that stay zero.
    int16_t as16FarTimeBuf[260];
    int16_t as16FarLevelHist[24];
    int16_t as16NearTimeBuf[256];

    // Suppressor power Q values and comfort-noise arrays.
    int16_t as16SeExp[sonvel::kBinWords];
    int16_t as16SdExp[sonvel::kBinWords];
    int16_t as16SxExp[sonvel::kBinWords];
    int16_t as16DPowExp[sonvel::kBinWords];
    int16_t as16CnAvgExp[sonvel::kBinWords];
    int16_t as16CnFloorExp[sonvel::kBinWords];
    int16_t as16CnRiseCnt[sonvel::kBinWords];

    // Per-bin coupling gain of the echo-band gain (Q15, 32768 = 1.0).
    int32_t ai32BandCoupling[sonvel::kBinWords];

    // Echo-band gain powers (mantissa, Q value) and the gain itself.
    int32_t ai32AsxMan[sonvel::kBinWords];
    int32_t ai32AsyMan[sonvel::kBinWords];
    int32_t ai32AseMan[sonvel::kBinWords];
    int16_t as16AsxExp[sonvel::kBinWords];
    int16_t as16AsyExp[sonvel::kBinWords];
    int16_t as16AseExp[sonvel::kBinWords];
    int16_t as16EchoBandGain[sonvel::kBinWords];

    // Echo estimate of the current and the previous block.
    int32_t ai32EchoEst[128];
    int32_t ai32EchoPrev[130];

    uint32_t u32GuardB;

    // Scalar block: magics, rate-derived sizes, parameter copies, counters, flags, thresholds.
    uint32_t u32StateMagic;
    uint16_t u16InitMagic;
    int16_t s16BlockLen;
    int16_t s16HalfFftLen;
    int16_t s16FftLen;
    int16_t s16FftLen2;
    int16_t s16FftOrder;
    int16_t s16RateShift;
    int32_t s32RateFactor;

    uint32_t u32CnEnable;
    int16_t s16StartPart;
    uint16_t u16NlpLevel;
    uint16_t u16HighFreqMode;
    uint16_t u16SampleRate;
    int16_t s16CohThr;
    int16_t s16HfBinLo;
    int16_t s16HfBinHi;
    int16_t s16CohBinLo;
    int16_t s16CohBinHi;
    int16_t s16ClampBinLo;
    int16_t s16ClampBinHi;

    // Levels and activity detectors.
    int16_t s16NearLevel;
    int16_t as16NearVadSt[4];
    int16_t as16FarVadSt[4];
    int16_t s16NearActive;
    int16_t s16FarActive;
    int32_t s32PartSearchCnt;

    // Coherence analysis.
    int32_t s32NearState;
    int32_t s32NotNearState;
    int32_t s32EchoState;
    int16_t s16XdAvg;
    int16_t s16XdAvgMin;
    int16_t s16FbMin;
    int16_t s16FbLocalMin;
    int32_t s32MinHoldCnt;
    int32_t s32NewMin;
    int16_t s16PrefBandLo;
    int16_t s16PrefBandHi;

    // Suppression control.
    int32_t s32OvrdTarget0;
    int32_t s32OvrdTarget1;
    int32_t s32OvrdTarget2;
    int16_t s16OvrdFloor0;
    int16_t s16OvrdFloor1;
    int16_t s16OvrdFloor2;
    int16_t s16Ovrd;
    int16_t s16OvrdSm;
    int16_t s16OvrdCapLo;
    int16_t s16OvrdCapHi;
    int16_t s16Pad0;
    int32_t s32OvrdBoost;

    // Divergence guard.
    int32_t s32Diverged;
    int16_t s16DivRunCnt;

    // Frame step, echo-band gain, gain shaping, comfort noise.
    int16_t s16FarQuietCnt;
    int16_t s16FarQuietLen;
    int16_t s16CnSeed;
    int32_t s32GainCapCnt;
    int32_t s32CnBlockCnt;

    // Further per-bin arrays of the suppressor.
    int16_t as16BinOvrd[136];
    int16_t as16LowGainSm[12];

    // Error block of the current and the previous block.
    int32_t ai32ErrBlk[128];
    int32_t ai32ErrPrev[130];

    // Power mantissas.
    int32_t ai32SeMan[sonvel::kBinWords];
    int32_t ai32SdMan[sonvel::kBinWords];
    int32_t ai32SxMan[sonvel::kBinWords];
    int32_t ai32DPowMan[sonvel::kBinWords];
    int32_t ai32CnAvgMan[130];
    int32_t ai32CnFloorMan[130];

    // The processor choice of the instance (sp::Isa), recorded at initialisation.
    int32_t s32LanePath;

    uint8_t au8Reserved[541];

    uint32_t u32GuardC;
};

static_assert(sizeof(AecState) == sonvel::kStateBytes, "processing state must fill 58184 bytes");
static_assert(offsetof(AecState, u32GuardC) == sonvel::kStateBytes - 4,
              "guard word C must be the last word of the state");
static_assert(alignof(AecState) == 8);
static_assert(offsetof(AecState, s32LanePath) % 4 == 0);
static_assert(offsetof(AecState, au8FftPlan) % 8 == 0);
static_assert(sonvel::kHeaderBytes % 8 == 0, "state base must stay 8-byte aligned");
