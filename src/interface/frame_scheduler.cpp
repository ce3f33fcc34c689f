// Frame scheduler: turns 10 ms frames (F samples) into processing blocks of L samples with a
// four-phase schedule (four frames make five blocks), carries leftover input and not-yet-due
// output in the instance header, and runs one block through the linear canceller and the
// suppressor. The output lags the input by exactly one frame.
#include <algorithm>
#include <cstring>

#include "interface/instance_access.h"
#include "sonvel_aec.h"
#include "sonvel_aec_stages.h"

// Rows are phases 0..3. Columns: samples from the input carries, input samples completing the
// block, input samples saved into the carries, output samples from the output carry, block
// samples appended to them, block samples saved into the output carry.
extern "C" SONVEL_API const int16_t Sonvel_AEC_gasAecPro8K[4][6] = {
    {0, 64, 16, 80, 0, 64},
    {16, 48, 32, 64, 16, 48},
    {32, 32, 48, 48, 32, 32},
    {48, 16, 64, 32, 48, 16},
};

extern "C" SONVEL_API const int16_t Sonvel_AEC_gasAecPro16K[4][6] = {
    {0, 128, 32, 160, 0, 128},
    {32, 96, 64, 128, 32, 96},
    {64, 64, 96, 96, 64, 64},
    {96, 32, 128, 64, 96, 32},
};

namespace {

constexpr int kMaxBlock = 128;

void copy_samples(int16_t *dst, const int16_t *src, int count) {
    std::memcpy(dst, src, static_cast<size_t>(count) * sizeof(int16_t));
}

bool guards_intact(const AecState *st) {
    return st->u32GuardA == sonvel::kGuardWord && st->u32GuardB == sonvel::kGuardWord &&
           st->u32GuardC == sonvel::kGuardWord;
}

// Slots 5..0 move to 6..1 (oldest first), bins 0..M, i.e. words 0..N+1.
void age_history(int32_t (*hist)[sonvel::kSpecSlotWords], int words) {
    for (int k = 5; k >= 0; --k) {
        std::memcpy(hist[k + 1], hist[k], static_cast<size_t>(words) * sizeof(int32_t));
    }
}

// The current block [L, 2L) becomes the previous one [0, L).
void slide_time_buffer(int16_t *buf, int len) { copy_samples(buf, buf + len, len); }

struct Schedule {
    int c0, c1, c2, c3, c4, c5;
};

Schedule schedule_row(bool wide, int phase) {
    const int16_t *r = wide ? Sonvel_AEC_gasAecPro16K[phase] : Sonvel_AEC_gasAecPro8K[phase];
    return {r[0], r[1], r[2], r[3], r[4], r[5]};
}

// Argument checks in argument order, then the header's integrity.
int32_t check_apply_arguments(void *hAec, const int16_t *near, const int16_t *far,
                              const int16_t *out) {
    if (hAec == nullptr) return SONVEL_AEC_ERR_APPLY_HANDLE_NULL;
    if (!sonvel::is_8_aligned(hAec)) return SONVEL_AEC_ERR_APPLY_HANDLE_ALIGN;
    if (near == nullptr) return SONVEL_AEC_ERR_APPLY_NEAR_NULL;
    if ((reinterpret_cast<uintptr_t>(near) & 1u) != 0) return SONVEL_AEC_ERR_APPLY_NEAR_ALIGN;
    if (far == nullptr) return SONVEL_AEC_ERR_APPLY_FAR_NULL;
    if ((reinterpret_cast<uintptr_t>(far) & 1u) != 0) return SONVEL_AEC_ERR_APPLY_FAR_ALIGN;
    if (out == nullptr) return SONVEL_AEC_ERR_APPLY_OUT_NULL;
    if ((reinterpret_cast<uintptr_t>(out) & 1u) != 0) return SONVEL_AEC_ERR_APPLY_OUT_ALIGN;
    const sonvel::AecHeader *hdr = sonvel::header_of(hAec);
    if (hdr->u16HdrMagic != sonvel::kHeaderMagic) return SONVEL_AEC_ERR_NOT_INITIALISED;
    if (hdr->u8HdrSampleRate > 1) return SONVEL_AEC_ERR_CFG_SAMPLE_RATE;
    // A header whose offset or phase lies outside what Init and Apply ever write is not live.
    if (sonvel::state_of(hAec) == nullptr || hdr->u16Phase > 4)
        return SONVEL_AEC_ERR_NOT_INITIALISED;
    return SONVEL_AEC_OK;
}

}  // namespace

