// The 8-bit estimate tables of the single-precision reciprocal and reciprocal square root, built
// at compile time from the architecture's integer definitions of the two estimates.
#include <array>
#include <cstdint>

#include "spectral/reciprocal.h"

namespace sp::detail {
namespace {

// a in 256..511 stands for a/512 in [0.5, 1); the estimate of 1/(a/512) in units of 1/256,
// evaluated at the centre of the input interval and rounded to nearest.
constexpr uint32_t recip_estimate_int(uint32_t a) {
    a = a * 2 + 1;
    const uint32_t b = (1u << 19) / a;
    return (b + 1) / 2;
}

// a in 128..511 stands for a/512 in [0.25, 1); the estimate of 1/sqrt(a/512) in units of 1/256.
// Below 256 the input keeps 8 bits in units of 1/512, above it 7 bits in units of 1/256.
constexpr uint32_t rsqrt_estimate_int(uint32_t a) {
    if (a < 256) {
        a = a * 2 + 1;
    } else {
        a = (a >> 1) << 1;
        a = (a + 1) * 2;
    }
    uint32_t b = 512;  // the largest b with a * (b/512)^2 < 1, in units of 1/512
    while (uint64_t{a} * (b + 1) * (b + 1) < (uint64_t{1} << 28)) ++b;
    return (b + 1) / 2;
}

constexpr std::array<uint8_t, 256> make_recip_table() {
    std::array<uint8_t, 256> t{};
    for (uint32_t i = 0; i < 256; ++i)
        t[i] = static_cast<uint8_t>(recip_estimate_int(256 + i) - 256);
    return t;
}

constexpr std::array<uint8_t, 384> make_rsqrt_table() {
    std::array<uint8_t, 384> t{};
    for (uint32_t i = 0; i < 384; ++i)
        t[i] = static_cast<uint8_t>(rsqrt_estimate_int(128 + i) - 256);
    return t;
}

constexpr bool estimates_in_range() {
    for (uint32_t a = 256; a < 512; ++a)
        if (recip_estimate_int(a) < 256 || recip_estimate_int(a) > 511) return false;
    for (uint32_t a = 128; a < 512; ++a)
        if (rsqrt_estimate_int(a) < 256 || rsqrt_estimate_int(a) > 511) return false;
    return true;
}
static_assert(estimates_in_range(), "estimates are 9-bit values with a leading one");

}  // namespace

constinit const std::array<uint8_t, 256> kRecipEstimate = make_recip_table();
constinit const std::array<uint8_t, 384> kRsqrtEstimate = make_rsqrt_table();

}  // namespace sp::detail
