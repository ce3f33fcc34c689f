/* Core interface of the fixed-point acoustic echo canceller.
 *
 * The caller owns the instance memory: ask Sonvel_AEC_GetSize for its size, provide one 8-byte
 * aligned block, initialise it with Sonvel_AEC_Init and call Sonvel_AEC_Apply once per 10 ms
 * frame (80 samples at 8000 Hz, 160 at 16000 Hz). The output lags the input by 18 ms: one frame
 * (10 ms) plus one 8 ms processing block. The library never allocates, keeps no global writable
 * data and holds no pointer beyond a call. One instance must be used by one thread at a time;
 * separate instances are independent. In-place processing is not supported: the output frame must
 * not alias (or overlap) either input frame.
 *
 * Installed as <sonvel_aec/sonvel_aec.h>; the flat path <sonvel_aec.h> forwards to it in this
 * release only (deprecated; the next release drops it). */
#ifndef SONVEL_AEC_H
#define SONVEL_AEC_H

#include <stdint.h>
#include "sonvel_aec_export.h"

/* Release of this header: the library built from the same sources reports the same release in
 * its version record (Sonvel_AEC_GetVersion, "REL-01.06.0"). SONVEL_AEC_VERSION is
 * major * 10000 + minor * 100 + patch, for comparisons in the preprocessor. */
#define SONVEL_AEC_VERSION_MAJOR 1
#define SONVEL_AEC_VERSION_MINOR 6
#define SONVEL_AEC_VERSION_PATCH 0
#define SONVEL_AEC_VERSION \
    (SONVEL_AEC_VERSION_MAJOR * 10000 + SONVEL_AEC_VERSION_MINOR * 100 + SONVEL_AEC_VERSION_PATCH)

SONVEL_EXTERN_C_BEGIN

