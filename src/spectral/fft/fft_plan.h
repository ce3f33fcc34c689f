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
inline constexpr int kStages = 4;  // at most

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

// Decimation in time over three or four stages: radix 4 (even order) or radix 2 (odd order)
// first, then radix-4 stages. Radix-4 stage s combines groups of four sub-transforms of length
// m = firstRadix 4^(s-1); its twiddles W_4m^{qk} (Q31 re, im; e^{-j...}) are three arrays,
// q = 1, 2, 3, of m pairs each (k = 0..m-1), one stage after the other. The pair for k = 0 is -1,
// (-2^31, 0): the portable stages skip the turn by W^0 = 1, the vectorised ones turn the negated
// value by it.
//
// The first stage reads its inputs in natural order: butterfly o (o = 0..n/r - 1) takes
// x[o + q n/r], q = 0..r-1, and writes its r results from position firstOut[o / 4] + (o % 4) n/4.
inline constexpr int kFirstOutCount = 16;

struct Layout {
    int32_t n;
    int32_t order;
    int32_t firstRadix;         // 4 or 2
    int32_t stages;             // 3 or 4
    int32_t twOffset[kStages];  // first word of each radix-4 stage's twiddles in Plan::tw
    uint8_t firstOut[kFirstOutCount];
};

// Words of twiddles: the N-point stages (lengths 16, 64, 256 or 8, 32, 128), the N/2-point
// stages of the real-data paths (8, 32, 128 or 16, 64), and W_N^k for k = 0..N/4 for their split
// and merge steps.
inline constexpr int kTwiddleWords = 6 * (4 + 16 + 64) + 6 * (2 + 8 + 32) + 2 * (kMaxN / 4 + 1);

struct Plan {
    uint32_t magic;
    int32_t order;
    int32_t n;
    int32_t vectorised;   // 1 when the processor runs the vectorised code (AVX2 + FMA, NEON)
    int32_t splitOffset;  // first word of W_N^k, k = 0..N/4
    Layout full;          // N-point transforms of any input
    Layout half;          // N/2-point transforms inside the real-data paths
    int32_t tw[kTwiddleWords];
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
    if (p->full.n != p->n || p->half.n * 2 != p->n) return nullptr;
    return p;
}

}  // namespace sonvel::fft
