// Ascending sort of a short int16 vector (used on band gain values).
#include "sonvel_aec_spectral.h"

// Insertion sort: each element moves down past the larger ones before it. Sorting int16 values,
// any correct sort gives the same output; this one does about n^2/4 steps on random data.
extern "C" SONVEL_API int32_t Sonvel_AEC_Qsort(int16_t *v, int16_t n) {
    for (int i = 1; i < n; ++i) {
        const int16_t x = v[i];
        int j = i;
        for (; j > 0 && v[j - 1] > x; --j) v[j] = v[j - 1];
        v[j] = x;
    }
    return 0;
}
