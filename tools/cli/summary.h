// Figures printed after a run: levels, speed and the echo reduction where only the far end talks.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "cli/trace.h"

namespace cli {

// RMS level of a signal in dBFS (-inf for silence is reported as -120).
double rms_dbfs(std::span<const int16_t> x);

// Echo reduction in dB over the blocks where the far-end detector is active and the coherence
// analysis sees no near-end speech (microphone power over output power of the same, time-aligned
// blocks); `blocks` receives how many blocks qualified. Returns 0 with blocks = 0 when fewer than
// 25 did.
double echo_reduction_db(const std::vector<TraceRow> &rows, int &blocks);

struct RunFigures {
    double duration = 0;  // seconds of audio
    long frames = 0;      // 10 ms frames processed
    double seconds = 0;   // processing time
    double mic_db = 0, ref_db = 0, out_db = 0;
    double erle_db = 0;
    int erle_blocks = 0;
    double block_seconds = 0;
};

std::string format_summary(const RunFigures &f);

}  // namespace cli
