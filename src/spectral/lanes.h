// The lane vocabulary: one set of names for the integer and float lane steps of the per-bin and
// per-sample kernels, with a back end for AVX2 + FMA (x86-64, eight int32 lanes) and one for NEON
// (aarch64, four int32 lanes). The names follow NEON's shapes; AVX2 emulates them. Each step
// gives, lane by lane, exactly the bits of its scalar definition in fixedpoint/block_float.h and
// spectral/kernel_elements.h for every operand its comment allows, so a kernel written once
// against these names gives the portable loop's bits on either back end.
//
// Kernels include this header, mark their lane functions SONVEL_LANES_TARGET, step by ln::kLanes
// and guard the lane code with SONVEL_HAS_LANES; the dispatchers call them only where the
// instance's processor choice (spectral/processor.h) is Isa::kVector.
#pragma once

#include "spectral/processor.h"

#if defined(__x86_64__) && defined(__GNUC__)
#define SONVEL_HAS_LANES 1
#include "spectral/lanes_avx2.h"
#elif defined(__aarch64__)
#define SONVEL_HAS_LANES 1
#include "spectral/lanes_neon.h"
#else
#define SONVEL_HAS_LANES 0
#endif
