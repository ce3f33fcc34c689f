// Audio file reading and writing through libsndfile.
#include "cli/wav_io.h"

#include <cerrno>
#include <cstring>
#include <sndfile.h>
#include <sys/stat.h>

#include "cli/error.h"
#include "cli/pending_file.h"

namespace cli {

Audio read_mono(const std::string &path, const std::string &role) {
    const std::string what = role + " '" + path + "'";
    struct stat st {};
    if (stat(path.c_str(), &st) != 0)
        throw Error("cannot read " + what + ": " + std::strerror(errno));
    if (S_ISDIR(st.st_mode)) throw Error("cannot read " + what + ": it is a directory");
    SF_INFO info{};
    SNDFILE *f = sf_open(path.c_str(), SFM_READ, &info);
    if (f == nullptr) throw Error("cannot read " + what + ": " + sf_strerror(nullptr));
    if (info.channels != 1) {
        sf_close(f);
        throw Error(what + " has " + std::to_string(info.channels) +
                    " channels; only mono input is supported");
    }
    Audio audio;
    audio.rate = info.samplerate;
    audio.samples.resize(static_cast<std::size_t>(info.frames));
    const sf_count_t got = sf_read_short(f, audio.samples.data(), info.frames);
    const std::string err = sf_strerror(f);
    sf_close(f);
    if (got != info.frames) {
        throw Error("cannot read " + what + ": truncated or corrupt audio data (" + err + ")");
    }
    if (audio.samples.empty()) throw Error(what + " contains no audio");
    return audio;
}

void write_wav(PendingFile &file, int rate, std::span<const int16_t> samples) {
    const std::string what = file.role() + " '" + file.path() + "'";
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = 1;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SNDFILE *f = sf_open_fd(file.release_fd(), SFM_WRITE, &info, SF_TRUE);
    if (f == nullptr) throw Error("cannot write " + what + ": " + sf_strerror(nullptr));
    const auto n = static_cast<sf_count_t>(samples.size());
    const sf_count_t put = sf_write_short(f, samples.data(), n);
    const std::string err = sf_strerror(f);
    if (sf_close(f) != 0 || put != n) throw Error("cannot write " + what + ": " + err);
    file.commit();
}

void write_wav(const std::string &path, const std::string &role, int rate,
               std::span<const int16_t> samples) {
    PendingFile file(path, role);
    write_wav(file, rate, samples);
}

}  // namespace cli
