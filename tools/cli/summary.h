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

// The echo reduction where only the far end talks: microphone power over output power, summed
// over the trace's blocks judged far-end only. The judgement needs no knowledge of the recording:
// a block counts when the reference, taken `delay_ms` earlier (the front end's estimate of the
// echo delay), is active; when the microphone is not louder against it than the echo alone makes
// it (the lowest ratios of the recording show that), which rules out near-end speech; and, once
// the front end has stopped moving the delay line, when the canceller's incoherence stays near its
// lowest values, which rules out the near-end speech the level test misses. `near` and `far` are
// the raw inputs of the run. Fewer than 25 blocks (0.2 s) give no figure (blocks = 0).
struct EchoReduction {
    double db = 0;
    int blocks = 0;  // blocks that counted
    // When the front end moved the delay line: the same from the time the filter had settled
    // after its last move on (settled_blocks = 0 otherwise).
    double settled_db = 0;
    int settled_blocks = 0;
    double settled_from_s = 0;
};
EchoReduction echo_reduction(const std::vector<TraceRow> &rows, std::span<const int16_t> near,
                             std::span<const int16_t> far, int rate, double delay_ms);

struct RunFigures {
    double duration = 0;  // seconds of audio
    long frames = 0;      // 10 ms frames processed
    double seconds = 0;   // processing time
    double mic_db = 0, ref_db = 0, out_db = 0;
    EchoReduction erle;
    double block_seconds = 0;
    FrontendFigures fe;
    std::vector<std::string> hints;
};

std::string format_summary(const RunFigures &f);
std::string summary_json(const RunFigures &f);

}  // namespace cli
