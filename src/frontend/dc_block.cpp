// DC-blocking high-pass: y[n] = x[n] - x[n-1] + a * y[n-1], the pole a = 1 - 2*pi*fc/fs rounded to
// Q15 for a cut-off fc of 40 Hz: a = 31738/32768 at 8000 Hz, 32252/32768 at 16000 Hz (-3 dB at
// about 40 Hz, within 0.2 dB of unity above 200 Hz). The output is kept in Q15 in a 64-bit state,
// so the recursion carries no rounding loss; it is rounded and saturated to 16 bits. The DC meter
// is an exponential mean of the frames' means over 128 frames (1.3 s) of the unfiltered input.
#include "frontend/dc_block.h"

namespace sonvel::frontend {

int32_t high_pass_pole(uint32_t rate) { return rate == 16000 ? 32252 : 31738; }

void high_pass(HighPass &hp, int32_t poleQ15, const int16_t *in, int16_t *out, int n) {
    int64_t y = hp.yQ15;
    int32_t xp = hp.xPrev;
    for (int i = 0; i < n; ++i) {
        const int32_t x = in[i];
        // |y| stays below 2^17 * 2^15: the recursion's gain is at most 2 / (1 - a) on a step,
        // and the step is bounded by 2^16.
        y = (static_cast<int64_t>(x - xp) << 15) + ((y * poleQ15) >> 15);
        xp = x;
        int64_t r = (y + (1 << 14)) >> 15;
        r = r > 32767 ? 32767 : r;
        r = r < -32768 ? -32768 : r;
        out[i] = static_cast<int16_t>(r);
    }
    hp.yQ15 = y;
    hp.xPrev = xp;
}

void dc_meter_frame(HighPass &hp, const int16_t *in, int n) {
    int32_t sum = 0;
    for (int i = 0; i < n; ++i) sum += in[i];
    const int64_t meanQ16 = (static_cast<int64_t>(sum) << 16) / n;
    hp.dcQ16 += (meanQ16 - hp.dcQ16) >> 7;
}

int16_t dc_estimate(const HighPass &hp) {
    const int64_t r = hp.dcQ16 >= 0 ? (hp.dcQ16 + 32768) >> 16 : -((-hp.dcQ16 + 32768) >> 16);
    return static_cast<int16_t>(r);
}

}  // namespace sonvel::frontend
