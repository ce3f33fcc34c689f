// Plan set-up of the FFT service: stage layout, output positions of the first stage and the
// twiddle factors of the radix-4 stages, all written inside the caller's plan area.
#include <cstdint>
#include <cstring>

#include "spectral/fft/fft_plan.h"
#include "spectral/fft/fft_stages_simd.h"
#include "spectral/fft/fft_twiddles.h"
#include "spectral/processor.h"

namespace sonvel::fft {
namespace {

// Length of the sub-transforms after stage s.
int stage_len(const Plan &p, int s) { return p.firstRadix << (2 * s); }

// Digit-reversed input order: the sub-transform that stage s builds at position pos reads the
// inputs offset, offset + stride, ... of its radix. perm[pos] is the input of position pos.
void build_perm(const Plan &p, uint8_t *perm, int stage, int pos, int offset, int stride) {
    if (stage < 0) {
        perm[pos] = static_cast<uint8_t>(offset);
        return;
    }
    const int radix = stage == 0 ? p.firstRadix : 4;
    const int sub = stage_len(p, stage) / radix;
    for (int q = 0; q < radix; ++q) {
        build_perm(p, perm, stage - 1, pos + q * sub, offset + stride * q, stride * radix);
    }
}

// Output position of the first-stage butterflies o = 0, 4, 8, ... (the others follow N/4 apart).
void build_first_out(Plan &p) {
    uint8_t perm[kMaxN];
    build_perm(p, perm, kStages - 1, 0, 0, 1);
    for (int pos = 0; pos < p.n; pos += p.firstRadix) {
        const int o = perm[pos];
        if (o % 4 == 0) p.firstOut[o / 4] = static_cast<uint8_t>(pos);
    }
}

// W_len^{qk} for q = 1..3 and k = 0..len/4-1, as angles of the 256-step circle.
void build_twiddles(Plan &p) {
    int next = 0;
    p.twOffset[0] = 0;
    for (int s = 1; s < kStages; ++s) {
        const int len = stage_len(p, s);
        const int m = len / 4;
        const int step = kAngleSteps / len;
        p.twOffset[s] = next;
        for (int q = 1; q <= 3; ++q) {
            p.tw[next] = INT32_MIN;  // k = 0: -1 exactly, for the vectorised stages
            p.tw[next + 1] = 0;
            for (int k = 1; k < m; ++k) {
                const Q31Pair w = unit_root(q * k * step);
                p.tw[next + 2 * k] = w.re;
                p.tw[next + 2 * k + 1] = w.im;
            }
            next += 2 * m;
        }
    }
}

}  // namespace
}  // namespace sonvel::fft

using namespace sonvel::fft;

// Builds the plan for 2^order points; the area must be 8-byte aligned.
extern "C" SONVEL_API int32_t Sonvel_FFTInit_C_SC32(void *plan, int32_t order) {
    if (plan == nullptr) return kNullPlan;
    if (reinterpret_cast<uintptr_t>(plan) % kPlanAlign != 0) return kMisalignedPlan;
    if (order < kMinOrder || order > kMaxOrder) return kBadOrder;
    Plan p{};
    p.order = order;
    p.n = 1 << order;
    p.firstRadix = order % 2 == 0 ? 4 : 2;
    p.vectorised = sp::probe_isa() == sp::Isa::kVector ? 1 : 0;
    build_first_out(p);
    build_twiddles(p);
    p.magic = kPlanMagic;
    std::memcpy(plan, &p, sizeof p);
    return kOk;
}
