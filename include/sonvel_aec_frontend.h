/* Front end and streaming layer of the echo canceller.
 *
 * On real devices the echo often reaches the microphone 20-300 ms after the reference is tapped,
 * beyond the adaptive filter's reach (48 ms; about 56 ms at most with u8StartPart), the two clocks
 * drift apart and the microphone carries a DC offset. The front end lines the reference up before
 * the core sees it:
 *   - a DC-blocking high-pass on the microphone and the reference (first order, cut-off about
 *     40 Hz at both rates; see the implementation's opening comment for the exact coefficients);
 *   - a reference delay line of up to SONVEL_AEC_FRONTEND_MAX_DELAY_MS;
 *   - a continuous estimate of the echo's bulk delay behind the reference, with a confidence,
 *     and of the clock drift in ppm from the delay's trend;
 *   - an automatic mode that sets the delay line (and the core's u8StartPart) from a confident
 *     estimate, with hysteresis, and re-aligns when the echo path moves.
 *
 * The streaming layer joins the front end, the core and a sample FIFO, so that a host may hand
 * any number of samples per call. It returns as many samples as it is given; its output lags its
 * input by Sonvel_AEC_StreamGetEstimate's u32LatencySamples = 2 F + B: one frame F of FIFO
 * priming (the first F output samples are zeros) plus the core's own frame and 8 ms block B,
 * i.e. 224 samples at 8000 Hz and 448 at 16000 Hz (28 ms). The front end adds no lag to the
 * microphone path.
 *
 * Both follow the core's rules: the caller owns the memory (ask for its size), nothing is
 * allocated, there is no global writable data and no pointer is kept beyond a call. The
 * arithmetic is integer, so every platform gives the same bits. With the front end off
 * (a null front-end record, or every mode off) the stream's output is the core's, sample for
 * sample. One instance must be used by one thread at a time. The stream does not support in-place
 * processing (its output must not alias an input); the front end alone may write each frame over
 * its own input (see Sonvel_AEC_FrontendProcess). */
#ifndef SONVEL_AEC_FRONTEND_H
#define SONVEL_AEC_FRONTEND_H

#include <stdint.h>
#include "sonvel_aec.h"
#include "sonvel_aec_export.h"

SONVEL_EXTERN_C_BEGIN

/* Longest reference delay the delay line holds. */
#define SONVEL_AEC_FRONTEND_MAX_DELAY_MS 500

/* u8DelayMode */
enum {
    SONVEL_AEC_DELAY_OFF = 0,   /* the reference goes to the core as it comes */
    SONVEL_AEC_DELAY_FIXED = 1, /* the reference is delayed by u16DelayMs */
    SONVEL_AEC_DELAY_AUTO = 2   /* the delay follows the estimate (u16DelayMs is the start) */
};

/* Front-end record. All zero: the front end is off. */
typedef struct AecFrontendCfg {
    uint8_t u8DcBlock;   /* non-zero: high-pass the microphone and the reference */
    uint8_t u8DelayMode; /* SONVEL_AEC_DELAY_* */
    uint8_t u8Drift;     /* non-zero: follow the clock drift (with u8DelayMode AUTO) */
    uint8_t u8Reserved;  /* must be 0 */
    uint16_t u16DelayMs; /* 0..SONVEL_AEC_FRONTEND_MAX_DELAY_MS */
} AecFrontendCfg;

/* What the front end currently knows. Delays are in samples at the instance's rate. */
typedef struct AecFrontendEstimate {
    int32_t s32DelayEstimate; /* estimated bulk delay of the echo, -1 while there is none */
    int32_t s32DelayApplied;  /* delay the delay line applies now */
    int32_t s32DriftPpm;   /* estimated drift, ppm (positive: the echo arrives later and later) */
    int16_t s16Confidence; /* Q15 confidence of the delay estimate, 0..32767 */
    uint8_t u8StartPart;   /* start partition the core runs with */
    uint8_t u8Locked;      /* non-zero once the automatic mode has applied an estimate */
    int16_t s16DcNear;     /* DC estimate of the microphone, LSB */
    int16_t s16DcFar;      /* DC estimate of the reference, LSB */
    uint32_t u32Frames;    /* frames processed */
    uint32_t u32LatencySamples; /* (stream only) total output lag behind the input, samples */
} AecFrontendEstimate;

