// Audio files in and out through libsndfile: mono 16-bit samples, a channel picked from a
// multichannel file, standard input and other non-seekable sources, and the output formats.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace cli {

struct Audio {
    int rate = 0;
    int channels = 1;  // channels of the file the samples were taken from
    std::vector<int16_t> samples;
};

// Reads an audio file ("-": standard input; pipes and devices are read to their end first).
// `role` names it in messages ("microphone file"). `channel` (1-based) picks a channel of a
// multichannel file (a mono file is used as it is); 0 accepts mono files only. Throws Error for a
// missing, unreadable, corrupt or empty file; a truncated or damaged file gives a warning with how
// much was read.
Audio read_audio(const std::string &path, const std::string &role, int channel,
                 std::vector<std::string> &warnings);

// Output formats: libsndfile major format codes by name ("wav", "flac" ...).
struct FormatName {
    const char *name;
    int code;
};
std::span<const FormatName> output_formats();
// "wav, flac, ..." for messages.
std::string output_format_list();
// The format named by --format (empty: none), or else by the path's extension (none, or "-":
// WAV). Throws UsageError for an unknown name or extension, with the known ones.
int choose_format(const std::string &path, const std::string &format_option);

// The complete file (header with exact lengths, 16-bit samples) in memory, ready to be written in
// one sequential pass to a regular file, a pipe or a device.
std::string encode_audio(int format, int rate, std::span<const int16_t> samples);

}  // namespace cli
