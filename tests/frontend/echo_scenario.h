// Generated recordings for the front end's tests: a speech-like far talker (pulse train through
// vowel formants, syllables, words and pauses), its echo through a room (bulk delay, direct sound,
// a decaying diffuse tail) with an optional clock drift and soft-clipping loudspeaker, background
// noise, a microphone DC offset and a near talker for double talk. Alongside the recording: which
// samples are far-end-only speech (for measuring echo reduction) and the echo delay at any time.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <random>
#include <vector>

namespace fetest {

struct Scenario {
    int rate = 16000;
    double seconds = 10.0;
    double delayMs = 120.0;    // bulk delay of the echo's direct sound at the start
    double driftPpm = 0.0;     // positive: the echo arrives later and later
    double farDbfs = -22.0;    // far talker's level while speaking
    double erlDb = 6.0;        // echo this much below the reference
    double noiseDbfs = -65.0;  // white noise at the microphone
    double dcLsb = 0.0;        // microphone DC offset
    bool softClip = false;     // loudspeaker driven into a soft clip
    double doubleTalk = 0.0;   // share of the far talker's time the near talker also speaks
    double tailDb = -3.0;      // energy of the room's diffuse tail against the direct sound
    unsigned seed = 1;
};

struct Recording {
    std::vector<int16_t> nearv, farv;
    std::vector<uint8_t> farOnly;    // 1 where the far talker speaks and the near talker is silent
    std::vector<uint8_t> farActive;  // 1 where the far talker speaks
};

namespace detail {

using std::numbers::pi;

struct Resonator {
    double a1 = 0, a2 = 0, g = 0, y1 = 0, y2 = 0;
    void tune(double f, double bw, int rate) {
        const double r = std::exp(-pi * bw / rate);
        a1 = 2.0 * r * std::cos(2.0 * pi * f / rate);
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

constexpr double kVowels[][3] = {{730, 1090, 2440}, {530, 1840, 2480}, {270, 2290, 3010},
                                 {570, 840, 2410},  {300, 870, 2240},  {660, 1720, 2410}};

// Speech-like signal at unit RMS over its active samples; active[i] marks syllables.
inline std::vector<double> talker(size_t n, int rate, double f0, unsigned seed,
                                  std::vector<uint8_t> &active) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> uni(0.0, 1.0);
    std::normal_distribution<double> gauss(0.0, 1.0);
    std::vector<double> out(n, 0.0);
    active.assign(n, 0);
    Resonator f[3];
    double phase = 0;
    size_t t = static_cast<size_t>(uni(rng) * 0.3 * rate);
    while (t < n) {
        const int syllables = 2 + static_cast<int>(uni(rng) * 5);
        for (int s = 0; s < syllables && t < n; ++s) {
            const auto len = static_cast<size_t>((0.12 + 0.16 * uni(rng)) * rate);
            const double *v = kVowels[static_cast<int>(uni(rng) * 6) % 6];
            for (int k = 0; k < 3; ++k) f[k].tune(v[k], 60.0 + 40.0 * k, rate);
            const double pitch = f0 * (0.85 + 0.3 * uni(rng));
            const bool fricative = uni(rng) < 0.3;
            for (size_t i = 0; i < len && t < n; ++i, ++t) {
                const double pos = static_cast<double>(i) / static_cast<double>(len);
                const double env = std::sin(pi * pos);
                phase += pitch * (1.0 + 0.06 * std::sin(2.0 * pi * 4.0 * t / rate)) / rate;
                double src = 0.03 * gauss(rng);
                if (phase >= 1.0) {
                    phase -= 1.0;
                    src += 1.0;
                }
                double y = 0;
                for (auto &r : f) y += r.run(src);
                if (fricative && pos < 0.3) y += 0.05 * gauss(rng);
                out[t] = env * y;
                active[t] = env > 0.3;
            }
            t += static_cast<size_t>(0.03 * rate);
        }
        t += static_cast<size_t>((0.2 + 0.6 * uni(rng)) * rate);  // pause between words
    }
    double e = 0;
    size_t k = 0;
    for (size_t i = 0; i < n; ++i) e += active[i] ? out[i] * out[i] : 0.0, k += active[i];
    const double g = k > 0 ? 1.0 / std::sqrt(e / static_cast<double>(k)) : 1.0;
    for (double &x : out) x *= g;
    return out;
}

inline int16_t clip16(double v) {
    const double r = std::nearbyint(v);
    return static_cast<int16_t>(std::clamp(r, -32768.0, 32767.0));
}

// Windowed-sinc value of x at the fractional position pos.
inline double interpolate(const std::vector<double> &x, double pos) {
    const long i0 = static_cast<long>(std::floor(pos));
    const double fr = pos - static_cast<double>(i0);
    double acc = 0;
    for (long k = -8; k <= 8; ++k) {
        const long i = i0 + k;
        if (i < 0 || i >= static_cast<long>(x.size())) continue;
        const double d = static_cast<double>(k) - fr;
        const double w = 0.5 + 0.5 * std::cos(pi * d / 9.0);
        const double s = std::abs(d) < 1e-12 ? 1.0 : std::sin(pi * d) / (pi * d);
        acc += x[i] * s * w;
    }
    return acc;
}

}  // namespace detail

// Room response: direct sound at 0, a diffuse tail from 1 ms decaying by 60 dB in 150 ms, cut at
// 40 ms, tailDb against the direct sound; unit energy.
inline std::vector<double> room_response(int rate, double tailDb, unsigned seed) {
    std::mt19937 rng(seed);
    std::normal_distribution<double> gauss(0.0, 1.0);
    const int len = rate * 40 / 1000;
    std::vector<double> h(len, 0.0);
    h[0] = 1.0;
    double tail = 0;
    for (int k = rate / 1000; k < len; ++k) {
        h[k] = gauss(rng) * std::exp(-6.9 * k / (0.15 * rate));
        tail += h[k] * h[k];
    }
    for (int k = 1; k < len; ++k) h[k] *= std::sqrt(std::pow(10.0, tailDb / 10.0) / tail);
    double e = 0;
    for (double v : h) e += v * v;
    for (double &v : h) v /= std::sqrt(e);
    return h;
}

inline Recording make_recording(const Scenario &sc) {
    using namespace detail;
    const size_t n = static_cast<size_t>(sc.seconds * sc.rate);
    std::vector<uint8_t> farAct, nearAct;
    std::vector<double> farSig = talker(n, sc.rate, 120.0, sc.seed * 7 + 1, farAct);
    const double farAmp = 32767.0 * std::pow(10.0, sc.farDbfs / 20.0);
    Recording r;
    r.farv.resize(n);
    for (size_t i = 0; i < n; ++i) r.farv[i] = clip16(farAmp * farSig[i]);
    // What the loudspeaker plays: the reference, soft-clipped if asked (at 1.5 x the RMS).
    std::vector<double> played(n);
    for (size_t i = 0; i < n; ++i) {
        const double x = r.farv[i];
        const double lim = 1.5 * farAmp;
        played[i] = sc.softClip ? lim * std::tanh(x / lim) : x;
    }
    // The microphone hears it through the room, delay and drift.
    const std::vector<double> h = room_response(sc.rate, sc.tailDb, sc.seed * 13 + 5);
    const double delay = sc.delayMs * sc.rate / 1000.0;
    const double slope = sc.driftPpm * 1e-6;
    std::vector<double> arriving(n);
    for (size_t i = 0; i < n; ++i) {
        const double pos = static_cast<double>(i) * (1.0 - slope) - delay;
        arriving[i] = pos < -9 ? 0.0
                               : (slope == 0.0 && pos == std::floor(pos)
                                      ? (pos >= 0 ? played[static_cast<size_t>(pos)] : 0.0)
                                      : interpolate(played, pos));
    }
    const double echoGain = std::pow(10.0, -sc.erlDb / 20.0);
    std::vector<double> echo(n, 0.0);
    for (size_t i = 0; i < n; ++i) {
        double acc = 0;
        const size_t kmax = std::min(h.size(), i + 1);
        for (size_t k = 0; k < kmax; ++k) acc += h[k] * arriving[i - k];
        echo[i] = echoGain * acc;
    }
    // Near talker: speaks in windows that cover about doubleTalk of the time.
    std::vector<double> nearSig = talker(n, sc.rate, 210.0, sc.seed * 11 + 3, nearAct);
    const double nearAmp = 32767.0 * std::pow(10.0, (sc.farDbfs - sc.erlDb) / 20.0);
    const size_t period = static_cast<size_t>(6.0 * sc.rate);
    const size_t on = static_cast<size_t>(sc.doubleTalk * static_cast<double>(period));
    std::mt19937 rng(sc.seed * 17 + 9);
    std::normal_distribution<double> gauss(0.0, 1.0);
    const double noise = 32767.0 * std::pow(10.0, sc.noiseDbfs / 20.0);
    r.nearv.resize(n);
    r.farOnly.assign(n, 0);
    r.farActive = farAct;
    for (size_t i = 0; i < n; ++i) {
        const bool talking = (i + period / 2) % period < on;
        const double nearPart = talking ? nearAmp * nearSig[i] : 0.0;
        r.nearv[i] = clip16(echo[i] + nearPart + noise * gauss(rng) + sc.dcLsb);
        r.farOnly[i] = farAct[i] && !(talking && nearAct[i]) && !talking;
    }
    return r;
}

// Echo delay (samples) at sample i of a recording.
inline double true_delay(const Scenario &sc, double i) {
    return sc.delayMs * sc.rate / 1000.0 + sc.driftPpm * 1e-6 * i;
}

// Echo reduction in dB over the far-end-only samples in [from, to): microphone power against the
// power of the output, the output being read `lag` samples later.
inline double echo_reduction_db(const Recording &r, const std::vector<int16_t> &out, size_t lag,
                                size_t from, size_t to) {
    double pm = 0, po = 0;
    for (size_t i = from; i < to && i + lag < out.size(); ++i) {
        if (!r.farOnly[i]) continue;
        pm += double(r.nearv[i]) * r.nearv[i];
        po += double(out[i + lag]) * out[i + lag];
    }
    return 10.0 * std::log10((pm + 1.0) / (po + 1.0));
}

// Replaces a signal with white noise of the given RMS.
inline void testsupport_fill_noise(std::vector<int16_t> &v, double rms, unsigned seed) {
    std::mt19937 rng(seed);
    std::normal_distribution<double> gauss(0.0, rms);
    for (auto &x : v) x = detail::clip16(gauss(rng));
}

// The sample at which the far talker has spoken for `seconds` in all.
inline size_t after_far_speech(const Recording &r, int rate, double seconds) {
    const size_t want = static_cast<size_t>(seconds * rate);
    size_t seen = 0;
    for (size_t i = 0; i < r.farActive.size(); ++i) {
        seen += r.farActive[i];
        if (seen >= want) return i;
    }
    return r.farActive.size();
}

}  // namespace fetest
