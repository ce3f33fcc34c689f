// Plan set-up of the FFT service: stage layouts of the N-point and the N/2-point transforms,
// output positions of their first stages, the twiddle factors of their radix-4 stages and those
// of the real-data split and merge steps, all written inside the caller's plan area.
#include <cstdint>
#include <cstring>

#include "spectral/fft/fft_plan.h"
#include "spectral/fft/fft_stages_simd.h"
#include "spectral/fft/fft_twiddles.h"
#include "spectral/processor.h"

namespace sonvel::fft {
namespace {

// Length of the sub-transforms after stage s.
int stage_len(const Layout &l, int s) { return l.firstRadix << (2 * s); }

// Digit-reversed input order: the sub-transform that stage s builds at position pos reads the
// inputs offset, offset + stride, ... of its radix. perm[pos] is the input of position pos.
void build_perm(const Layout &l, uint8_t *perm, int stage, int pos, int offset, int stride) {
    if (stage < 0) {
        perm[pos] = static_cast<uint8_t>(offset);
        return;
    }
    const int radix = stage == 0 ? l.firstRadix : 4;
    const int sub = stage_len(l, stage) / radix;
    for (int q = 0; q < radix; ++q) {
        build_perm(l, perm, stage - 1, pos + q * sub, offset + stride * q, stride * radix);
    }
}

// Output position of the first-stage butterflies o = 0, 4, 8, ... (the others follow n/4 apart).
void build_first_out(Layout &l) {
    uint8_t perm[kMaxN];
    build_perm(l, perm, l.stages - 1, 0, 0, 1);
    for (int pos = 0; pos < l.n; pos += l.firstRadix) {
        const int o = perm[pos];
        if (o % 4 == 0) l.firstOut[o / 4] = static_cast<uint8_t>(pos);
    }
}

// W_len^{qk} for q = 1..3 and k = 0..len/4-1, as angles of the 256-step circle, from tw[next];
// returns the word behind them.
int build_twiddles(Plan &p, Layout &l, int next) {
    for (int s = 1; s < l.stages; ++s) {
        const int len = stage_len(l, s);
        const int m = len / 4;
        const int step = kAngleSteps / len;
        l.twOffset[s] = next;
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
    return next;
}

Layout layout(int order) {
    Layout l{};
    l.order = order;
    l.n = 1 << order;
    l.firstRadix = order % 2 == 0 ? 4 : 2;
    l.stages = (order + 1) / 2;
    build_first_out(l);
    return l;
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
    p.vectorised = sp::probe_isa() == sp::Isa::kVector ? 1 : 0;
    p.full = layout(order);
    p.half = layout(order - 1);
    int next = build_twiddles(p, p.full, 0);
    next = build_twiddles(p, p.half, next);
    p.splitOffset = next;
    for (int k = 0; k <= p.n / 4; ++k) {
        const Q31Pair w = unit_root(k * (kAngleSteps / p.n));
        p.tw[next + 2 * k] = w.re;
        p.tw[next + 2 * k + 1] = w.im;
    }
    p.magic = kPlanMagic;
    std::memcpy(plan, &p, sizeof p);
    return kOk;
}
