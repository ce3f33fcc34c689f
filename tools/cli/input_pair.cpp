// Reading and fitting the two input recordings.
#include "cli/input_pair.h"

#include <cmath>
#include <cstdio>

#include "cli/audio_file.h"
#include "cli/error.h"
#include "cli/resample.h"

namespace cli {
namespace {

constexpr int kResampleRate = 16000;
constexpr double kNoteLossFraction = 0.01;  // energy above the band worth a note (-20 dB)

bool supported_rate(int rate) { return rate == 8000 || rate == 16000; }

double mean_power(const std::vector<int16_t> &x) {
    double e = 0;
    for (const int16_t v : x) e += static_cast<double>(v) * v;
    return x.empty() ? 0 : e / x.size();
}

std::string seconds(std::size_t n, int rate) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.2f s", static_cast<double>(n) / rate);
    return buf;
}

// Converts a file's samples to `to`, noting content above the new band that is lost.
std::vector<int16_t> convert(const std::vector<int16_t> &x, int from, int to,
                             const std::string &what, std::vector<std::string> &warnings) {
    std::vector<int16_t> y = resample(x, from, to);
    if (to < from) {
        const double before = mean_power(x), after = mean_power(y);
        if (before > 0 && 1.0 - after / before > kNoteLossFraction) {
            char buf[256];
            std::snprintf(buf, sizeof buf,
                          "note: %s holds %.0f %% of its energy above %d Hz, which the "
                          "canceller's band drops; the output carries nothing above %d Hz",
                          what.c_str(), 100.0 * (1.0 - after / before), to / 2, to / 2);
            warnings.emplace_back(buf);
        }
    }
    return y;
}

// Cuts or pads the reference to `n` samples, with a warning.
void fit_reference(std::vector<int16_t> &far, std::size_t n, std::size_t ref_samples, int ref_rate,
                   const InputPair &p, const std::string &mic_what, const std::string &ref_what,
                   std::vector<std::string> &warnings) {
    if (far.size() > n) {
        warnings.push_back(ref_what + " (" + seconds(ref_samples, ref_rate) + ") is longer than " +
                           mic_what + " (" + seconds(p.mic_samples, p.mic_rate) +
                           "); its end is cut");
    } else if (far.size() < n) {
        warnings.push_back(ref_what + " (" + seconds(ref_samples, ref_rate) + ") is shorter than " +
                           mic_what + " (" + seconds(p.mic_samples, p.mic_rate) +
                           "); padding it with silence");
    }
    far.resize(n, 0);
}

}  // namespace

InputPair load_input_pair(const InputRequest &r, std::vector<std::string> &warnings) {
    const std::string mic_what = "microphone file '" + r.mic + "'";
    const std::string ref_what = "reference file '" + r.ref + "'";
    Audio mic = read_audio(r.mic, "microphone file", r.mic_channel, warnings);
    Audio ref = read_audio(r.ref, "reference file", r.ref_channel, warnings);
    InputPair p;
    p.mic_rate = mic.rate;
    p.mic_samples = mic.samples.size();
    if (!r.resample) {
        if (!supported_rate(mic.rate)) {
            throw Error(mic_what + " is at " + std::to_string(mic.rate) +
                        " Hz; the canceller runs at 8000 or 16000 Hz: add --resample to convert");
        }
        if (mic.rate != ref.rate) {
            throw Error(mic_what + " is at " + std::to_string(mic.rate) + " Hz but " + ref_what +
                        " is at " + std::to_string(ref.rate) +
                        " Hz; both must have the same sample rate, or add --resample to convert "
                        "the reference");
        }
    }
    p.rate = supported_rate(mic.rate) ? mic.rate : kResampleRate;
    // The same rates: fit the reference first, so the two convert alike.
    std::vector<int16_t> far = std::move(ref.samples);
    const std::size_t ref_samples = far.size();
    if (ref.rate == mic.rate)
        fit_reference(far, mic.samples.size(), ref_samples, ref.rate, p, mic_what, ref_what,
                      warnings);
    p.near = convert(mic.samples, mic.rate, p.rate, mic_what, warnings);
    p.far = convert(far, ref.rate, p.rate, ref_what, warnings);
    if (ref.rate != mic.rate)
        fit_reference(p.far, p.near.size(), ref_samples, ref.rate, p, mic_what, ref_what, warnings);
    p.far.resize(p.near.size(), 0);
    p.mic_original = std::move(mic.samples);
    return p;
}

}  // namespace cli
