// The choice between the portable per-bin loops and the vectorised ones (AVX2 with FMA on x86-64,
// NEON on aarch64). NEON belongs to every ARMv8-A core. On x86-64 the instance's transform plan
// records, once at initialisation, whether the processor runs AVX2 and FMA: the library keeps no
// global state, so the choice travels with the instance. Both paths give identical bits.
#pragma once

#include <cstdint>

#include "spectral/fft/fft_plan.h"
#include "state/aec_state.h"

namespace sp {

enum class Isa : int32_t { kPortable = 0, kVector = 1 };

// The path of the exported kernels, which have no instance to ask.
#if defined(__aarch64__)
inline constexpr Isa kStatelessIsa = Isa::kVector;
#else
inline constexpr Isa kStatelessIsa = Isa::kPortable;
#endif

// The path an instance takes; a plan area that was never prepared reads as portable.
inline Isa instance_isa(const AecState *st) {
#if defined(__aarch64__)
    (void)st;
    return Isa::kVector;
#else
    const auto *plan = reinterpret_cast<const sonvel::fft::Plan *>(st->au8FftPlan);
    return plan->vectorised == 1 ? Isa::kVector : Isa::kPortable;
#endif
}

}  // namespace sp
