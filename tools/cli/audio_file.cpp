// Audio file reading and encoding through libsndfile, with in-memory virtual I/O for inputs that
// cannot seek and for outputs composed before they are written.
#include "cli/audio_file.h"

#include <fcntl.h>
#include <sndfile.h>
#include <sys/stat.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "cli/error.h"

namespace cli {
namespace {

// A growable byte buffer seen by libsndfile as a seekable file.
struct MemoryFile {
    std::string bytes;
    sf_count_t pos = 0;
};

sf_count_t mem_length(void *user) {
    return static_cast<sf_count_t>(static_cast<MemoryFile *>(user)->bytes.size());
}
sf_count_t mem_seek(sf_count_t offset, int whence, void *user) {
    auto *m = static_cast<MemoryFile *>(user);
    const sf_count_t base = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? m->pos : mem_length(m);
    m->pos = std::max<sf_count_t>(0, base + offset);
    return m->pos;
}
sf_count_t mem_read(void *ptr, sf_count_t count, void *user) {
    auto *m = static_cast<MemoryFile *>(user);
    const sf_count_t n = std::clamp<sf_count_t>(mem_length(m) - m->pos, 0, count);
    std::memcpy(ptr, m->bytes.data() + m->pos, static_cast<std::size_t>(n));
    m->pos += n;
    return n;
}
sf_count_t mem_write(const void *ptr, sf_count_t count, void *user) {
    auto *m = static_cast<MemoryFile *>(user);
    const auto end = static_cast<std::size_t>(m->pos + count);
    if (m->bytes.size() < end) m->bytes.resize(end);
    std::memcpy(m->bytes.data() + m->pos, ptr, static_cast<std::size_t>(count));
    m->pos += count;
    return count;
}
sf_count_t mem_tell(void *user) { return static_cast<MemoryFile *>(user)->pos; }
SF_VIRTUAL_IO memory_io() { return {mem_length, mem_seek, mem_read, mem_write, mem_tell}; }

std::string read_all(int fd, const std::string &what) {
    std::string data;
    char buf[65536];
    for (;;) {
        const ssize_t n = read(fd, buf, sizeof buf);
        if (n == 0) break;
        if (n < 0) {
            if (errno == EINTR) continue;
            throw Error("cannot read " + what + ": " + std::strerror(errno));
        }
        data.append(buf, static_cast<std::size_t>(n));
    }
    return data;
}

// "data : 32000 (should be 19956)" in libsndfile's log: the header promises more than the file
// holds.
bool header_promises_more(SNDFILE *f) {
    char log[8192] = {};
    sf_command(f, SFC_GET_LOG_INFO, log, sizeof log);
    for (const char *p = log; (p = std::strstr(p, "data")) != nullptr; ++p) {
        const char *eol = std::strchr(p, '\n');
        const char *should = std::strstr(p, "(should be");
        if (should != nullptr && (eol == nullptr || should < eol)) return true;
    }
    return false;
}

constexpr FormatName kFormats[] = {
    {"wav", SF_FORMAT_WAV},   {"flac", SF_FORMAT_FLAC}, {"au", SF_FORMAT_AU},
    {"aiff", SF_FORMAT_AIFF}, {"caf", SF_FORMAT_CAF},   {"w64", SF_FORMAT_W64},
};

std::string lower(std::string s) {
    for (char &c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

}  // namespace

Audio read_audio(const std::string &path, const std::string &role, int channel,
                 std::vector<std::string> &warnings) {
    const std::string what = role + " '" + path + "'";
    const bool is_stdin = path == "-";
    struct stat st {};
    if (!is_stdin && stat(path.c_str(), &st) != 0)
        throw Error("cannot read " + what + ": " + std::strerror(errno));
    if (!is_stdin && S_ISDIR(st.st_mode))
        throw Error("cannot read " + what + ": it is a directory");

    SF_INFO info{};
    SNDFILE *f = nullptr;
    MemoryFile mem;
    SF_VIRTUAL_IO io = memory_io();
    if (is_stdin || !S_ISREG(st.st_mode)) {
        // Pipes, FIFOs and devices: read to the end, then decode from memory (seekable).
        int fd = STDIN_FILENO;
        if (!is_stdin && (fd = open(path.c_str(), O_RDONLY | O_CLOEXEC)) < 0)
            throw Error("cannot read " + what + ": " + std::strerror(errno));
        mem.bytes = read_all(fd, what);
        if (!is_stdin) close(fd);
        if (mem.bytes.empty()) throw Error(what + " is empty");
        f = sf_open_virtual(&io, SFM_READ, &info, &mem);
    } else {
        if (st.st_size == 0) throw Error(what + " is empty");
        f = sf_open(path.c_str(), SFM_READ, &info);
    }
    if (f == nullptr) throw Error("cannot read " + what + ": " + sf_strerror(nullptr));
    const int channels = info.channels;
    if (channels != 1 && channel == 0) {
        sf_close(f);
        throw Error(what + " has " + std::to_string(channels) +
                    " channels; pick one with --channel N (1.." + std::to_string(channels) + ")");
    }
    if (channels > 1 && channel > channels) {
        sf_close(f);
        throw Error(what + " has " + std::to_string(channels) + " channel" +
                    (channels == 1 ? "" : "s") + "; --channel " + std::to_string(channel) +
                    " does not exist");
    }
    std::vector<int16_t> interleaved(static_cast<std::size_t>(info.frames) * channels);
    const sf_count_t got = sf_readf_short(f, interleaved.data(), info.frames);
    const bool short_header = header_promises_more(f);
    sf_close(f);
    Audio audio;
    audio.rate = info.samplerate;
    audio.channels = channels;
    const int pick = channels == 1 ? 0 : channel - 1;
    audio.samples.resize(static_cast<std::size_t>(std::max<sf_count_t>(got, 0)));
    for (std::size_t i = 0; i < audio.samples.size(); ++i)
        audio.samples[i] = interleaved[i * channels + pick];
    char secs[96];
    std::snprintf(secs, sizeof secs, "%.2f s (%zu samples)",
                  static_cast<double>(audio.samples.size()) / std::max(1, audio.rate),
                  audio.samples.size());
    if (got < info.frames) {
        if (audio.samples.empty())
            throw Error("cannot read " + what + ": damaged audio data, nothing could be decoded");
        char declared[64];
        std::snprintf(declared, sizeof declared, "%.2f s",
                      static_cast<double>(info.frames) / std::max(1, audio.rate));
        warnings.push_back(what + " is truncated or damaged: read " + secs + " of the " + declared +
                           " its header declares; using what was read");
    } else if (short_header) {
        warnings.push_back(what +
                           " is truncated: its header declares more audio than the file "
                           "holds; read " +
                           secs);
    }
    if (audio.samples.empty()) throw Error(what + " contains no audio");
    return audio;
}

std::span<const FormatName> output_formats() { return kFormats; }

std::string output_format_list() {
    std::string s;
    for (const FormatName &f : kFormats) s += (s.empty() ? "" : ", ") + std::string(f.name);
    return s;
}

int choose_format(const std::string &path, const std::string &format_option) {
    std::string name = lower(format_option);
    std::string source = "--format " + format_option;
    if (name.empty()) {
        const auto slash = path.rfind('/');
        const auto dot = path.rfind('.');
        if (path == "-" || dot == std::string::npos || (slash != std::string::npos && dot < slash))
            return SF_FORMAT_WAV;
        name = lower(path.substr(dot + 1));
        source = "output file '" + path + "': extension '." + path.substr(dot + 1) + "'";
        if (name == "wave") name = "wav";
        if (name == "aif") name = "aiff";
    }
    for (const FormatName &f : kFormats) {
        if (name == f.name) return f.code;
    }
    throw UsageError(source + " is not a known output format; known: " + output_format_list() +
                     " (or choose one with --format)");
}

std::string encode_audio(int format, int rate, std::span<const int16_t> samples) {
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = 1;
    info.format = format | SF_FORMAT_PCM_16;
    MemoryFile mem;
    SF_VIRTUAL_IO io = memory_io();
    SNDFILE *f = sf_open_virtual(&io, SFM_WRITE, &info, &mem);
    if (f == nullptr) throw Error(std::string("cannot encode the output: ") + sf_strerror(nullptr));
    const auto n = static_cast<sf_count_t>(samples.size());
    const sf_count_t put = sf_write_short(f, samples.data(), n);
    const std::string err = sf_strerror(f);
    if (sf_close(f) != 0 || put != n) throw Error("cannot encode the output: " + err);
    return std::move(mem.bytes);
}

}  // namespace cli
