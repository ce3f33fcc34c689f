// Layout of the FFT plan built inside the caller's plan area, its status codes and the check that
// a plan area holds a prepared plan. Shared by the plan set-up and the transforms.
#pragma once

#include <cstddef>
#include <cstdint>

#include "sonvel_aec_fft.h"

namespace sonvel::fft {

inline constexpr int kMinOrder = 7;
inline constexpr int kMaxOrder = 8;
inline constexpr int kMaxN = 1 << kMaxOrder;
inline constexpr int kStages = 4;

// Statuses of the service (0 is success).
enum Status : int32_t {
    kOk = 0,
    kNullPlan = -1,
    kMisalignedPlan = -2,
    kBadOrder = -3,
    kNullSrc = -4,
    kNullDst = -5,
    kMisalignedData = -6,
    kOverlap = -7,
    kUnprepared = -8,
};

inline constexpr uint32_t kPlanMagic = 0x46465450u;

// Decimation in time over four stages: radix 4 (N = 256) or radix 2 (N = 128) first, then three
// radix-4 stages. Radix-4 stage s (1..3) combines groups of four sub-transforms of length
// m = N / 4^(4-s); its twiddles W_4m^{qk} (Q31 re, im; e^{-j...}) are three arrays, q = 1, 2, 3,
// of m pairs each (k = 0..m-1), one stage after the other. The pair for k = 0 is -1, (-2^31, 0):
// the portable stages skip the turn by W^0 = 1, the vectorised ones turn the negated value by it.
inline constexpr int kTwiddleWords = 6 * (4 + 16 + 64);

// The first stage reads its inputs in natural order: butterfly o (o = 0..N/r - 1) takes
// x[o + q N/r], q = 0..r-1, and writes its r results from position firstOut[o / 4] + (o % 4) N/4.
inline constexpr int kFirstOutCount = 16;

struct Plan {
    uint32_t magic;
    int32_t order;
    int32_t n;
    int32_t firstRadix;         // 4 or 2
    int32_t vectorised;         // 1 when the processor runs the vectorised code (AVX2 + FMA, NEON)
    int32_t twOffset[kStages];  // first word of each radix-4 stage's twiddles (stage 0: none)
    int32_t tw[kTwiddleWords];
    uint8_t firstOut[kFirstOutCount];
};

static_assert(sizeof(Plan) <= SONVEL_FFT_PLAN_BYTES, "the plan must fit the caller's area");
// Alignment the caller guarantees for the plan area (and the service demands).
inline constexpr uintptr_t kPlanAlign = 8;
static_assert(alignof(Plan) <= kPlanAlign, "the plan area is only 8-byte aligned");

// The prepared plan in an area, or null when the area is null, misaligned or not prepared.
inline const Plan *prepared(const void *area) {
    if (area == nullptr || reinterpret_cast<uintptr_t>(area) % kPlanAlign != 0) return nullptr;
    const Plan *p = static_cast<const Plan *>(area);
    if (p->magic != kPlanMagic) return nullptr;
    if (p->order < kMinOrder || p->order > kMaxOrder || p->n != (1 << p->order)) return nullptr;
    return p;
}

}  // namespace sonvel::fft
