// The real FFT pair: a real block to its packed half spectrum and back, over the complex FFT
// service (the real block is transformed as a full complex block with zero imaginary parts).
#include <cstdint>

#include "sonvel_aec_fft.h"
#include "sonvel_aec_spectral.h"

extern "C" SONVEL_API int32_t Sonvel_AEC_Realfft(int32_t *buf, int32_t n, const void *plan) {
    (void)buf; (void)n; (void)plan;
    return 0;
}

extern "C" SONVEL_API int32_t Sonvel_AEC_Realifft(int32_t *buf, int32_t n, const void *plan) {
    (void)buf; (void)n; (void)plan;
    return 0;
}
