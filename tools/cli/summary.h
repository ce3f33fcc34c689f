// Figures printed after a run: duration, speed, levels, the echo reduction where only the far
// end talks, and what the front end found; as text or as one JSON object.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "cli/canceller.h"
#include "cli/trace.h"

namespace cli {

// RMS level of a signal in dBFS (silence is reported as -120).
double rms_dbfs(std::span<const int16_t> x);

// The echo reduction over the blocks where only the far end talks: microphone power over output
// power of the same, time-aligned blocks. A block counts when the far end is active, the
// coherence analysis sees no near-end speech within half a second of it, and the microphone is
// not louder than the echo path explains (near-end speech that the analysis missed). `blocks`
// receives how many blocks qualified; fewer than 25 (0.2 s) give 0 dB with blocks = 0.
double echo_reduction_db(const std::vector<TraceRow> &rows, int &blocks);

struct RunFigures {
    double duration = 0;  // seconds of audio
    long frames = 0;      // 10 ms frames processed
    double seconds = 0;   // processing time
    double mic_db = 0, ref_db = 0, out_db = 0;
    double erle_db = 0;
    int erle_blocks = 0;
    double block_seconds = 0;
    FrontendFigures fe;
    std::vector<std::string> hints;
};

std::string format_summary(const RunFigures &f);
std::string summary_json(const RunFigures &f);

}  // namespace cli
