// The table of integer constants the x86-64 lane steps read from memory (spectral/lanes_avx2.h).
#include "spectral/lanes.h"

#if defined(__x86_64__) && defined(__GNUC__)

namespace ln::detail {

const Constants kConstants = {
    .sign = splat(static_cast<int32_t>(sp::detail::kSign)),
    .exponent = splat(0x7F800000),
    .recip_bias = splat(253 << 23),
    .rsqrt_bias = splat(380),
    .byte = splat(0xFF),
    .one = splat(1),
    .three = splat(3),
    .thirty_one = splat(31),
    .hr_bias = splat(157),
    .moderate_lo = splat(0x00FFFFFF),
    .moderate_hi = splat(0x7D800000),
};

}  // namespace ln::detail

#endif
