// Reference delay line: a ring of 8192 samples, written a frame at a time and read back behind
// the write position by the applied delay. It starts silent, so a larger delay begins with
// zeros.
#include "frontend/delay_line.h"

namespace sonvel::frontend {

void delay_line_process(DelayLine &dl, const int16_t *in, int16_t *out, int n, int delay) {
    constexpr uint32_t mask = kLineLen - 1;
    const uint32_t w = dl.write;
    for (int i = 0; i < n; ++i) dl.buf[(w + i) & mask] = in[i];
    const uint32_t r = w - static_cast<uint32_t>(delay);
    for (int i = 0; i < n; ++i) out[i] = dl.buf[(r + i) & mask];
    dl.write = (w + n) & mask;
}

}  // namespace sonvel::frontend
