// Synthesis of the demonstration scenario: speech-like talkers (a glottal pulse train through
// vowel formant resonators, with syllable and word rhythm and fricative bursts), a room echo path
// (bulk delay, direct sound, exponentially decaying diffuse tail) and background noise.
#include "cli/demo_scenario.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>

namespace cli {
namespace {

constexpr double kPi = std::numbers::pi;

struct Voice {
    double f0;  // mean pitch, Hz
    double formant_scale;
    unsigned seed;
};

// Vowel formants F1..F3 in Hz (adult male), scaled per voice.
constexpr double kVowels[][3] = {
    {730, 1090, 2440}, {530, 1840, 2480}, {270, 2290, 3010}, {570, 840, 2410},
    {300, 870, 2240},  {660, 1720, 2410}, {490, 1350, 1690}, {440, 1020, 2240},
};

// Two-pole resonator at frequency f with bandwidth bw.
struct Resonator {
    double a1 = 0, a2 = 0, g = 0, y1 = 0, y2 = 0;
    void tune(double f, double bw, int rate) {
        const double r = std::exp(-kPi * bw / rate);
        a1 = 2.0 * r * std::cos(2.0 * kPi * f / rate);
        a2 = -r * r;
        g = 1.0 - r;
    }
    double run(double x) {
        const double y = g * x + a1 * y1 + a2 * y2;
        y2 = y1;
        y1 = y;
        return y;
    }
};

// Speech-like signal of n samples with unit peak normalisation applied later.
std::vector<double> talker(const Voice &v, std::size_t n, int rate) {
    std::mt19937 rng(v.seed);
    std::uniform_real_distribution<double> uni(0.0, 1.0);
    std::normal_distribution<double> gauss(0.0, 1.0);
    std::vector<double> out(n, 0.0);
    Resonator f[3];
    double phase = 0;
    std::size_t t = 0;
    while (t < n) {
        // A word of 1..4 syllables, then a pause.
        const int syllables = 1 + static_cast<int>(uni(rng) * 4);
        for (int s = 0; s < syllables && t < n; ++s) {
            const auto len = static_cast<std::size_t>((0.12 + 0.16 * uni(rng)) * rate);
            const double *vowel = kVowels[static_cast<int>(uni(rng) * 8) % 8];
            for (int k = 0; k < 3; ++k)
                f[k].tune(vowel[k] * v.formant_scale, 60.0 + 40.0 * k, rate);
            const double pitch = v.f0 * (0.85 + 0.3 * uni(rng));
            const auto burst = static_cast<std::size_t>(uni(rng) < 0.5 ? 0.04 * rate : 0);
            for (std::size_t i = 0; i < len && t < n; ++i, ++t) {
                const double pos = static_cast<double>(i) / len;
                const double env = std::sin(kPi * pos) * (1.0 - 0.3 * pos);
                const double f0 = pitch * (1.0 + 0.08 * std::sin(2.0 * kPi * 3.0 * t / rate));
                phase += f0 / rate;
                double src = 0;
                if (phase >= 1.0) {
                    phase -= 1.0;
                    src = 1.0;  // glottal pulse
                }
                src += 0.02 * gauss(rng);  // aspiration
                double y = 0;
                for (auto &r : f) y += r.run(src);
                double fric = 0;
                if (i < burst) fric = 0.15 * gauss(rng) * (1.0 - static_cast<double>(i) / burst);
                out[t] = env * y + fric;
            }
        }
        t += static_cast<std::size_t>((0.08 + 0.35 * uni(rng)) * rate);
    }
    return out;
}

// Room impulse response: bulk delay, a direct tap, then a decaying diffuse tail.
std::vector<double> room(int rate, int bulk) {
    std::mt19937 rng(7);
    std::normal_distribution<double> gauss(0.0, 1.0);
    const auto len = static_cast<std::size_t>(bulk + 0.05 * rate);
    std::vector<double> h(len, 0.0);
    h[static_cast<std::size_t>(bulk)] = 0.6;
    const double tau = 0.008 * rate;                      // 60 dB down after about 55 ms
    const double tail = 0.07 * std::sqrt(8000.0 / rate);  // the same tail energy at both rates
    for (std::size_t i = static_cast<std::size_t>(bulk) + 1; i < len; ++i) {
        h[i] = tail * gauss(rng) * std::exp(-static_cast<double>(i - bulk) / tau);
    }
    return h;
}

std::vector<double> convolve(const std::vector<double> &x, const std::vector<double> &h) {
    std::vector<double> y(x.size(), 0.0);
    std::size_t first = 0;  // the bulk delay's zero taps cost nothing
    while (first < h.size() && h[first] == 0.0) ++first;
    for (std::size_t i = 0; i < x.size(); ++i) {
        if (x[i] == 0.0) continue;
        const std::size_t m = std::min(h.size(), x.size() - i);
        for (std::size_t k = first; k < m; ++k) y[i + k] += x[i] * h[k];
    }
    return y;
}

// The stretches where a talker is on: the segments where `who` talks, adjacent ones joined.
std::vector<std::pair<double, double>> talking(const std::vector<Segment> &segments,
                                               bool Segment::*who) {
    std::vector<std::pair<double, double>> on;
    for (const Segment &s : segments) {
        if (!(s.*who)) continue;
        if (!on.empty() && on.back().second == s.start) {
            on.back().second = s.end;
        } else {
            on.emplace_back(s.start, s.end);
        }
    }
    return on;
}

// Scales x so that its RMS over the active (non-zero) stretches is `dbfs`.
void normalise(std::vector<double> &x, double dbfs) {
    double e = 0;
    std::size_t active = 0;
    for (double v : x) {
        e += v * v;
        active += v != 0.0;
    }
    if (active == 0) return;
    const double gain = std::pow(10.0, dbfs / 20.0) * 32768.0 / std::sqrt(e / active);
    for (double &v : x) v *= gain;
}

// Keeps x only inside [start, end) seconds, with 20 ms fades.
void gate(std::vector<double> &x, int rate, const std::vector<std::pair<double, double>> &on) {
    const double fade = 0.02 * rate;
    for (std::size_t i = 0; i < x.size(); ++i) {
        double g = 0;
        for (const auto &[a, b] : on) {
            const double s = static_cast<double>(i) - a * rate,
                         e = b * rate - static_cast<double>(i);
            g = std::max(g, std::clamp(std::min(s, e) / fade, 0.0, 1.0));
        }
        x[i] *= g;
    }
}

std::vector<int16_t> to_pcm(const std::vector<double> &x) {
    std::vector<int16_t> y(x.size());
    for (std::size_t i = 0; i < x.size(); ++i) {
        y[i] = static_cast<int16_t>(std::lround(std::clamp(x[i], -32768.0, 32767.0)));
    }
    return y;
}

}  // namespace

ScenarioSpec demo_spec(int rate) {
    ScenarioSpec setup;
    setup.rate = rate;
    setup.segments = {{"far end only", 0, 6, true, false},
                      {"near end only", 6, 10, false, true},
                      {"double talk", 10, 16, true, true},
                      {"far end only", 16, 22, true, false}};
    return setup;
}

Scenario make_scenario(int rate) { return make_scenario(demo_spec(rate)); }

Scenario make_scenario(const ScenarioSpec &setup) {
    const int rate = setup.rate;
    Scenario s;
    s.rate = rate;
    s.segments = setup.segments;
    const double seconds = setup.segments.empty() ? 0.0 : setup.segments.back().end;
    const auto n = static_cast<std::size_t>(seconds * rate);
    s.bulk_delay = static_cast<int>(std::lround(setup.bulk_delay_ms * rate / 1000.0));

    std::vector<double> far = talker({120.0, 1.0, 11 + setup.seed}, n, rate);
    std::vector<double> near = talker({210.0, 1.18, 23 + setup.seed}, n, rate);
    gate(far, rate, talking(setup.segments, &Segment::far));
    gate(near, rate, talking(setup.segments, &Segment::near));
    normalise(far, setup.far_dbfs);
    normalise(near, setup.near_dbfs);
    std::vector<double> echo = convolve(far, room(rate, s.bulk_delay));
    const double echo_gain = std::pow(10.0, setup.echo_gain_db / 20.0);

    // Background noise: low-passed white noise.
    std::mt19937 rng(5 + setup.seed);
    std::normal_distribution<double> gauss(0.0, 1.0);
    std::vector<double> noise(n);
    double lp = 0;
    for (double &v : noise) {
        lp = 0.9 * lp + 0.1 * gauss(rng);
        v = lp;
    }
    normalise(noise, setup.noise_dbfs);

    std::vector<double> mic(n), clean(n);
    for (std::size_t i = 0; i < n; ++i) {
        echo[i] *= echo_gain;
        clean[i] = near[i] + noise[i];
        mic[i] = clean[i] + echo[i] + setup.mic_dc;
    }
    s.ref = to_pcm(far);
    s.mic = to_pcm(mic);
    s.near = to_pcm(clean);
    s.echo = to_pcm(echo);
    return s;
}

}  // namespace cli
