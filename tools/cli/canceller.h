// Running the canceller over whole signals, 10 ms frame by 10 ms frame, through the core
// interface or through the host plug-in descriptor.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "cli/settings.h"
#include "sonvel_aec.h"

namespace cli {

enum class Api { Core, Host };

// Samples per 10 ms frame and per processing block at a supported rate (8000 or 16000 Hz).
int frame_length(int rate);
int block_length(int rate);
// The canceller's delay from input to output in samples: one frame plus one block.
int latency_samples(int rate);

// What the front end knew after a frame, in milliseconds.
struct FrameEstimate {
    float estimate_ms = -1;  // -1: no estimate yet
    float applied_ms = 0;
    float confidence = 0;  // 0..1
    int start_part = 0;
};

// What the front end reported at the end of a run (absent when it was off).
struct FrontendFigures {
    bool present = false;
    double estimate_ms = -1;  // -1: no estimate
    double applied_ms = 0;
    double confidence = 0;  // 0..1
    int drift_ppm = 0;
    int start_part = 0;
    bool locked = false;
    double dc_near = 0, dc_far = 0;  // LSB
};

struct RunResult {
    std::vector<int16_t> out;  // one output sample per input sample, as the canceller emits them
    double seconds = 0;        // processing time of the frame loop
    FrontendFigures fe;
};

// Called now and then with the fraction done (0..1).
using ProgressFn = std::function<void(double)>;

// Processes near (microphone) and far (reference), equally long, at `rate`. The input is padded
// with zeros to whole frames; the output has the input's length and the core's latency (one frame
// plus one block). With the front end active (core interface only) the run goes through the
// streaming layer, whose FIFO latency is removed. With Api::Host, `use_host_cfg`
// false lets the plug-in use its built-in values, true hands it `cfg` (start partition and
// high-frequency mode cannot be set through the plug-in).
RunResult run_canceller(Api api, const Settings &settings, bool use_host_cfg, int rate,
                        std::span<const int16_t> near, std::span<const int16_t> far,
                        const ProgressFn &progress);

}  // namespace cli
