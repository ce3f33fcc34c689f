/* Core interface of the fixed-point acoustic echo canceller.
 *
 * The caller owns the instance memory: ask Sonvel_AEC_GetSize for its size, provide one 8-byte
 * aligned block, initialise it with Sonvel_AEC_Init and call Sonvel_AEC_Apply once per 10 ms
 * frame (80 samples at 8000 Hz, 160 at 16000 Hz). The output lags the input by one frame. The
 * library never allocates, keeps no global writable data and holds no pointer beyond a call.
 * One instance must be used by one thread at a time; separate instances are independent. */
#ifndef SONVEL_AEC_H
#define SONVEL_AEC_H

#include <stdint.h>
#include "sonvel_aec_export.h"

SONVEL_EXTERN_C_BEGIN

/* Parameter record. Five byte fields, then 16-bit fields (46 bytes with natural alignment). */
typedef struct AecCfg {
    uint8_t u8CnEnable;       /* comfort noise on (non-zero) / off */
    uint8_t u8StartPart;      /* first far-end history slot of the filter, 0..6 (bulk delay) */
    uint8_t u8NlpLevel;       /* suppression level 0..2 */
    uint8_t u8HighFreqMode;   /* high-frequency shaping mode 0..1 */
    uint8_t u8SampleRate;     /* 0 = 8000 Hz, 1 = 16000 Hz */
    int16_t s16CohThr;        /* Q15 incoherence threshold of the raised mode, >= 0 */
    int16_t s16HfBinLo;       /* band examined by the upper-band cut-off */
    int16_t s16HfBinHi;
    int16_t s16CohBinLo;      /* band [lo, hi) of the mean incoherence */
    int16_t s16CohBinHi;
    int16_t as16BandEdge[6];  /* non-decreasing edges of the seven coupling bands */
    int16_t s16ClampBinLo;    /* overdrive cap 2.0 for bins 0..lo */
    int16_t s16ClampBinHi;    /* overdrive cap 3.0 for bins lo+1..hi */
    int16_t as16BandShift[7]; /* coupling gain of band k is 4 * 2^h in Q15 */
} AecCfg;

/* Version record: three NUL-padded text fields. */
typedef struct AecVersion {
    char acProduct[48];
    char acBuildTime[28];
    char acToolchain[28];
} AecVersion;

/* Status codes. */
enum {
    SONVEL_AEC_OK = 0,
    SONVEL_AEC_ERR_INIT_HANDLE_NULL = -1,
    SONVEL_AEC_ERR_INIT_MEM_NULL = -2,
    SONVEL_AEC_ERR_INIT_MEM_ALIGN = -3,
    SONVEL_AEC_ERR_INIT_MEM_SIZE = -4,
    SONVEL_AEC_ERR_INIT_CFG_NULL = -5,
    SONVEL_AEC_ERR_INIT_FFT = -6,
    SONVEL_AEC_ERR_APPLY_HANDLE_NULL = -10,
    SONVEL_AEC_ERR_APPLY_HANDLE_ALIGN = -11,
    SONVEL_AEC_ERR_APPLY_NEAR_NULL = -12,
    SONVEL_AEC_ERR_APPLY_NEAR_ALIGN = -13,
    SONVEL_AEC_ERR_APPLY_FAR_NULL = -14,
    SONVEL_AEC_ERR_APPLY_FAR_ALIGN = -15,
    SONVEL_AEC_ERR_APPLY_OUT_NULL = -16,
    SONVEL_AEC_ERR_APPLY_OUT_ALIGN = -17,
    SONVEL_AEC_ERR_GUARD = -18,
    SONVEL_AEC_ERR_CFG_NULL = -20,
    SONVEL_AEC_ERR_CFG_START_PART = -21,
    SONVEL_AEC_ERR_CFG_NLP_LEVEL = -22,
    SONVEL_AEC_ERR_CFG_HIGH_FREQ_MODE = -23,
    SONVEL_AEC_ERR_CFG_BAND_EDGE = -24,
    SONVEL_AEC_ERR_CFG_SAMPLE_RATE = -25,
    SONVEL_AEC_ERR_CFG_COH_THR = -26,
    SONVEL_AEC_ERR_CFG_HF_BIN_ORDER = -27,
    SONVEL_AEC_ERR_CFG_HF_BIN_HI = -28,
    SONVEL_AEC_ERR_CFG_COH_BIN_ORDER = -29,
    SONVEL_AEC_ERR_SET_HANDLE_NULL = -30,
    SONVEL_AEC_ERR_SET_CFG_NULL = -31,
    SONVEL_AEC_ERR_GET_HANDLE_NULL = -40,
    SONVEL_AEC_ERR_GET_CFG_NULL = -41,
    SONVEL_AEC_ERR_VERSION_NULL = -50,
    SONVEL_AEC_ERR_NOT_INITIALISED = -51,
    SONVEL_AEC_ERR_SIZE_NULL = -60,
    SONVEL_AEC_ERR_SIZE_SECOND_NULL = -61,
    SONVEL_AEC_ERR_STATE_NULL = -99,
    SONVEL_AEC_ERR_STATE_ALIGN = -100,
    SONVEL_AEC_ERR_STATE_INIT_MAGIC = -101,
    SONVEL_AEC_ERR_CFG_COH_BIN_HI = -210,
    SONVEL_AEC_ERR_CFG_CLAMP_BIN_ORDER = -211,
    SONVEL_AEC_ERR_CFG_CLAMP_BIN_LO = -212
};

