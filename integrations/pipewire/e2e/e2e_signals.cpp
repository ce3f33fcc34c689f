// Signals and measurements of the end-to-end PipeWire test.
//
//   e2e_signals generate PAIR.wav
//       writes a two-channel 16000 Hz file: channel 0 the microphone, channel 1 the reference.
//       Layout: 1.5 s of silence (time for the links), 8 s far end only (the microphone holds the
//       reference through a room response delayed 40 ms, plus noise), 0.6 s of silence (it marks
//       the parts in the recording), 5 s near end only, 0.5 s of silence. Both channels leave one
// player, so they stay sample-aligned through the graph.
//   e2e_signals measure PAIR.wav OUT.wav MIN_REDUCTION_DB MAX_NEAR_CHANGE_DB
//       OUT.wav: the canceller's output and the microphone, recorded together. Reports the
//       far-end-only echo reduction and the near-end-only level change; exits 1 when either
//       misses its bound.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr int kRate = 16000;
constexpr int kFrame = kRate / 100;
constexpr double kLead = 1.5, kFarOnly = 8.0, kGap = 0.6, kNearOnly = 5.0, kTail = 0.5;

int samples(double seconds) { return static_cast<int>(std::lround(seconds * kRate)); }

// Speech-like test signal: low-passed noise gated by syllable-length bursts (120-400 ms on,
// 40-200 ms off), scaled to the given RMS over its active parts.
std::vector<double> talker(int n, double rms, unsigned seed) {
    std::mt19937 rng(seed);
    std::normal_distribution<double> g(0.0, 1.0);
    std::uniform_real_distribution<double> u(0.0, 1.0);
    std::vector<double> x(n);
    double lp = 0.0, env = 0.0;
    int left = 0;
    bool on = false;
    for (int i = 0; i < n; ++i) {
        if (left-- <= 0) {
            on = !on;
            left = samples(on ? 0.12 + 0.28 * u(rng) : 0.04 + 0.16 * u(rng));
        }
        env += ((on ? 1.0 : 0.0) - env) * 0.005;  // about 12 ms attack and release
        lp = 0.6 * lp + g(rng);
        x[i] = lp * env;
    }
    double e = 0.0;
    for (double v : x) e += v * v;
    const double scale = rms / std::sqrt(e / n + 1e-30);
    for (double &v : x) v *= scale;
    return x;
}

int16_t to16(double v) {
    return static_cast<int16_t>(std::lround(std::clamp(v, -32768.0, 32767.0)));
}

void put32(std::FILE *f, uint32_t v) {
    const unsigned char b[4] = {uint8_t(v), uint8_t(v >> 8), uint8_t(v >> 16), uint8_t(v >> 24)};
    std::fwrite(b, 1, 4, f);
}
void put16(std::FILE *f, uint16_t v) {
    const unsigned char b[2] = {uint8_t(v), uint8_t(v >> 8)};
    std::fwrite(b, 1, 2, f);
}

bool write_wav(const char *path, const std::vector<int16_t> &interleaved, int channels) {
    std::FILE *f = std::fopen(path, "wb");
    if (f == nullptr) return false;
    const uint32_t bytes = static_cast<uint32_t>(interleaved.size() * 2);
    std::fwrite("RIFF", 1, 4, f);
    put32(f, 36 + bytes);
    std::fwrite("WAVEfmt ", 1, 8, f);
    put32(f, 16);
    put16(f, 1);
    put16(f, static_cast<uint16_t>(channels));
    put32(f, kRate);
    put32(f, static_cast<uint32_t>(kRate * 2 * channels));
    put16(f, static_cast<uint16_t>(2 * channels));
    put16(f, 16);
    std::fwrite("data", 1, 4, f);
    put32(f, bytes);
    for (int16_t s : interleaved) put16(f, static_cast<uint16_t>(s));
    return std::fclose(f) == 0;
}

uint32_t get32(const unsigned char *p) {
    return p[0] | p[1] << 8 | p[2] << 16 | uint32_t(p[3]) << 24;
}

