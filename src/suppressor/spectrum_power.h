// Power sums of a packed spectrum as the suppressor's frame step forms them for the near end and
// the suppressed output: per bin the single-precision power of the bin shifted to its headroom,
// brought to a common scale.
#pragma once

#include <cstdint>

#include "fixedpoint/block_float.h"
#include "spectral/kernel_elements.h"

namespace sup {

// Term of a power sum for a bin power of a spectrum with input shift s: the instantaneous power
// stored for the bin (Q value 2h + 2s - 33) divided by 2^16, saturated to int32.
inline int32_t power_sum_term(sp::BinPower b, int s) {
    return fx::shift_sat(b.e, (17 - 2 * s) - 2 * b.h);
}

// Sum of the terms over bins 0..bins-1 of a packed spectrum.
inline int64_t power_sum(const int32_t *spec, int bins, int s) {
    int64_t sum = 0;
    for (int k = 0; k < bins; ++k) sum += power_sum_term(sp::bin_power_f(spec[2 * k], spec[2 * k + 1]), s);
    return sum;
}

}  // namespace sup
