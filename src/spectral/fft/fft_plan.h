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

// One radix-4 twiddle triple W^k, W^2k, W^3k in Q31 (re, im), W = e^{-j 2 pi / len}.
struct Twiddle3 {
    int32_t w[6];
};

// Decimation in time over four stages: radix 4 (N = 256) or radix 2 (N = 128) first, then three
// radix-4 stages. Stage s >= 1 combines groups of four sub-transforms of length m_s = N / 4^(4-s)
// and takes m_s twiddle triples, stored one stage after the other.
inline constexpr int kTwiddleCount = 4 + 16 + 64;

struct Plan {
    uint32_t magic;
    int32_t order;
    int32_t n;
    int32_t firstRadix;   // 4 or 2
    int32_t twOffset[kStages];  // first triple of each stage (stage 0 has none)
    Twiddle3 tw[kTwiddleCount];
    uint8_t perm[kMaxN];  // input index read by each position of the first stage
};

static_assert(sizeof(Plan) <= SONVEL_FFT_PLAN_BYTES, "the plan must fit the caller's area");
static_assert(alignof(Plan) <= 8, "the plan area is only 8-byte aligned");

// The prepared plan in an area, or null when the area is null, misaligned or not prepared.
inline const Plan *prepared(const void *area) {
    if (area == nullptr || reinterpret_cast<uintptr_t>(area) % alignof(Plan) != 0) return nullptr;
    const Plan *p = static_cast<const Plan *>(area);
    if (p->magic != kPlanMagic) return nullptr;
    if (p->order < kMinOrder || p->order > kMaxOrder || p->n != (1 << p->order)) return nullptr;
    return p;
}

}  // namespace sonvel::fft
