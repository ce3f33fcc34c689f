// Reference delay line: the last 8192 reference samples (more than 500 ms and a frame at
// 16000 Hz), read back at the applied delay.
#pragma once

#include <cstdint>

namespace sonvel::frontend {

inline constexpr int kLineLen = 8192;

struct DelayLine {
    int16_t buf[kLineLen];
    uint32_t write;  // index of the next sample written
};

// Writes n new samples and reads the n samples that lie `delay` samples behind them
// (delay + n <= kLineLen).
void delay_line_process(DelayLine &dl, const int16_t *in, int16_t *out, int n, int delay);

}  // namespace sonvel::frontend
