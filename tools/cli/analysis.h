// Measurements of a recording pair before processing, and the options they call for.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "cli/canceller.h"
#include "cli/input_pair.h"

namespace cli {

struct SignalFigures {
    double rms_dbfs = -120, peak_dbfs = -120;
    double dc_lsb = 0;
    double clipped = 0;  // fraction of samples at full scale
};

struct Analysis {
    int rate = 0;
    double duration = 0;  // seconds
    long frames = 0;      // 10 ms frames
    SignalFigures mic, ref;
    double far_active_s = 0;      // seconds of 10 ms frames with far-end activity
    double far_active_share = 0;  // of the whole
    FrontendFigures fe;           // the front end's findings (delay, confidence, drift)
    bool have_delay = false;      // a confident delay estimate
    bool have_drift = false;      // a plausible drift estimate (with a confident delay)
    double erl_db = 0;            // reference over microphone power where the far end is active
    bool have_erl = false;
    // The conclusion: empty `reason` with the options to use, or why there is none.
    std::string reason;
    std::vector<std::string> options;  // e.g. "--ref-delay 116", "--dc-block"
    std::vector<std::string> notes;    // why each option is there
};

// Measures the pair and concludes.
Analysis analyze_pair(const InputPair &in);

// The analysis as text (with `command` as the ready-to-paste command line) and as JSON.
std::string format_analysis(const Analysis &a, const std::string &command);
std::string analysis_json(const Analysis &a, const std::string &command);

// "sonvel-aec process MIC REF -o OUT.wav OPTIONS", the file names quoted for a POSIX shell.
std::string recommended_command(const Analysis &a, const std::string &mic, const std::string &ref);

}  // namespace cli
