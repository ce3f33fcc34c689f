// Host plug-in entry points and their descriptor: creation of an instance (handle record and
// instance block on the heap), processing of buffers of whole frames, release.
#include <cstdlib>

#include "host/bounded_fill.h"
#include "host/host_config.h"
#include "host/host_diagnostics.h"
#include "sonvel_aec.h"
#include "sonvel_aec_host.h"

static_assert(sizeof(KxAecHandle) == 24, "wrapper handle: core handle, frame length, block");

namespace {

constexpr const char *kInitName = "KX_AEC_Init";
constexpr const char *kProcessName = "KX_AEC_Process";

// Refusals of arguments the wrapper cannot work with: -1 and a diagnostic.
int32_t refuse(const char *function, int line, const char *message) {
    sonvel::report_failure(function, line, message);
    return -1;
}

// Allocates the instance block into the handle and initialises the core in it.
int32_t create_instance(KxAecHandle *h, const AecCfg &cfg) {
    uint32_t size = 0;
    uint32_t reserved = 0;
    (void)Sonvel_AEC_GetSize(&size, &reserved);
    const int32_t padded = static_cast<int32_t>(size + 8u);
    if (padded <= 0) return refuse(kInitName, 152, "Sonvel_AEC_GetSize");

    h->pMem = std::malloc(static_cast<size_t>(padded));
    if (h->pMem == nullptr) return refuse(kInitName, 163, "malloc fail");

    const int32_t ret = Sonvel_AEC_Init(&h->hCore, h->pMem, size, &cfg);
    if (ret != SONVEL_AEC_OK) {
        sonvel::report_failure(kInitName, 180, "Sonvel_AEC_Init");
        sonvel::report_init_status(ret);
        std::free(h->pMem);
        return -1;
    }
    return 0;
}

// A buffer pair the wrapper can run: a live handle, records present, whole frames. Null sample
// pointers are the core's to refuse (its own status, diagnostic 227), after the pass-through.
int32_t check_process_arguments(const KxAecHandle *h, const KxAecFrame *in, const KxAecFrame *out) {
    if (h == nullptr) return refuse(kProcessName, 200, "hHandle is NULL!");
    if (in == nullptr) return refuse(kProcessName, 202, "pstIn is NULL!");
    if (out == nullptr) return refuse(kProcessName, 204, "pstOut is NULL!");
    if (h->u32FrameLen != 80 && h->u32FrameLen != 160) {
        return refuse(kProcessName, 206, "Unsupported samplerate, no frame length!");
    }
    // The samples (bytes / 2, a trailing odd byte is no sample) must make whole frames.
    if (in->s32Bytes < 0 || (in->s32Bytes / 2) % static_cast<int32_t>(h->u32FrameLen) != 0) {
        return refuse(kProcessName, 208, "byte count is not a whole number of frames!");
    }
    return 0;
}

}  // namespace

extern "C" SONVEL_API int32_t KX_AEC_Init(void **phHandle, int32_t s32SampleRate,
                                          const KxAecHostConfig *pstConfig) {
    // 1. Configuration and out-pointer.
    if (pstConfig == nullptr) return refuse(kInitName, 50, "pstConfig is NULL!");
    const KxAecConfig *host = pstConfig->pstAecConfig;
    if (host == nullptr) return refuse(kInitName, 52, "pstAecConfig is NULL!");
    if (phHandle == nullptr) return refuse(kInitName, 54, "phHandle is NULL!");

    // 2. The handle record, cleared.
    auto *h = static_cast<KxAecHandle *>(std::malloc(sizeof(KxAecHandle)));
    if (h == nullptr) return refuse(kInitName, 60, "malloc fail");
    if (sonvel::bounded_fill(h, sizeof(KxAecHandle), 0, sizeof(KxAecHandle)) != 0) {
        std::free(h);
        return refuse(kInitName, 62, "handle clear fail");
    }

    // 3.-6. Rate and parameter record.
    if (s32SampleRate == 48000) {
        std::free(h);
        return refuse(kInitName, 79, "AEC Unsupport 48k samplerate!\n");
    }
    h->u32FrameLen = sonvel::host_frame_length(s32SampleRate);
    const AecCfg cfg = sonvel::host_parameter_record(s32SampleRate, *host);

    // 7.-9. Instance block and core initialisation.
    if (create_instance(h, cfg) != 0) {
        std::free(h);
        return -1;
    }
    *phHandle = h;
    return 0;
}

extern "C" SONVEL_API int32_t KX_AEC_Process(void *hHandle, const KxAecFrame *pstIn,
                                             KxAecFrame *pstOut) {
    const auto *h = static_cast<const KxAecHandle *>(hHandle);
    const int32_t argRet = check_process_arguments(h, pstIn, pstOut);
    if (argRet != 0) return argRet;

    // 1.-2. Sample count; the far reference and the count pass through to the output record.
    int32_t remaining = pstIn->s32Bytes / 2;
    const int32_t frameLen = static_cast<int32_t>(h->u32FrameLen);
    pstOut->ps16Ref = pstIn->ps16Ref;
    pstOut->s32Bytes = pstIn->s32Bytes;

    // 3. Frame by frame.
    const int16_t *near = pstIn->ps16Main;
    const int16_t *far = pstIn->ps16Ref;
    int16_t *out = pstOut->ps16Main;
    while (remaining != 0) {
        const int32_t ret = Sonvel_AEC_Apply(h->hCore, near, far, out);
        if (ret != SONVEL_AEC_OK) {
            sonvel::report_failure(kProcessName, 227, "Sonvel_AEC_Apply");
            sonvel::report_process_status(ret);
            return ret;
        }
        near += frameLen;
        far += frameLen;
        out += frameLen;
        remaining -= frameLen;
    }
    return 0;
}

extern "C" SONVEL_API int32_t KX_AEC_DeInit(void *hHandle) {
    auto *h = static_cast<KxAecHandle *>(hHandle);
    if (h == nullptr) return 0;
    if (h->pMem != nullptr) std::free(h->pMem);
    std::free(h);
    return 0;
}

extern "C" SONVEL_API const KxAecWorkHandle g_Audio_AEC_WorkHandle = {
    "AEC", KX_AEC_Init, KX_AEC_Process, KX_AEC_DeInit};