/* Size of one instance block in bytes. */
#define SONVEL_AEC_INSTANCE_BYTES 62064u

/* Writes the instance size (62064) to *pu32Size; pReserved must be non-null and is untouched. */
SONVEL_API int32_t Sonvel_AEC_GetSize(uint32_t *pu32Size, uint32_t *pReserved);
/* Initialises the block pMem (8-byte aligned, at least 62064 bytes) with the record; on success
 * writes the instance handle (the block address) to *phAec. */
SONVEL_API int32_t Sonvel_AEC_Init(void **phAec, void *pMem, uint32_t u32MemSize, const AecCfg *pstCfg);
/* Validates a record; changes nothing. */
SONVEL_API int32_t Sonvel_AEC_Check(const AecCfg *pstCfg);
/* Replaces the parameters of a live instance (the sample rate cannot change). */
SONVEL_API int32_t Sonvel_AEC_SetParams(void *hAec, const AecCfg *pstCfg);
/* Reads the parameters of a live instance. */
SONVEL_API int32_t Sonvel_AEC_GetParams(void *hAec, AecCfg *pstCfg);
/* Points *ppstVersion at the constant version record. */
SONVEL_API int32_t Sonvel_AEC_GetVersion(const AecVersion **ppstVersion);
/* Processes one 10 ms frame: near-end (microphone) and far-end (loudspeaker reference) in,
 * echo-cancelled near end out, one frame late. The output must not overlap the inputs. */
SONVEL_API int32_t Sonvel_AEC_Apply(void *hAec, const int16_t *ps16Near, const int16_t *ps16Far,
                                    int16_t *ps16Out);

/* Lower-level entry points. */
SONVEL_API int32_t Sonvel_AEC_Check8Align(const void *p);
SONVEL_API int32_t Sonvel_AEC_SUB_Init(void *pState, const AecCfg *pstCfg, int32_t s32Mode);
SONVEL_API int32_t Sonvel_AEC_SUB_Proc(void *pState, const int16_t *ps16Near, const int16_t *ps16Far,
                                       int16_t *ps16Out);

/* Read-only tables. */
SONVEL_API extern const AecCfg Sonvel_AEC_gastMrvAecCfgTab;
SONVEL_API extern const AecVersion Sonvel_AEC_gastAecVersionTab;
SONVEL_API extern const int16_t Sonvel_AEC_gasAecPro8K[4][6];
SONVEL_API extern const int16_t Sonvel_AEC_gasAecPro16K[4][6];

SONVEL_EXTERN_C_END

#endif