extern "C" SONVEL_API int32_t Sonvel_AEC_SUB_Proc(void *pState, const int16_t *ps16Near,
                                                  const int16_t *ps16Far, int16_t *ps16Out) {
    auto *st = static_cast<AecState *>(pState);
    // 1. Integrity.
    if (!guards_intact(st)) return SONVEL_AEC_ERR_GUARD;
    // 2.-3. The two stages.
    Sonvel_AEC_Mdf(st, ps16Near, ps16Far);
    Sonvel_AEC_Nlp(st, ps16Out);
    // 4. Age the spectrum histories.
    const int words = std::clamp(st->s16FftLen + 2, 0, sonvel::kSpecSlotWords);
    age_history(st->aiFarSpecHist, words);
    age_history(st->aiNlpSpecHist, words);
    // 5. Slide the time buffers.
    const int len = std::clamp(static_cast<int>(st->s16BlockLen), 0, kMaxBlock);
    slide_time_buffer(st->as16NearTimeBuf, len);
    slide_time_buffer(st->as16FarTimeBuf, len);
    return SONVEL_AEC_OK;
}

extern "C" SONVEL_API int32_t Sonvel_AEC_Apply(void *hAec, const int16_t *ps16Near,
                                               const int16_t *ps16Far, int16_t *ps16Out) {
    // 1. Arguments and header.
    const int32_t argRet = check_apply_arguments(hAec, ps16Near, ps16Far, ps16Out);
    if (argRet != SONVEL_AEC_OK) return argRet;
    sonvel::AecHeader *hdr = sonvel::header_of(hAec);
    AecState *st = sonvel::state_of(hAec);

    // 2. Geometry and the schedule row of this phase.
    const bool wide = hdr->u8HdrSampleRate != 0;
    const int blockLen = wide ? 128 : 64;
    const int frameLen = wide ? 160 : 80;
    if (hdr->u16Phase == 4) hdr->u16Phase = 0;
    const int phase = hdr->u16Phase;
    const Schedule s = schedule_row(wide, phase);

    int16_t nearBlk[kMaxBlock];
    int16_t farBlk[kMaxBlock];
    int16_t outBlk[kMaxBlock] = {};

    // 3. The block: carried samples, then the start of this frame.
    copy_samples(nearBlk, hdr->as16InCarryNear, s.c0);
    copy_samples(farBlk, hdr->as16InCarryFar, s.c0);
    copy_samples(nearBlk + s.c0, ps16Near, s.c1);
    copy_samples(farBlk + s.c0, ps16Far, s.c1);

    // 4. The rest of this frame waits for the next call.
    copy_samples(hdr->as16InCarryNear, ps16Near + s.c1, s.c2);
    copy_samples(hdr->as16InCarryFar, ps16Far + s.c1, s.c2);

    // 5. Process it.
    int32_t ret = Sonvel_AEC_SUB_Proc(st, nearBlk, farBlk, outBlk);
    if (ret != SONVEL_AEC_OK) return ret;

    // 6. Output: carried samples, then the head of the block; the tail is carried.
    copy_samples(ps16Out, hdr->as16OutCarry, s.c3);
    copy_samples(ps16Out + s.c3, outBlk, s.c4);
    copy_samples(hdr->as16OutCarry, outBlk + s.c4, s.c5);

    // 7. Phase 3 holds a second block: the last L samples of the frame.
    if (phase == 3) {
        const int start = frameLen - blockLen;
        copy_samples(nearBlk, ps16Near + start, blockLen);
        copy_samples(farBlk, ps16Far + start, blockLen);
        ret = Sonvel_AEC_SUB_Proc(st, nearBlk, farBlk, outBlk);
        if (ret != SONVEL_AEC_OK) return ret;
        copy_samples(hdr->as16OutCarry + start, outBlk, blockLen);
    }

    // 8. Next phase.
    hdr->u16Phase = static_cast<uint16_t>(phase + 1);
    return SONVEL_AEC_OK;
}
