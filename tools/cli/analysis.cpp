// Recording-pair analysis: levels, DC, clipping, far-end activity, the front end's delay and
// drift estimates, a rough echo return loss, and the options that follow from them.
#include "cli/analysis.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "cli/frontend_probe.h"
#include "cli/hints.h"
#include "cli/json.h"

namespace cli {
namespace {

constexpr double kMinSeconds = 1.0;         // shorter recordings say nothing about the echo path
constexpr double kMinFarSeconds = 1.0;      // far-end activity needed for a delay estimate
constexpr double kSilentDbfs = -70.0;       // a reference this quiet plays nothing
constexpr double kActiveDbfs = -50.0;       // a 10 ms frame at least this loud is active...
constexpr double kActiveAboveFloor = 12.0;  // ...and this far above the quietest frames
constexpr double kDcOptionLsb = 100.0;      // about -50 dBFS
constexpr int kDriftOptionPpm = 20;         // 1.2 ms per minute
constexpr int kMaxDriftPpm = 2000;          // beyond this it is no clock drift but a bad trend

double dbfs(double power) {
    return power > 0 ? 10.0 * std::log10(power / (32768.0 * 32768.0)) : -120.0;
}

SignalFigures measure(const std::vector<int16_t> &x) {
    SignalFigures f;
    double e = 0, peak = 0;
    std::size_t clipped = 0;
    for (const int16_t v : x) {
        e += static_cast<double>(v) * v;
        peak = std::max(peak, std::fabs(static_cast<double>(v)));
        clipped += v >= 32767 || v <= -32767;
    }
    if (x.empty()) return f;
    f.rms_dbfs = dbfs(e / x.size());
    f.peak_dbfs = peak > 0 ? 20.0 * std::log10(peak / 32768.0) : -120.0;
    f.dc_lsb = dc_offset(x);
    f.clipped = static_cast<double>(clipped) / x.size();
    return f;
}

// Mean power of each 10 ms frame, DC removed.
std::vector<double> frame_powers(const std::vector<int16_t> &x, std::size_t frame, double dc) {
    std::vector<double> p(x.size() / frame);
    for (std::size_t i = 0; i < p.size(); ++i) {
        double e = 0;
        for (std::size_t k = 0; k < frame; ++k) {
            const double v = x[i * frame + k] - dc;
            e += v * v;
        }
        p[i] = e / frame;
    }
    return p;
}

std::string shell_quote(const std::string &s) {
    if (!s.empty() && s.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                          "0123456789_-./+,:@%") == std::string::npos)
        return s;
    std::string q = "'";
    for (const char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return q + "'";
}

}  // namespace

Analysis analyze_pair(const InputPair &in) {
    Analysis a;
    a.rate = in.rate;
    const std::size_t frame = in.rate == 8000 ? 80 : 160;
    a.duration = static_cast<double>(in.near.size()) / in.rate;
    a.frames = static_cast<long>((in.near.size() + frame - 1) / frame);
    a.mic = measure(in.near);
    a.ref = measure(in.far);

    // Far-end activity: frames clearly above both an absolute floor and the quietest frames.
    const std::vector<double> far_p = frame_powers(in.far, frame, a.ref.dc_lsb);
    std::vector<double> sorted = far_p;
    std::sort(sorted.begin(), sorted.end());
    const double floor_db = sorted.empty() ? -120.0 : dbfs(sorted[sorted.size() / 10]);
    std::vector<bool> active(far_p.size());
    std::size_t n_active = 0;
    for (std::size_t i = 0; i < far_p.size(); ++i) {
        const double l = dbfs(far_p[i]);
        active[i] = l > kActiveDbfs && l > floor_db + kActiveAboveFloor;
        n_active += active[i];
    }
    a.far_active_s = static_cast<double>(n_active * frame) / in.rate;
    a.far_active_share = far_p.empty() ? 0 : static_cast<double>(n_active) / far_p.size();

    // The front end's estimates, without touching the signals (delay line off).
    AecFrontendCfg probe_cfg{};
    probe_cfg.u8DelayMode = SONVEL_AEC_DELAY_OFF;
    const FrontendProbe probe = probe_frontend(probe_cfg, in.rate, in.near, in.far);
    a.fe = probe.last.estimate_ms >= 0 && probe.last.confidence >= kConfidentEstimate ? probe.last
                                                                                      : probe.best;
    a.have_delay = a.fe.estimate_ms >= 0 && a.fe.confidence >= kConfidentEstimate;
    a.have_drift = a.have_delay && std::abs(a.fe.drift_ppm) <= kMaxDriftPpm;

    // Rough ERL: reference over microphone power in the far-active frames, the microphone taken
    // where the echo of each frame arrives.
    if (a.have_delay) {
        const std::vector<double> mic_p = frame_powers(in.near, frame, a.mic.dc_lsb);
        const auto lag =
            static_cast<std::size_t>(std::lround(a.fe.estimate_ms * in.rate / 1000.0 / frame));
        double e_ref = 0, e_mic = 0;
        for (std::size_t i = 0; i + lag < mic_p.size() && i < far_p.size(); ++i) {
            if (!active[i]) continue;
            e_ref += far_p[i];
            e_mic += mic_p[i + lag];
        }
        if (e_ref > 0 && e_mic > 0) {
            a.erl_db = 10.0 * std::log10(e_ref / e_mic);
            a.have_erl = true;
        }
    }

    // Conclusion.
    const bool identical = in.near == in.far;
    if (a.duration < kMinSeconds) {
        char buf[160];
        std::snprintf(buf, sizeof buf,
                      "the recordings are too short (%ld frame%s of 10 ms); at "
                      "least %.0f s is needed",
                      a.frames, a.frames == 1 ? "" : "s", kMinSeconds);
        a.reason = buf;
    } else if (identical) {
        a.reason =
            "the microphone and the reference hold the same samples: the same recording "
            "given twice?";
    } else if (a.ref.rms_dbfs < kSilentDbfs || n_active == 0) {
        a.reason = "the reference is silent: there is no far end to find in the microphone";
    } else if (a.far_active_s < kMinFarSeconds) {
        char buf[160];
        std::snprintf(buf, sizeof buf,
                      "too little far-end activity (%.1f s; at least %.0f s is "
                      "needed)",
                      a.far_active_s, kMinFarSeconds);
        a.reason = buf;
    } else if (!a.have_delay) {
        a.reason =
            "no correlation found between the reference and the microphone: is the "
            "reference what the loudspeaker played, and is the echo audible?";
    }
    if (!a.reason.empty()) return a;

    if (echo_out_of_reach(a.fe.estimate_ms)) {
        const long ms = std::lround(a.fe.estimate_ms - kLeadMs);
        a.options.push_back("--ref-delay " + std::to_string(ms));
        char buf[200];
        std::snprintf(buf, sizeof buf,
                      "the echo arrives %.1f ms after the reference, beyond "
                      "the filter's reach of about 48 ms: delay the reference by %ld ms",
                      a.fe.estimate_ms, ms);
        a.notes.emplace_back(buf);
    }
    if (std::fabs(a.mic.dc_lsb) >= kDcOptionLsb || std::fabs(a.ref.dc_lsb) >= kDcOptionLsb) {
        a.options.emplace_back("--dc-block");
        char buf[160];
        std::snprintf(buf, sizeof buf,
                      "DC offsets of %+.0f LSB (microphone) and %+.0f LSB "
                      "(reference) cost echo reduction",
                      a.mic.dc_lsb, a.ref.dc_lsb);
        a.notes.emplace_back(buf);
    }
    if (a.have_drift && std::abs(a.fe.drift_ppm) >= kDriftOptionPpm) {
        // Drift is followed by the automatic delay only.
        a.options.erase(
            std::remove_if(a.options.begin(), a.options.end(),
                           [](const std::string &o) { return o.rfind("--ref-delay", 0) == 0; }),
            a.options.end());
        a.options.insert(a.options.begin(), {"--ref-delay auto", "--drift auto"});
        char buf[160];
        std::snprintf(buf, sizeof buf, "the clocks drift by %d ppm: let the delay follow it",
                      a.fe.drift_ppm);
        a.notes.emplace_back(buf);
    }
    return a;
}

std::string recommended_command(const Analysis &a, const std::string &mic, const std::string &ref) {
    std::string c =
        "sonvel-aec process " + shell_quote(mic) + " " + shell_quote(ref) + " -o out.wav";
    for (const std::string &o : a.options) c += " " + o;
    return c;
}

std::string format_analysis(const Analysis &a, const std::string &command) {
    std::string s;
    char line[512];
    const auto add = [&s, &line]() { s += line; };
    std::snprintf(line, sizeof line, "duration         %.2f s (%ld frame%s of 10 ms) at %d Hz\n",
                  a.duration, a.frames, a.frames == 1 ? "" : "s", a.rate);
    add();
    for (const auto &[name, f] : {std::pair{"microphone", &a.mic}, {"reference", &a.ref}}) {
        std::snprintf(line, sizeof line,
                      "%-16s level %.1f dBFS, peak %.1f dBFS, DC %+.0f LSB, clipped %.3f %%\n",
                      name, f->rms_dbfs, f->peak_dbfs, std::round(f->dc_lsb) + 0.0,
                      100.0 * f->clipped);
        add();
    }
    std::snprintf(line, sizeof line, "far-end activity %.1f s (%.0f %% of the recording)\n",
                  a.far_active_s, 100.0 * a.far_active_share);
    add();
    if (a.fe.estimate_ms >= 0) {
        std::snprintf(line, sizeof line,
                      "echo delay       %.1f ms behind the reference "
                      "(confidence %.2f%s)\n",
                      a.fe.estimate_ms, a.fe.confidence,
                      a.have_delay ? "" : ", too low to rely on");
    } else {
        std::snprintf(line, sizeof line, "echo delay       no estimate\n");
    }
    add();
    if (a.have_drift) {
        std::snprintf(line, sizeof line, "drift            %d ppm\n", a.fe.drift_ppm);
    } else {
        std::snprintf(line, sizeof line, "drift            n/a (no steady delay trend)\n");
    }
    add();
    if (a.have_erl) {
        std::snprintf(line, sizeof line,
                      "echo return loss about %.0f dB (reference over "
                      "microphone where the far end talks)\n",
                      a.erl_db);
    } else {
        std::snprintf(line, sizeof line, "echo return loss n/a\n");
    }
    add();
    if (!a.reason.empty()) {
        s += "no recommendation: " + a.reason + "\n";
        return s;
    }
    for (const std::string &n : a.notes) s += "note             " + n + "\n";
    s += a.options.empty() ? "recommended      no front-end option is needed:\n" : "recommended\n";
    s += "  " + command + "\n";
    return s;
}

std::string analysis_json(const Analysis &a, const std::string &command) {
    const auto signal = [](const SignalFigures &f) {
        return JsonObject()
            .num("rms_dbfs", f.rms_dbfs, 1)
            .num("peak_dbfs", f.peak_dbfs, 1)
            .num("dc_lsb", f.dc_lsb, 1)
            .num("clipped_fraction", f.clipped, 5)
            .text();
    };
    JsonObject j;
    j.num("duration_s", a.duration, 3).integer("frames", a.frames).integer("rate", a.rate);
    j.raw("microphone", signal(a.mic)).raw("reference", signal(a.ref));
    j.num("far_active_s", a.far_active_s, 2).num("far_active_share", a.far_active_share, 3);
    if (a.fe.estimate_ms >= 0) {
        j.num("delay_ms", a.fe.estimate_ms, 1);
    } else {
        j.null("delay_ms");
    }
    j.num("delay_confidence", a.fe.confidence, 3);
    if (a.have_drift) {
        j.integer("drift_ppm", a.fe.drift_ppm);
    } else {
        j.null("drift_ppm");
    }
    if (a.have_erl) {
        j.num("erl_db", a.erl_db, 1);
    } else {
        j.null("erl_db");
    }
    if (a.reason.empty()) {
        std::string opts = "[";
        for (const std::string &o : a.options)
            opts += (opts.size() > 1 ? ", " : "") + json_string(o);
        j.boolean("concluded", true)
            .null("reason")
            .raw("options", opts + "]")
            .str("command", command);
    } else {
        j.boolean("concluded", false).str("reason", a.reason).raw("options", "[]").null("command");
    }
    return j.text() + "\n";
}

}  // namespace cli
