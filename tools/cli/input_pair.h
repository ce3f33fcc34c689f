// The microphone and reference recordings of a run, read, brought to the canceller's rate (each
// file on its own) and to the same length.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace cli {

struct InputPair {
    int mic_rate = 0;                   // the microphone file's rate (the output's rate)
    int rate = 0;                       // the rate the canceller runs at (8000 or 16000 Hz)
    std::size_t mic_samples = 0;        // length of the microphone file at its own rate
    std::vector<int16_t> mic_original;  // the microphone at its own rate
    std::vector<int16_t> near, far;     // at `rate`, equally long
};

struct InputRequest {
    std::string mic, ref;
    int mic_channel = 0, ref_channel = 0;  // 0: mono only
    bool resample = false;
};

// Reads both files. Without `resample`, both must be at 8000 or 16000 Hz and at the same rate;
// with it, each file is converted to the microphone's rate when that is 8000 or 16000 Hz, else to
// 16000 Hz, with a note when the conversion drops audible content. A longer reference is cut and
// a shorter one padded with silence, each with a warning. Warnings go to `warnings`.
InputPair load_input_pair(const InputRequest &r, std::vector<std::string> &warnings);

}  // namespace cli
