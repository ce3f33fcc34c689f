// Running the canceller over whole signals, 10 ms frame by 10 ms frame, through the core
// interface or through the host plug-in descriptor.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "sonvel_aec.h"

namespace cli {

enum class Api { Core, Host };

// Samples per 10 ms frame and per processing block at a supported rate (8000 or 16000 Hz).
int frame_length(int rate);
int block_length(int rate);
// The canceller's delay from input to output in samples: one frame plus one block.
int latency_samples(int rate);

struct RunResult {
    std::vector<int16_t> out;  // one output sample per input sample, as the canceller emits them
    double seconds = 0;        // processing time of the frame loop
};

// Called now and then with the fraction done (0..1).
using ProgressFn = std::function<void(double)>;

// Processes near (microphone) and far (reference), equally long, at `rate`. The input is padded
// with zeros to whole frames; the output has the input's length. With Api::Host, `use_host_cfg`
// false lets the plug-in use its built-in values, true hands it `cfg` (start partition and
// high-frequency mode cannot be set through the plug-in).
RunResult run_canceller(Api api, const AecCfg &cfg, bool use_host_cfg, int rate,
                        std::span<const int16_t> near, std::span<const int16_t> far,
                        const ProgressFn &progress);

}  // namespace cli
