// Status texts: one fixed message per status code of the core, the front end and the streaming
// layer, for integrations to log as they are. A refused parameter names its field and the range
// that is allowed; a code the library never returns gets one fixed text, never a null pointer.
#include "sonvel_aec.h"
#include "sonvel_aec_frontend.h"

// The texts spell these limits out; they must follow the headers.
static_assert(SONVEL_AEC_INSTANCE_BYTES == 62064u);
static_assert(SONVEL_AEC_FRONTEND_MAX_DELAY_MS == 500);
static_assert(SONVEL_AEC_DELAY_AUTO == 2);
static_assert(SONVEL_AEC_STREAM_MAX_SAMPLES == 1048576u);

namespace {

struct StatusEntry {
    int32_t code;
    const char *text;
};

// "B" in the texts of the bin fields: the transform length, 128 at 8000 Hz and 256 at 16000 Hz.
constexpr StatusEntry kStatusTexts[] = {
    {SONVEL_AEC_OK, "success"},
    {SONVEL_AEC_ERR_INIT_HANDLE_NULL, "Sonvel_AEC_Init: handle out-pointer (phAec) is null"},
    {SONVEL_AEC_ERR_INIT_MEM_NULL, "Sonvel_AEC_Init: instance memory (pMem) is null"},
    {SONVEL_AEC_ERR_INIT_MEM_ALIGN, "Sonvel_AEC_Init: instance memory (pMem) not 8-byte aligned"},
    {SONVEL_AEC_ERR_INIT_MEM_SIZE,
     "Sonvel_AEC_Init: u32MemSize out of range (allowed at least 62064 bytes)"},
    {SONVEL_AEC_ERR_INIT_CFG_NULL, "Sonvel_AEC_Init: parameter record (pstCfg) is null"},
    {SONVEL_AEC_ERR_INIT_FFT, "Sonvel_AEC_Init: the transform could not be set up"},
    {SONVEL_AEC_ERR_APPLY_HANDLE_NULL, "Sonvel_AEC_Apply: handle is null"},
    {SONVEL_AEC_ERR_APPLY_HANDLE_ALIGN, "Sonvel_AEC_Apply: handle not 8-byte aligned"},
    {SONVEL_AEC_ERR_APPLY_NEAR_NULL, "Sonvel_AEC_Apply: near-end frame (ps16Near) is null"},
    {SONVEL_AEC_ERR_APPLY_NEAR_ALIGN,
     "Sonvel_AEC_Apply: near-end frame (ps16Near) not 2-byte aligned"},
    {SONVEL_AEC_ERR_APPLY_FAR_NULL, "Sonvel_AEC_Apply: far-end frame (ps16Far) is null"},
    {SONVEL_AEC_ERR_APPLY_FAR_ALIGN,
     "Sonvel_AEC_Apply: far-end frame (ps16Far) not 2-byte aligned"},
    {SONVEL_AEC_ERR_APPLY_OUT_NULL, "Sonvel_AEC_Apply: output frame (ps16Out) is null"},
    {SONVEL_AEC_ERR_APPLY_OUT_ALIGN, "Sonvel_AEC_Apply: output frame (ps16Out) not 2-byte aligned"},
    {SONVEL_AEC_ERR_GUARD,
     "instance damaged: a guard word of its state was overwritten (initialise it again)"},
    {SONVEL_AEC_ERR_CFG_NULL, "Sonvel_AEC_Check: parameter record is null"},
    {SONVEL_AEC_ERR_CFG_START_PART, "u8StartPart out of range (allowed 0..6)"},
    {SONVEL_AEC_ERR_CFG_NLP_LEVEL, "u8NlpLevel out of range (allowed 0..2)"},
    {SONVEL_AEC_ERR_CFG_HIGH_FREQ_MODE, "u8HighFreqMode out of range (allowed 0..1)"},
    {SONVEL_AEC_ERR_CFG_BAND_EDGE,
     "as16BandEdge out of range (allowed 0 <= [0] <= [1] <= ... <= [5] <= B; "
     "B = 128 at 8000 Hz, 256 at 16000 Hz)"},
    {SONVEL_AEC_ERR_CFG_SAMPLE_RATE,
     "u8SampleRate out of range (allowed 0 = 8000 Hz, 1 = 16000 Hz; a live instance keeps the "
     "rate it was initialised with)"},
    {SONVEL_AEC_ERR_CFG_COH_THR, "s16CohThr out of range (allowed 0..32767)"},
    {SONVEL_AEC_ERR_CFG_HF_BIN_ORDER, "s16HfBinLo out of range (allowed 0..s16HfBinHi)"},
    {SONVEL_AEC_ERR_CFG_HF_BIN_HI,
     "s16HfBinHi out of range (allowed s16HfBinLo..B; B = 128 at 8000 Hz, 256 at 16000 Hz)"},
    {SONVEL_AEC_ERR_CFG_COH_BIN_ORDER, "s16CohBinLo out of range (allowed 0..s16CohBinHi)"},
    {SONVEL_AEC_ERR_CFG_COH_BIN_HI,
     "s16CohBinHi out of range (allowed s16CohBinLo..B; B = 128 at 8000 Hz, 256 at 16000 Hz)"},
    {SONVEL_AEC_ERR_CFG_CLAMP_BIN_ORDER, "s16ClampBinLo out of range (allowed 0..s16ClampBinHi)"},
    {SONVEL_AEC_ERR_CFG_CLAMP_BIN_LO,
     "s16ClampBinLo out of range (allowed at most B; B = 128 at 8000 Hz, 256 at 16000 Hz)"},
    {SONVEL_AEC_ERR_SET_HANDLE_NULL, "Sonvel_AEC_SetParams: handle is null"},
    {SONVEL_AEC_ERR_SET_CFG_NULL, "Sonvel_AEC_SetParams: parameter record is null"},
    {SONVEL_AEC_ERR_GET_HANDLE_NULL, "Sonvel_AEC_GetParams: handle is null"},
    {SONVEL_AEC_ERR_GET_CFG_NULL, "Sonvel_AEC_GetParams: parameter record is null"},
    {SONVEL_AEC_ERR_VERSION_NULL, "Sonvel_AEC_GetVersion: out-pointer is null"},
    {SONVEL_AEC_ERR_NOT_INITIALISED,
     "handle is not an initialised instance (never initialised, or its header or state was "
     "overwritten)"},
    {SONVEL_AEC_ERR_SIZE_NULL, "Sonvel_AEC_GetSize: size out-pointer (pu32Size) is null"},
    {SONVEL_AEC_ERR_SIZE_SECOND_NULL, "Sonvel_AEC_GetSize: second pointer (pReserved) is null"},
    {SONVEL_AEC_ERR_STATE_NULL, "Sonvel_AEC_SUB_Init: state pointer is null"},
    {SONVEL_AEC_ERR_STATE_ALIGN, "Sonvel_AEC_SUB_Init: state not 8-byte aligned"},
    {SONVEL_AEC_ERR_STATE_INIT_MAGIC,
     "Sonvel_AEC_SUB_Init: re-initialisation of a state that was never fully initialised"},
    {SONVEL_AEC_ERR_FE_NULL, "front end or stream: a required pointer is null"},
    {SONVEL_AEC_ERR_FE_MEM_ALIGN, "front end or stream: memory (pMem) not 8-byte aligned"},
    {SONVEL_AEC_ERR_FE_MEM_SIZE,
     "front end or stream: u32MemSize out of range (allowed at least the size query's answer)"},
    {SONVEL_AEC_ERR_FE_RATE, "u32SampleRate out of range (allowed 8000 or 16000)"},
    {SONVEL_AEC_ERR_FE_DELAY_MODE, "u8DelayMode out of range (allowed 0..2)"},
    {SONVEL_AEC_ERR_FE_DELAY_MS, "u16DelayMs out of range (allowed 0..500)"},
    {SONVEL_AEC_ERR_FE_RESERVED, "u8Reserved out of range (allowed 0)"},
    {SONVEL_AEC_ERR_FE_NOT_INITIALISED,
     "front end or stream: handle is not an initialised instance"},
    {SONVEL_AEC_ERR_STREAM_COUNT,
     "Sonvel_AEC_StreamProcess: u32Samples out of range (allowed 0..1048576)"},
};

}  // namespace

extern "C" SONVEL_API const char *Sonvel_AEC_StatusText(int32_t s32Status) {
    for (const StatusEntry &e : kStatusTexts) {
        if (e.code == s32Status) return e.text;
    }
    return "unknown status code";
}
