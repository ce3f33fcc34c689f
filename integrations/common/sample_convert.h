// Float <-> int16 sample conversion of the framework plug-ins: rounding to nearest (halves away
// from zero) with saturation; NaN becomes 0 and infinities saturate, so no undefined value and no
// out-of-range float-to-int conversion reaches the canceller. No libm call, no allocation.
#pragma once

#include <cstdint>

namespace sonvel::integration {

inline int16_t float_to_s16(float v) {
    const double x = static_cast<double>(v) * 32768.0;  // exact: 24-bit mantissa times 2^15
    if (!(x == x)) return 0;
    if (x >= 32767.0) return 32767;
    if (x <= -32768.0) return -32768;
    // x + 0.5 is exact in double; the cast truncates toward zero within range.
    return static_cast<int16_t>(x >= 0.0 ? static_cast<int32_t>(x + 0.5) : -static_cast<int32_t>(-x + 0.5));
}

inline float s16_to_float(int16_t v) { return static_cast<float>(v) * (1.0f / 32768.0f); }

inline void floats_to_s16(const float *in, int16_t *out, uint32_t n) {
    for (uint32_t i = 0; i < n; ++i) out[i] = float_to_s16(in[i]);
}

inline void s16_to_floats(const int16_t *in, float *out, uint32_t n) {
    for (uint32_t i = 0; i < n; ++i) out[i] = s16_to_float(in[i]);
}

}  // namespace sonvel::integration
