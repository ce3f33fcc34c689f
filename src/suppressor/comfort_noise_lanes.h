// The comfort-noise lane loops (comfort_noise_lanes.cpp), several bins per step with exactly the
// bits of the per-bin steps. Each does the leading bins that fill whole steps and
// returns how many; the caller does the rest bin by bin. Only for instances whose path is
// sp::Isa::kVector. Also the weights and counter steps of the floor estimate that both paths use.
#pragma once

#include <cstdint>

#include "spectral/lanes.h"
#include "suppressor/comfort_noise.h"

namespace sup::comfort_noise {

inline constexpr float kTenth = 3277.0f;        // 0.1 in Q15
inline constexpr float kNineTenths = 29490.0f;  // 0.9 in Q15
inline constexpr float kTwoPowM16 = 1.0f / 65536.0f;
inline constexpr int16_t kRiseSlow = 328;    // 0.01 in Q15
inline constexpr int16_t kKeepSlow = 32439;  // 0.99 in Q15
inline constexpr int16_t kRiseStep = 7;
inline constexpr int16_t kFallStep = 6;
inline constexpr int16_t kRiseCntMax = 32760;
inline constexpr int16_t kRiseCntLong = 300;

// Per-bin mantissa / Q-value pair of the estimator's state, and the near-end power (read only).
struct Pow {
    int32_t *man;
    int16_t *exp;
};

struct Power {
    const int32_t *man;
    const int16_t *exp;
};

}  // namespace sup::comfort_noise

namespace sup::lanes {

using comfort_noise::Pow;
using comfort_noise::Power;

#if SONVEL_HAS_LANES

int add_noise(const comfort_noise::Bins &b, const int32_t *e, int32_t *out, int n);

// The floor estimate's per-bin loops (see comfort_noise.cpp); `above` holds 1 where the power is
// above four times the floor, else 0.
int average(Pow a, Power p, int n);
int floor_down(Pow f, Pow a, int n);
int count_persistence(int16_t *t, int16_t *above, Power p, Pow f, int n);
int floor_up(Pow f, Power p, const int16_t *t, const int16_t *above, int n);
int average_catch_up(Pow a, Power p, int n);

#else

inline int add_noise(const comfort_noise::Bins &, const int32_t *, int32_t *, int) { return 0; }
inline int average(Pow, Power, int) { return 0; }
inline int floor_down(Pow, Pow, int) { return 0; }
inline int count_persistence(int16_t *, int16_t *, Power, Pow, int) { return 0; }
inline int floor_up(Pow, Power, const int16_t *, const int16_t *, int) { return 0; }
inline int average_catch_up(Pow, Power, int) { return 0; }

#endif

}  // namespace sup::lanes
