// Streaming layer: front end, core and a sample FIFO, so that a host may hand any number of
// samples per call.
//
// The FIFO works a frame of F samples (rate / 100) at a time: each input sample is stored at the
// frame position `pos` and the output sample at the same position of the previously processed
// frame is handed out; when the frame is full it goes through the front end and the core, and its
// output replaces the one just emptied. The first F output samples are therefore zeros, and the
// output lags the input by F samples of FIFO plus the core's own lag (one frame and one 8 ms
// block): latency = 2 F + B, B = 64 (8000 Hz) or 128 (16000 Hz), i.e. 224 or 448 samples (28 ms).
// The front end adds no lag to the microphone path. With the front end off its frames reach the
// core unchanged, so the output is the core's, sample for sample, whatever the call sizes.
#include <cstring>

#include "sonvel_aec_frontend.h"
#include "stream/stream_state.h"

namespace {

using sonvel::stream::StreamState;

bool aligned8(const void *p) { return (reinterpret_cast<uintptr_t>(p) & 7u) == 0; }

StreamState *live_stream(void *h) {
    if (!aligned8(h)) return nullptr;
    auto *s = static_cast<StreamState *>(h);
    if (s->magic != sonvel::stream::kStreamMagic || (s->frameLen != 80 && s->frameLen != 160) ||
        s->pos < 0 || s->pos >= s->frameLen) {
        return nullptr;
    }
    return s;
}

// The start partition the core should run with: the front end's in automatic mode, the
// caller's otherwise.
uint8_t wanted_start_part(const StreamState &s) {
    return s.fe.cfg.u8DelayMode == SONVEL_AEC_DELAY_AUTO ? s.fe.align.startPart
                                                         : s.userCfg.u8StartPart;
}

int32_t apply_start_part(StreamState &s, uint8_t part) {
    if (part == s.runStartPart) return SONVEL_AEC_OK;
    AecCfg cfg = s.userCfg;
    cfg.u8StartPart = part;
    const int32_t r = Sonvel_AEC_SetParams(s.core, &cfg);
    if (r == SONVEL_AEC_OK) s.runStartPart = part;
    return r;
}

int32_t run_frame(StreamState &s) {
    uint8_t part = s.userCfg.u8StartPart;
    int32_t r = Sonvel_AEC_FrontendProcess(&s.fe, s.inNear, s.inFar, s.coreNear, s.coreFar, &part);
    if (r != SONVEL_AEC_OK) return r;
    r = apply_start_part(s, part);
    if (r != SONVEL_AEC_OK) return r;
    return Sonvel_AEC_Apply(s.core, s.coreNear, s.coreFar, s.out);
}

}  // namespace

extern "C" SONVEL_API int32_t Sonvel_AEC_StreamGetSize(uint32_t *pu32Size) {
    if (pu32Size == nullptr) return SONVEL_AEC_ERR_FE_NULL;
    *pu32Size = sizeof(StreamState);
    return SONVEL_AEC_OK;
}

extern "C" SONVEL_API int32_t Sonvel_AEC_StreamInit(void **phStream, void *pMem,
                                                    uint32_t u32MemSize, const AecCfg *pstCfg,
                                                    const AecFrontendCfg *pstFe) {
    if (phStream == nullptr || pMem == nullptr || pstCfg == nullptr) return SONVEL_AEC_ERR_FE_NULL;
    if (!aligned8(pMem)) return SONVEL_AEC_ERR_FE_MEM_ALIGN;
    if (u32MemSize < sizeof(StreamState)) return SONVEL_AEC_ERR_FE_MEM_SIZE;
    int32_t r = Sonvel_AEC_Check(pstCfg);
    if (r != SONVEL_AEC_OK) return r;
    r = sonvel::frontend::check_frontend_cfg(pstFe);
    if (r != SONVEL_AEC_OK) return r;
    auto *s = static_cast<StreamState *>(pMem);
    std::memset(s, 0, sizeof *s);
    const uint32_t rate = pstCfg->u8SampleRate == 1 ? 16000 : 8000;
    s->frameLen = static_cast<int32_t>(rate / 100);
    s->latency = static_cast<uint32_t>(2 * s->frameLen + (rate == 16000 ? 128 : 64));
    s->userCfg = *pstCfg;
    s->runStartPart = pstCfg->u8StartPart;
    void *core = nullptr;
    void *fe = nullptr;
    r = Sonvel_AEC_Init(&core, s->core, sizeof s->core, pstCfg);
    if (r == SONVEL_AEC_OK) r = Sonvel_AEC_FrontendInit(&fe, &s->fe, sizeof s->fe, rate, pstFe);
    if (r == SONVEL_AEC_OK) r = apply_start_part(*s, wanted_start_part(*s));
    if (r != SONVEL_AEC_OK) return r;
    s->magic = sonvel::stream::kStreamMagic;
    *phStream = s;
    return SONVEL_AEC_OK;
}

