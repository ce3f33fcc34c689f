// The processor choice: whether the per-bin and per-sample loops and the FFT stages run on vector
// lanes (AVX2 with FMA on x86-64, NEON on aarch64) or the portable loops alone. This is the one
// place that asks the processor. The library keeps no global state, so the answer is asked once
// when an instance is initialised and kept in the instance's state (s32LanePath); every
// dispatcher reads it from there. NEON belongs to every ARMv8-A core, so on aarch64 the choice is
// made at compile time. Both paths give identical bits.
#pragma once

#include <cstdint>

#include "state/aec_state.h"

#if defined(__x86_64__) && defined(__GNUC__)
#include <cpuid.h>
// The target of every function that runs on the vector lanes; callers reach them only where the
// processor choice is Isa::kVector.
#define SONVEL_LANES_TARGET __attribute__((target("avx2,fma")))
#else
#define SONVEL_LANES_TARGET
#endif

namespace sp {

// kLanesUnchecked is the vector path of a dispatcher that the lane self-check (lane_check.h)
// already watches; instances never hold it.
enum class Isa : int32_t { kPortable = 0, kVector = 1, kLanesUnchecked = 2 };

// Whether a dispatcher takes its lane loop.
inline constexpr bool lanes_on(Isa isa) { return isa != Isa::kPortable; }

// AVX2 in the processor (CPUID leaf 7), FMA, and YMM state enabled by the operating system
// (OSXSAVE, AVX and XCR0 bits 1-2), read directly rather than through the compiler runtime's CPU
// model. Other processors without NEON take the portable loops.
inline Isa probe_isa() {
#if defined(__aarch64__)
    return Isa::kVector;
#elif defined(__x86_64__) && defined(__GNUC__)
    unsigned a = 0, b = 0, c = 0, d = 0;
    if (!__get_cpuid(1, &a, &b, &c, &d) || (c & bit_OSXSAVE) == 0 || (c & bit_AVX) == 0 ||
        (c & bit_FMA) == 0)
        return Isa::kPortable;
    unsigned xcr0_lo = 0, xcr0_hi = 0;
    __asm__("xgetbv" : "=a"(xcr0_lo), "=d"(xcr0_hi) : "c"(0));
    if ((xcr0_lo & 6u) != 6u) return Isa::kPortable;
    return __get_cpuid_count(7, 0, &a, &b, &c, &d) && (b & bit_AVX2) != 0 ? Isa::kVector
                                                                          : Isa::kPortable;
#else
    return Isa::kPortable;
#endif
}

// The path of the exported kernels, which have no instance to ask.
#if defined(__aarch64__)
inline constexpr Isa kStatelessIsa = Isa::kVector;
#else
inline constexpr Isa kStatelessIsa = Isa::kPortable;
#endif

// The path an instance takes, as its initialisation recorded it; a state that was never
// initialised reads as portable.
inline Isa instance_isa(const AecState *st) {
#if defined(__aarch64__)
    (void)st;
    return Isa::kVector;
#else
    return st->s32LanePath == static_cast<int32_t>(Isa::kVector) ? Isa::kVector : Isa::kPortable;
#endif
}

}  // namespace sp
