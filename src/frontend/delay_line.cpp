// Reference delay line: a ring of 8192 samples, written a frame at a time and read back behind
// the write position by the applied delay. It starts silent, so a larger delay begins with
// zeros.
#include "frontend/delay_line.h"

#include <cstring>

namespace sonvel::frontend {

namespace {

// Copies n samples between the ring (from index at, wrapping) and a linear buffer.
void ring_write(int16_t *ring, uint32_t at, const int16_t *src, int n) {
    const uint32_t first =
        static_cast<uint32_t>(kLineLen) - at < static_cast<uint32_t>(n) ? kLineLen - at : n;
    std::memcpy(ring + at, src, first * sizeof(int16_t));
    std::memcpy(ring, src + first, (n - first) * sizeof(int16_t));
}

void ring_read(const int16_t *ring, uint32_t at, int16_t *dst, int n) {
    const uint32_t first =
        static_cast<uint32_t>(kLineLen) - at < static_cast<uint32_t>(n) ? kLineLen - at : n;
    std::memcpy(dst, ring + at, first * sizeof(int16_t));
    std::memcpy(dst + first, ring, (n - first) * sizeof(int16_t));
}

}  // namespace

void delay_line_process(DelayLine &dl, const int16_t *in, int16_t *out, int n, int delay) {
    constexpr uint32_t mask = kLineLen - 1;
    const uint32_t w = dl.write;
    ring_write(dl.buf, w, in, n);
    ring_read(dl.buf, (w - static_cast<uint32_t>(delay)) & mask, out, n);
    dl.write = (w + n) & mask;
}

}  // namespace sonvel::frontend