extern "C" SONVEL_API int32_t Sonvel_AEC_StreamProcess(void *hStream, const int16_t *ps16Near,
                                                       const int16_t *ps16Far, int16_t *ps16Out,
                                                       uint32_t u32Samples) {
    if (hStream == nullptr) return SONVEL_AEC_ERR_FE_NULL;
    StreamState *s = live_stream(hStream);
    if (s == nullptr) return SONVEL_AEC_ERR_FE_NOT_INITIALISED;
    if (u32Samples > SONVEL_AEC_STREAM_MAX_SAMPLES) return SONVEL_AEC_ERR_STREAM_COUNT;
    if (u32Samples == 0) return SONVEL_AEC_OK;
    if (ps16Near == nullptr || ps16Far == nullptr || ps16Out == nullptr)
        return SONVEL_AEC_ERR_FE_NULL;
    // Byte copies: the caller's sample buffers need no particular alignment.
    const auto *nearBytes = reinterpret_cast<const uint8_t *>(ps16Near);
    const auto *farBytes = reinterpret_cast<const uint8_t *>(ps16Far);
    auto *outBytes = reinterpret_cast<uint8_t *>(ps16Out);
    uint32_t done = 0;
    while (done < u32Samples) {
        const uint32_t room = static_cast<uint32_t>(s->frameLen - s->pos);
        const uint32_t take = u32Samples - done < room ? u32Samples - done : room;
        const size_t bytes = take * sizeof(int16_t), at = done * sizeof(int16_t);
        std::memcpy(s->inNear + s->pos, nearBytes + at, bytes);
        std::memcpy(s->inFar + s->pos, farBytes + at, bytes);
        std::memcpy(outBytes + at, s->out + s->pos, bytes);
        s->pos += static_cast<int32_t>(take);
        done += take;
        if (s->pos == s->frameLen) {
            s->pos = 0;
            const int32_t r = run_frame(*s);
            if (r != SONVEL_AEC_OK) return r;  // a damaged instance: the core refuses its frame
        }
    }
    return SONVEL_AEC_OK;
}

extern "C" SONVEL_API int32_t Sonvel_AEC_StreamSetParams(void *hStream, const AecCfg *pstCfg) {
    if (hStream == nullptr || pstCfg == nullptr) return SONVEL_AEC_ERR_FE_NULL;
    StreamState *s = live_stream(hStream);
    if (s == nullptr) return SONVEL_AEC_ERR_FE_NOT_INITIALISED;
    int32_t r = Sonvel_AEC_Check(pstCfg);
    if (r != SONVEL_AEC_OK) return r;
    if (pstCfg->u8SampleRate != s->userCfg.u8SampleRate) return SONVEL_AEC_ERR_CFG_SAMPLE_RATE;
    AecCfg run = *pstCfg;
    run.u8StartPart =
        s->fe.cfg.u8DelayMode == SONVEL_AEC_DELAY_AUTO ? s->runStartPart : pstCfg->u8StartPart;
    r = Sonvel_AEC_SetParams(s->core, &run);
    if (r != SONVEL_AEC_OK) return r;
    s->userCfg = *pstCfg;
    s->runStartPart = run.u8StartPart;
    return SONVEL_AEC_OK;
}

extern "C" SONVEL_API int32_t Sonvel_AEC_StreamGetParams(const void *hStream, AecCfg *pstCfg) {
    if (hStream == nullptr || pstCfg == nullptr) return SONVEL_AEC_ERR_FE_NULL;
    StreamState *s = live_stream(const_cast<void *>(hStream));
    if (s == nullptr) return SONVEL_AEC_ERR_FE_NOT_INITIALISED;
    return Sonvel_AEC_GetParams(s->core, pstCfg);
}

extern "C" SONVEL_API int32_t Sonvel_AEC_StreamSetFrontend(void *hStream,
                                                           const AecFrontendCfg *pstFe) {
    if (hStream == nullptr) return SONVEL_AEC_ERR_FE_NULL;
    StreamState *s = live_stream(hStream);
    if (s == nullptr) return SONVEL_AEC_ERR_FE_NOT_INITIALISED;
    const AecFrontendCfg off{};
    const int32_t r = Sonvel_AEC_FrontendSetCfg(&s->fe, pstFe != nullptr ? pstFe : &off);
    if (r != SONVEL_AEC_OK) return r;
    return apply_start_part(*s, wanted_start_part(*s));
}

extern "C" SONVEL_API int32_t Sonvel_AEC_StreamGetEstimate(const void *hStream,
                                                           AecFrontendEstimate *pstEst) {
    if (hStream == nullptr || pstEst == nullptr) return SONVEL_AEC_ERR_FE_NULL;
    StreamState *s = live_stream(const_cast<void *>(hStream));
    if (s == nullptr) return SONVEL_AEC_ERR_FE_NOT_INITIALISED;
    AecFrontendEstimate e{};
    const int32_t r = Sonvel_AEC_FrontendGetEstimate(&s->fe, &e);
    if (r != SONVEL_AEC_OK) return r;
    e.u8StartPart = s->runStartPart;
    e.u32LatencySamples = s->latency;
    *pstEst = e;
    return SONVEL_AEC_OK;
}