/* Parameter record. Five byte fields, then 16-bit fields (46 bytes with natural alignment). */
typedef struct AecCfg {
    uint8_t u8CnEnable;     /* comfort noise on (non-zero) / off */
    uint8_t u8StartPart;    /* first far-end history slot of the filter, 0..6 (bulk delay) */
    uint8_t u8NlpLevel;     /* suppression level 0..2 */
    uint8_t u8HighFreqMode; /* high-frequency shaping mode 0..1 */
    uint8_t u8SampleRate;   /* 0 = 8000 Hz, 1 = 16000 Hz */
    int16_t s16CohThr;      /* Q15 incoherence threshold of the raised mode, >= 0 */
    int16_t s16HfBinLo;     /* band examined by the upper-band cut-off */
    int16_t s16HfBinHi;
    int16_t s16CohBinLo; /* band [lo, hi) of the mean incoherence */
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

/* Status codes. Sonvel_AEC_StatusText gives each one a fixed message; for a refused record field
 * the message names the field and its allowed range. B is the transform length: 128 at 8000 Hz,
 * 256 at 16000 Hz. */
enum {
    SONVEL_AEC_OK = 0,
    SONVEL_AEC_ERR_INIT_HANDLE_NULL = -1,      /* Init: phAec is null */
    SONVEL_AEC_ERR_INIT_MEM_NULL = -2,         /* Init: pMem is null */
    SONVEL_AEC_ERR_INIT_MEM_ALIGN = -3,        /* Init: pMem not 8-byte aligned */
    SONVEL_AEC_ERR_INIT_MEM_SIZE = -4,         /* Init: u32MemSize below 62064 */
    SONVEL_AEC_ERR_INIT_CFG_NULL = -5,         /* Init: pstCfg is null */
    SONVEL_AEC_ERR_INIT_FFT = -6,              /* Init: the transform could not be set up */
    SONVEL_AEC_ERR_APPLY_HANDLE_NULL = -10,    /* Apply: hAec is null */
    SONVEL_AEC_ERR_APPLY_HANDLE_ALIGN = -11,   /* Apply: hAec not 8-byte aligned */
    SONVEL_AEC_ERR_APPLY_NEAR_NULL = -12,      /* Apply: ps16Near is null */
    SONVEL_AEC_ERR_APPLY_NEAR_ALIGN = -13,     /* Apply: ps16Near not 2-byte aligned */
    SONVEL_AEC_ERR_APPLY_FAR_NULL = -14,       /* Apply: ps16Far is null */
    SONVEL_AEC_ERR_APPLY_FAR_ALIGN = -15,      /* Apply: ps16Far not 2-byte aligned */
    SONVEL_AEC_ERR_APPLY_OUT_NULL = -16,       /* Apply: ps16Out is null */
    SONVEL_AEC_ERR_APPLY_OUT_ALIGN = -17,      /* Apply: ps16Out not 2-byte aligned */
    SONVEL_AEC_ERR_GUARD = -18,                /* a guard word of the state was overwritten */
    SONVEL_AEC_ERR_CFG_NULL = -20,             /* Check: pstCfg is null */
    SONVEL_AEC_ERR_CFG_START_PART = -21,       /* u8StartPart outside 0..6 */
    SONVEL_AEC_ERR_CFG_NLP_LEVEL = -22,        /* u8NlpLevel outside 0..2 */
    SONVEL_AEC_ERR_CFG_HIGH_FREQ_MODE = -23,   /* u8HighFreqMode outside 0..1 */
    SONVEL_AEC_ERR_CFG_BAND_EDGE = -24,        /* as16BandEdge not 0 <= [0] <= ... <= [5] <= B */
    SONVEL_AEC_ERR_CFG_SAMPLE_RATE = -25,      /* u8SampleRate outside 0..1, or not the live rate */
    SONVEL_AEC_ERR_CFG_COH_THR = -26,          /* s16CohThr negative */
    SONVEL_AEC_ERR_CFG_HF_BIN_ORDER = -27,     /* s16HfBinLo outside 0..s16HfBinHi */
    SONVEL_AEC_ERR_CFG_HF_BIN_HI = -28,        /* s16HfBinHi above B */
    SONVEL_AEC_ERR_CFG_COH_BIN_ORDER = -29,    /* s16CohBinLo outside 0..s16CohBinHi */
    SONVEL_AEC_ERR_SET_HANDLE_NULL = -30,      /* SetParams: hAec is null */
    SONVEL_AEC_ERR_SET_CFG_NULL = -31,         /* SetParams: pstCfg is null */
    SONVEL_AEC_ERR_GET_HANDLE_NULL = -40,      /* GetParams: hAec is null */
    SONVEL_AEC_ERR_GET_CFG_NULL = -41,         /* GetParams: pstCfg is null */
    SONVEL_AEC_ERR_VERSION_NULL = -50,         /* GetVersion: ppstVersion is null */
    SONVEL_AEC_ERR_NOT_INITIALISED = -51,      /* the handle is not an initialised instance */
    SONVEL_AEC_ERR_SIZE_NULL = -60,            /* GetSize: pu32Size is null */
    SONVEL_AEC_ERR_SIZE_SECOND_NULL = -61,     /* GetSize: pReserved is null */
    SONVEL_AEC_ERR_STATE_NULL = -99,           /* SUB_Init: pState is null */
    SONVEL_AEC_ERR_STATE_ALIGN = -100,         /* SUB_Init: pState not 8-byte aligned */
    SONVEL_AEC_ERR_STATE_INIT_MAGIC = -101,    /* SUB_Init: re-init of a never initialised state */
    SONVEL_AEC_ERR_CFG_COH_BIN_HI = -210,      /* s16CohBinHi above B */
    SONVEL_AEC_ERR_CFG_CLAMP_BIN_ORDER = -211, /* s16ClampBinLo outside 0..s16ClampBinHi */
    SONVEL_AEC_ERR_CFG_CLAMP_BIN_LO = -212     /* s16ClampBinLo above B */
};

/* Size of one instance block in bytes. */
#define SONVEL_AEC_INSTANCE_BYTES 62064u

/* Writes the instance size (62064) to *pu32Size; pReserved must be non-null and is untouched. */
SONVEL_API int32_t Sonvel_AEC_GetSize(uint32_t *pu32Size, uint32_t *pReserved);
/* Initialises the block pMem (8-byte aligned, at least 62064 bytes) with the record; on success
 * writes the instance handle (the block address) to *phAec. */
SONVEL_API int32_t Sonvel_AEC_Init(void **phAec, void *pMem, uint32_t u32MemSize,
                                   const AecCfg *pstCfg);
/* Validates a record; changes nothing. */
SONVEL_API int32_t Sonvel_AEC_Check(const AecCfg *pstCfg);
/* Replaces the parameters of a live instance (the sample rate cannot change). */
SONVEL_API int32_t Sonvel_AEC_SetParams(void *hAec, const AecCfg *pstCfg);
/* Reads the parameters of a live instance. */
SONVEL_API int32_t Sonvel_AEC_GetParams(void *hAec, AecCfg *pstCfg);
/* Points *ppstVersion at the constant version record. */
SONVEL_API int32_t Sonvel_AEC_GetVersion(const AecVersion **ppstVersion);
/* Processes one 10 ms frame: near-end (microphone) and far-end (loudspeaker reference) in,
 * echo-cancelled near end out, 18 ms late (one frame plus one 8 ms processing block). In-place
 * processing is not supported: ps16Out must not alias or overlap ps16Near or ps16Far. */
SONVEL_API int32_t Sonvel_AEC_Apply(void *hAec, const int16_t *ps16Near, const int16_t *ps16Far,
                                    int16_t *ps16Out);

/* Fixed English message of a status code of this header or of sonvel_aec_frontend.h, for logs.
 * Never null; the text is static (never freed, never changed). A code the library does not define
 * gives "unknown status code". */
SONVEL_API const char *Sonvel_AEC_StatusText(int32_t s32Status);

/* Lower-level entry points. */
SONVEL_API int32_t Sonvel_AEC_Check8Align(const void *p);
SONVEL_API int32_t Sonvel_AEC_SUB_Init(void *pState, const AecCfg *pstCfg, int32_t s32Mode);
SONVEL_API int32_t Sonvel_AEC_SUB_Proc(void *pState, const int16_t *ps16Near,
                                       const int16_t *ps16Far, int16_t *ps16Out);

/* Read-only tables. */
SONVEL_API extern const AecCfg Sonvel_AEC_gastMrvAecCfgTab;
SONVEL_API extern const AecVersion Sonvel_AEC_gastAecVersionTab;
SONVEL_API extern const int16_t Sonvel_AEC_gasAecPro8K[4][6];
SONVEL_API extern const int16_t Sonvel_AEC_gasAecPro16K[4][6];

SONVEL_EXTERN_C_END

#endif
