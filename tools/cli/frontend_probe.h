// Runs the library's front end alone over a recording pair to read what it finds: the echo's
// bulk delay with its confidence, the drift and the DC offsets, frame by frame and at the end.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "cli/canceller.h"
#include "sonvel_aec_frontend.h"

namespace cli {

struct FrontendProbe {
    FrontendFigures last;               // at the end of the recording
    FrontendFigures best;               // at the most confident estimate
    std::vector<FrameEstimate> frames;  // one per 10 ms frame
    std::vector<int16_t> near, far;     // what the front end hands to the core
};

// Converts the library's estimate record to the tool's figures (milliseconds, 0..1).
FrontendFigures frontend_figures(const AecFrontendEstimate &e, int rate);

// A confident delay estimate (the front end's own lock threshold).
constexpr double kConfidentEstimate = 0.5;

// The echo delay to measure with: the last estimate when it is confident, else the most
// confident one, else 0.
double echo_delay_ms(const FrontendProbe &p);

// Runs a front end with `cfg` over near and far (equally long; the last frame is padded).
FrontendProbe probe_frontend(const AecFrontendCfg &cfg, int rate, std::span<const int16_t> near,
                             std::span<const int16_t> far);

}  // namespace cli
