// Mono 16-bit audio files in and out (any format libsndfile reads; WAV out).
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace cli {

class PendingFile;

struct Audio {
    int rate = 0;
    std::vector<int16_t> samples;
};

// Reads a mono file; `role` names it in messages ("microphone file"). Throws Error for a missing,
// unreadable, corrupt, empty or multi-channel file.
Audio read_mono(const std::string &path, const std::string &role);

// Writes a 16-bit mono WAV into the pending file and commits it.
void write_wav(PendingFile &file, int rate, std::span<const int16_t> samples);
// The same for a plain path (written through a pending file).
void write_wav(const std::string &path, const std::string &role, int rate,
               std::span<const int16_t> samples);

}  // namespace cli