// 16-bit PCM WAV (plain or extensible header) -> channels; a data size left open by an interrupted
// writer reads to the end of the file.
bool read_wav(const char *path, std::vector<std::vector<double>> &ch, int &rate) {
    std::FILE *f = std::fopen(path, "rb");
    if (f == nullptr) return false;
    std::vector<unsigned char> d;
    unsigned char buf[65536];
    for (size_t n; (n = std::fread(buf, 1, sizeof buf, f)) > 0;) d.insert(d.end(), buf, buf + n);
    std::fclose(f);
    if (d.size() < 12 || std::memcmp(d.data(), "RIFF", 4) || std::memcmp(d.data() + 8, "WAVE", 4))
        return false;
    int channels = 0, bits = 0;
    for (size_t pos = 12; pos + 8 <= d.size();) {
        const uint32_t size = get32(&d[pos + 4]);
        const unsigned char *body = &d[pos + 8];
        if (!std::memcmp(&d[pos], "fmt ", 4) && pos + 24 <= d.size()) {
            channels = body[2] | body[3] << 8;
            rate = static_cast<int>(get32(body + 4));
            bits = body[14] | body[15] << 8;
        } else if (!std::memcmp(&d[pos], "data", 4)) {
            if (channels <= 0 || bits != 16) return false;
            const size_t avail = d.size() - (pos + 8);
            const size_t n = (size == 0 || size > avail ? avail : size) / (2 * channels);
            ch.assign(channels, std::vector<double>(n));
            for (size_t i = 0; i < n; ++i)
                for (int c = 0; c < channels; ++c) {
                    const unsigned char *s = body + 2 * (i * channels + c);
                    ch[c][i] = static_cast<int16_t>(s[0] | s[1] << 8);
                }
            return true;
        }
        pos += 8 + size + (size & 1);
    }
    return false;
}

int generate(const char *path) {
    const int lead = samples(kLead), far_n = samples(kFarOnly), near_n = samples(kNearOnly);
    const int near_at = lead + far_n + samples(kGap);
    const int total = near_at + near_n + samples(kTail);
    std::vector<double> ref(total, 0.0), mic(total, 0.0);
    const std::vector<double> far = talker(far_n, 3000.0, 1);
    const std::vector<double> near = talker(near_n, 2500.0, 2);
    std::copy(far.begin(), far.end(), ref.begin() + lead);
    std::copy(near.begin(), near.end(), mic.begin() + near_at);

    // Room response: 40 ms bulk delay, then 25 ms of exponentially decaying reflections, total
    // gain about -6 dB.
    std::mt19937 rng(3);
    std::normal_distribution<double> g(0.0, 1.0);
    const int delay = samples(0.040), taps = samples(0.025);
    std::vector<double> h(taps);
    double e = 0.0;
    for (int k = 0; k < taps; ++k) {
        h[k] = g(rng) * std::exp(-k / (0.006 * kRate));
        e += h[k] * h[k];
    }
    for (double &v : h) v *= 0.5 / std::sqrt(e);
    for (int i = 0; i < total; ++i) {
        double acc = 0.0;
        for (int k = 0; k < taps; ++k) {
            const int j = i - delay - k;
            if (j >= 0) acc += h[k] * ref[j];
        }
        mic[i] += acc + 3.0 * g(rng);  // microphone noise about -80 dBFS
    }
    std::vector<int16_t> pair(2 * total);
    for (int i = 0; i < total; ++i) {
        pair[2 * i] = to16(mic[i]);
        pair[2 * i + 1] = to16(ref[i]);
    }
    if (!write_wav(path, pair, 2)) {
        std::fprintf(stderr, "e2e_signals: cannot write %s\n", path);
        return 2;
    }
    return 0;
}

std::vector<double> envelope_db(const std::vector<double> &x) {
    std::vector<double> env(x.size() / kFrame);
    for (size_t f = 0; f < env.size(); ++f) {
        double e = 0.0;
        for (int i = 0; i < kFrame; ++i) e += x[f * kFrame + i] * x[f * kFrame + i];
        env[f] = 10.0 * std::log10(e / kFrame + 1.0);
    }
    return env;
}