/* Status codes of the front end and the streaming layer (the core's codes keep their meaning). */
enum {
    SONVEL_AEC_ERR_FE_NULL = -300,       /* a required pointer is null */
    SONVEL_AEC_ERR_FE_MEM_ALIGN = -301,  /* memory not 8-byte aligned */
    SONVEL_AEC_ERR_FE_MEM_SIZE = -302,   /* memory smaller than the size query's answer */
    SONVEL_AEC_ERR_FE_RATE = -303,       /* sample rate other than 8000 or 16000 Hz */
    SONVEL_AEC_ERR_FE_DELAY_MODE = -304, /* u8DelayMode out of range */
    SONVEL_AEC_ERR_FE_DELAY_MS = -305,   /* u16DelayMs above SONVEL_AEC_FRONTEND_MAX_DELAY_MS */
    SONVEL_AEC_ERR_FE_RESERVED = -306,   /* u8Reserved not 0 */
    SONVEL_AEC_ERR_FE_NOT_INITIALISED = -307, /* the handle is not an initialised instance */
    SONVEL_AEC_ERR_STREAM_COUNT = -310        /* sample count too large for one call */
};

/* ---- Front end alone: one 10 ms frame per call, in front of the caller's own core instance. */

/* Size in bytes of a front-end instance (any rate). */
SONVEL_API int32_t Sonvel_AEC_FrontendGetSize(uint32_t *pu32Size);
/* Initialises a front end in pMem (8-byte aligned) for u32SampleRate (8000 or 16000 Hz); a null
 * pstCfg means every function off. */
SONVEL_API int32_t Sonvel_AEC_FrontendInit(void **phFe, void *pMem, uint32_t u32MemSize,
                                           uint32_t u32SampleRate, const AecFrontendCfg *pstCfg);
/* Changes the front-end record of a live instance (the estimates are kept). */
SONVEL_API int32_t Sonvel_AEC_FrontendSetCfg(void *hFe, const AecFrontendCfg *pstCfg);
/* One frame: reads the raw microphone and reference frames, writes the frames to hand to the
 * core (high-passed microphone, delayed and high-passed reference). In automatic delay mode
 * *pu8StartPart receives the start partition the core should run with (the caller applies it
 * with Sonvel_AEC_SetParams when it differs from the current one); in the other modes it is left
 * as it is (the caller's own choice stands). It may be null. The delay estimator and the DC meters
 * run in every mode, so the estimates are there even with the front end off. An output may be
 * the same buffer as its own input. */
SONVEL_API int32_t Sonvel_AEC_FrontendProcess(void *hFe, const int16_t *ps16Near,
                                              const int16_t *ps16Far, int16_t *ps16NearOut,
                                              int16_t *ps16FarOut, uint8_t *pu8StartPart);
/* Reads the current estimates (u32LatencySamples is 0). */
SONVEL_API int32_t Sonvel_AEC_FrontendGetEstimate(const void *hFe, AecFrontendEstimate *pstEst);

/* ---- Streaming layer: front end + core + FIFO, any number of samples per call. */

/* Largest sample count one Sonvel_AEC_StreamProcess call accepts. */
#define SONVEL_AEC_STREAM_MAX_SAMPLES 1048576u

/* Size in bytes of a stream instance (any rate, front end included). */
SONVEL_API int32_t Sonvel_AEC_StreamGetSize(uint32_t *pu32Size);
/* Initialises a stream in pMem (8-byte aligned) with the core's record (its u8SampleRate chooses
 * the rate) and a front-end record (null: front end off). */
SONVEL_API int32_t Sonvel_AEC_StreamInit(void **phStream, void *pMem, uint32_t u32MemSize,
                                         const AecCfg *pstCfg, const AecFrontendCfg *pstFe);
/* Processes u32Samples (0..SONVEL_AEC_STREAM_MAX_SAMPLES) samples of microphone and reference and
 * writes as many output samples. The sample buffers need no particular alignment; with 0 samples
 * they may be null. On an error nothing is consumed and nothing is written. */
SONVEL_API int32_t Sonvel_AEC_StreamProcess(void *hStream, const int16_t *ps16Near,
                                            const int16_t *ps16Far, int16_t *ps16Out,
                                            uint32_t u32Samples);
/* Replaces the core's parameters (as Sonvel_AEC_SetParams; the rate cannot change). In automatic
 * delay mode the front end keeps choosing u8StartPart. */
SONVEL_API int32_t Sonvel_AEC_StreamSetParams(void *hStream, const AecCfg *pstCfg);
/* Reads the core's parameters as they are in use. */
SONVEL_API int32_t Sonvel_AEC_StreamGetParams(const void *hStream, AecCfg *pstCfg);
/* Changes the front-end record of a live stream. */
SONVEL_API int32_t Sonvel_AEC_StreamSetFrontend(void *hStream, const AecFrontendCfg *pstFe);
/* Reads the front end's estimates and the stream's latency. */
SONVEL_API int32_t Sonvel_AEC_StreamGetEstimate(const void *hStream, AecFrontendEstimate *pstEst);

SONVEL_EXTERN_C_END

#endif
