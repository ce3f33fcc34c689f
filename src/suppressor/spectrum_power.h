// Power sums of a packed spectrum as the suppressor's frame step forms them for the near end and
// the suppressed output: per bin the single-precision power of the bin shifted to its headroom,
// brought to a common scale.
#pragma once

#include <cstdint>

#include "fixedpoint/basic_ops.h"
#include "fixedpoint/block_float.h"
#include "spectral/kernel_elements.h"

namespace sup {

// Term of a power sum for a bin power of a spectrum with input shift s: the instantaneous power
// stored for the bin (Q value 2h + 2s - 33) divided by 2^16, saturated to int32.
inline int32_t power_sum_term(sp::BinPower b, int s) {
    return fx::shift_sat(b.e, (17 - 2 * s) - 2 * b.h);
}

// Sum of the terms over bins 0..bins-1 of a packed spectrum.
inline int64_t power_sum(const int32_t *spectrum, int bins, int s) {
    int64_t sum = 0;
    for (int k = 0; k < bins; ++k)
        sum += power_sum_term(sp::bin_power_f(spectrum[2 * k], spectrum[2 * k + 1]), s);
    return sum;
}

// A 64-bit power sum divided by 2^8: the sum shifted logically, its low 32 bits kept.
inline int32_t scaled_sum(int64_t sum) {
    return static_cast<int32_t>(static_cast<uint64_t>(sum) >> 8);
}

// True when the output keeps less than 1/64 of the near-end power.
inline bool output_too_quiet(int64_t sum_near, int64_t sum_out) {
    return scaled_sum(sum_near) > fx::L_shl(scaled_sum(sum_out), 6);
}

}  // namespace sup
