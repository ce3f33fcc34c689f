// Ascending exchange sort of a short int16 vector (used on band gain values).
#include "sonvel_aec_spectral.h"

#include <algorithm>

// For each position i, every later element smaller than v[i] is exchanged with it; equal values
// stay where they are, so writing the minimum and maximum of each pair is the same exchange.
extern "C" SONVEL_API int32_t Sonvel_AEC_Qsort(int16_t *v, int16_t n) {
    for (int i = 0; i + 1 < n; ++i) {
        int16_t vi = v[i];
        for (int j = i + 1; j < n; ++j) {
            const int16_t vj = v[j];
            v[j] = std::max(vi, vj);
            vi = std::min(vi, vj);
        }
        v[i] = vi;
    }
    return 0;
}
