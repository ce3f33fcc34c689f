// Float <-> int16 sample conversion of the framework plug-ins: rounding to nearest (halves away
// from zero) with saturation; NaN becomes 0 and infinities saturate, so no undefined value and no
// out-of-range float-to-int conversion reaches the canceller. No libm call, no allocation; exact
// in single precision.
#pragma once

#include <cstdint>

namespace sonvel::integration {

inline int16_t float_to_s16(float v) {
    float x = v * 32768.0f;  // exact (a power of two), or infinite
    // Selects rather than branches, so that the conversion loops vectorise.
    x = x == x ? x : 0.0f;
    x = x < -32768.0f ? -32768.0f : x;
    x = x > 32767.0f ? 32767.0f : x;
    const int32_t t = static_cast<int32_t>(x);  // toward zero, within range
    const float d = x - static_cast<float>(t);  // exact: the fraction, -1 < d < 1
    return static_cast<int16_t>(t + (d >= 0.5f) - (d <= -0.5f));
}

inline float s16_to_float(int16_t v) { return static_cast<float>(v) * (1.0f / 32768.0f); }

inline void floats_to_s16(const float *in, int16_t *out, uint32_t n) {
    for (uint32_t i = 0; i < n; ++i) out[i] = float_to_s16(in[i]);
}

inline void s16_to_floats(const int16_t *in, float *out, uint32_t n) {
    for (uint32_t i = 0; i < n; ++i) out[i] = s16_to_float(in[i]);
}

}  // namespace sonvel::integration
