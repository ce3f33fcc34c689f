/* Host plug-in face of the echo canceller: the descriptor a host audio framework looks up, and the
 * records it exchanges with the three entry points. Unlike the core interface, these entry points
 * allocate the instance themselves and report failures on standard error. */
#ifndef SONVEL_AEC_HOST_H
#define SONVEL_AEC_HOST_H

#include <stdint.h>
#include "sonvel_aec_export.h"

SONVEL_EXTERN_C_BEGIN

/* AEC configuration supplied by the host. */
typedef struct KxAecConfig {
    int32_t s32UseCfg; /* non-zero: use the values below; 0: the built-in set */
    uint8_t u8CnEnable;
    uint8_t u8NlpLevel;
    uint8_t au8Reserved[2];
    int16_t s16CohThr;
    int16_t s16HfBinLo;
    int16_t s16HfBinHi;
    int16_t s16CohBinLo;
    int16_t s16CohBinHi;
    int16_t as16BandEdge[6];
    int16_t as16BandShift[7];
    int16_t s16ClampBinLo;
    int16_t s16ClampBinHi;
} KxAecConfig;

/* Host configuration record; only pstAecConfig is read (it must not be null). */
typedef struct KxAecHostConfig {
    void *pHostReserved0;
    void *pHostReserved1;
    KxAecConfig *pstAecConfig;
} KxAecHostConfig;

/* Audio buffer record: ps16Main is the near end (input) or the destination (output); ps16Ref is
 * the far-end reference; s32Bytes is the byte count of each buffer, a whole number of frames. */
typedef struct KxAecFrame {
    int16_t *ps16Main;
    int16_t *ps16Ref;
    void *pReserved0;
    void *pReserved1;
    int32_t s32Bytes;
} KxAecFrame;

/* Wrapper handle (allocated by KX_AEC_Init). */
typedef struct KxAecHandle {
    void *hCore;          /* core instance handle */
    uint32_t u32FrameLen; /* samples per frame: 80, 160, or 0 for an unsupported rate */
    void *pMem;           /* instance block */
} KxAecHandle;

typedef int32_t (*KxAecInitFn)(void **phHandle, int32_t s32SampleRate,
                               const KxAecHostConfig *pstConfig);
typedef int32_t (*KxAecProcessFn)(void *hHandle, const KxAecFrame *pstIn, KxAecFrame *pstOut);
typedef int32_t (*KxAecDeInitFn)(void *hHandle);

/* Plug-in descriptor. */
typedef struct KxAecWorkHandle {
    char acName[32];
    KxAecInitFn pfnInit;
    KxAecProcessFn pfnProcess;
    KxAecDeInitFn pfnDeInit;
} KxAecWorkHandle;

SONVEL_API extern const KxAecWorkHandle g_Audio_AEC_WorkHandle;

/* Diagnostics. Every failure of the wrapper writes to standard error
 *   "\n\n\033[40m\033[31m\033[1m**Err In <function>-<line>:  <message>**\033[0m\n\n"
 * with these line numbers and messages:
 *   KX_AEC_Init     50  "pstConfig is NULL!"
 *   KX_AEC_Init     52  "pstAecConfig is NULL!"          (AEC configuration pointer null)
 *   KX_AEC_Init     54  "phHandle is NULL!"              (handle out-pointer null)
 *   KX_AEC_Init     60  "malloc fail"                    (handle record)
 *   KX_AEC_Init     62  "handle clear fail"              (clearing the handle record)
 *   KX_AEC_Init     79  "AEC Unsupport 48k samplerate!\n"
 *   KX_AEC_Init    152  "Sonvel_AEC_GetSize"             (instance size + 8 not positive)
 *   KX_AEC_Init    163  "malloc fail"                    (instance block)
 *   KX_AEC_Init    180  "Sonvel_AEC_Init", then "s32Ret is <core status>\n"
 *   KX_AEC_Process 200  "hHandle is NULL!"
 *   KX_AEC_Process 202  "pstIn is NULL!"
 *   KX_AEC_Process 204  "pstOut is NULL!"
 *   KX_AEC_Process 206  "Unsupported samplerate, no frame length!"  (created at a rate other
 *                                                     than 8000 / 16000 Hz)
 *   KX_AEC_Process 208  "byte count is not a whole number of frames!"  (negative, or its
 *                                                     samples, bytes / 2, not a multiple of the
 *                                                     frame length)
 *   KX_AEC_Process 227  "Sonvel_AEC_Apply", then "s32Return is <core status>\n"
 * Refusals (all but 227) return -1 before any frame is processed or any record is written. A
 * null sample pointer of a non-empty buffer is refused by the core on the first frame: its
 * status (-12 near end, -14 far end, -16 output) with diagnostic 227. */

/* Creates an instance for 8000 or 16000 Hz. Returns 0, or -1 on any failure (with a diagnostic
 * on standard error). *phHandle is written only on success. */
SONVEL_API int32_t KX_AEC_Init(void **phHandle, int32_t s32SampleRate,
                               const KxAecHostConfig *pstConfig);
/* Processes s32Bytes / 2 samples as consecutive 10 ms frames, after copying the far-end pointer
 * and the byte count into the output record. Returns 0, the core status of the first failing
 * frame, or -1 for a null handle or record, an instance of neither rate, or a byte count that is
 * not a whole number of frames. */
SONVEL_API int32_t KX_AEC_Process(void *hHandle, const KxAecFrame *pstIn, KxAecFrame *pstOut);
/* Releases the instance; a null handle is accepted. Always returns 0. */
SONVEL_API int32_t KX_AEC_DeInit(void *hHandle);

SONVEL_EXTERN_C_END

#endif