double rms(const std::vector<double> &x, long from, long to) {
    double e = 0.0;
    for (long i = std::max(0L, from); i < to && i < static_cast<long>(x.size()); ++i)
        e += x[i] * x[i];
    return std::sqrt(e / std::max(1L, to - from) + 1e-12);
}

// OUT.wav holds two channels recorded in the same graph cycles: the canceller's output and the
// microphone as it entered the module. A busy machine can make the clients lose whole cycles, so
// positions are not taken from the played file's clock but from the recorded microphone: the
// silent gap between the two parts is its only run of quiet 10 ms frames longer than 0.35 s after
// the talk starts. The levels are compared over 3.5 s before the gap (far end only) and from 0.5 s
// to 4 s after it (near end only), on both recorded channels, so the output's lag behind the
// microphone (well under the 0.3 s margins) does not matter.
int measure(const char *pair_path, const char *out_path, double min_reduction, double max_change) {
    std::vector<std::vector<double>> pair, out;
    int pair_rate = 0, out_rate = 0;
    if (!read_wav(pair_path, pair, pair_rate) || pair.size() != 2 ||
        !read_wav(out_path, out, out_rate) || out.size() != 2 || pair_rate != kRate ||
        out_rate != kRate) {
        std::fprintf(stderr,
                     "e2e_signals: cannot read %s and %s as 16-bit %d Hz two-channel WAV files\n",
                     pair_path, out_path, kRate);
        return 2;
    }
    const std::vector<double> &y = out[0], &mic = out[1];
    const std::vector<double> env = envelope_db(mic);
    const int frames = static_cast<int>(env.size());
    int talk = 0;
    while (talk < frames && env[talk] < 40.0) ++talk;
    int gap = talk, run = 0;
    for (; gap < frames && run < 35; ++gap) run = env[gap] < 25.0 ? run + 1 : 0;
    gap -= run;
    int near = gap;
    while (near < frames && env[near] < 40.0) ++near;
    if (gap - talk < 600 || near + 400 > frames) {
        std::fprintf(stderr,
                     "e2e_signals: the recorded microphone does not show the played parts (talk at "
                     "%.2f s, gap "
                     "at %.2f s, near end at %.2f s of %.2f s)\n",
                     talk / 100.0, gap / 100.0, near / 100.0, frames / 100.0);
        return 1;
    }
    const long g = static_cast<long>(gap) * kFrame, e = static_cast<long>(near) * kFrame;
    const double reduction = 20.0 * std::log10(rms(mic, g - samples(3.8), g - samples(0.3)) /
                                               rms(y, g - samples(3.8), g - samples(0.3)));
    const double change = 20.0 * std::log10(rms(y, e + samples(0.5), e + samples(4.0)) /
                                            rms(mic, e + samples(0.5), e + samples(4.0)));
    std::printf("far end from %.2f s, gap at %.2f s, near end from %.2f s of the recording\n",
                talk / 100.0, gap / 100.0, near / 100.0);
    std::printf("far-end-only echo reduction: %.1f dB (needs >= %.1f)\n", reduction, min_reduction);
    std::printf("near-end-only level change:  %+.2f dB (needs |change| <= %.1f)\n", change,
                max_change);
    return reduction >= min_reduction && std::fabs(change) <= max_change ? 0 : 1;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc == 3 && std::string(argv[1]) == "generate") return generate(argv[2]);
    if (argc == 6 && std::string(argv[1]) == "measure")
        return measure(argv[2], argv[3], std::atof(argv[4]), std::atof(argv[5]));
    std::fprintf(
        stderr,
        "usage: e2e_signals generate PAIR.wav\n"
        "       e2e_signals measure PAIR.wav OUT.wav MIN_REDUCTION_DB MAX_NEAR_CHANGE_DB\n");
    return 2;
}
