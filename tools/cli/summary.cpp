// Run summary.
#include "cli/summary.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "cli/json.h"

namespace cli {
namespace {

constexpr int kMinBlocks = 25;            // 0.2 s: fewer say nothing about the echo path
constexpr double kNearGuardSeconds = 0.5;  // around a near-end speech decision
constexpr double kMinAudioForSpeed = 1.0;  // seconds; a shorter run's speed means nothing

}  // namespace

double rms_dbfs(std::span<const int16_t> x) {
    double e = 0;
    for (int16_t v : x) e += static_cast<double>(v) * v;
    if (x.empty() || e <= 0) return -120.0;
    return 10.0 * std::log10(e / x.size() / (32768.0 * 32768.0));
}

double echo_reduction_db(const std::vector<TraceRow> &rows, int &blocks) {
    blocks = 0;
    if (rows.empty()) return 0;
    const double block_s = rows.size() > 1 ? rows[1].time - rows[0].time : 0.008;
    const auto guard = static_cast<std::ptrdiff_t>(kNearGuardSeconds / block_s);
    const auto n = static_cast<std::ptrdiff_t>(rows.size());
    // Distance to the nearest near-end speech decision, forwards and backwards.
    std::vector<std::ptrdiff_t> dist(rows.size(), n);
    std::ptrdiff_t last = -n;
    for (std::ptrdiff_t i = 0; i < n; ++i) {
        if (rows[i].near_state) last = i;
        dist[i] = i - last;
    }
    last = 2 * n;
    for (std::ptrdiff_t i = n - 1; i >= 0; --i) {
        if (rows[i].near_state) last = i;
        dist[i] = std::min(dist[i], last - i);
    }
    double mic = 0, out = 0;
    for (std::ptrdiff_t i = 0; i < n; ++i) {
        const TraceRow &r = rows[i];
        if (r.far_active && dist[i] > guard) {
            mic += r.mic_energy;
            out += r.out_energy;
            ++blocks;
        }
    }
    if (blocks < kMinBlocks || mic <= 0) {
        blocks = 0;
        return 0;
    }
    return 10.0 * std::log10(mic / std::max(out, 1.0));
}

std::string format_summary(const RunFigures &f) {
    std::string s;
    char line[512];
    std::snprintf(line, sizeof line, "duration         %.2f s (%ld frame%s of 10 ms)\n", f.duration,
                  f.frames, f.frames == 1 ? "" : "s");
    s += line;
    if (f.duration >= kMinAudioForSpeed && f.seconds > 0) {
        const double rtf = f.seconds / f.duration;
        std::snprintf(line, sizeof line,
                      "processing time  %.3f s, real-time factor %.4f (%.0fx faster than real "
                      "time)\n",
                      f.seconds, rtf, 1.0 / rtf);
    } else {
        std::snprintf(line, sizeof line, "processing time  %.3f s\n", f.seconds);
    }
    s += line;
    std::snprintf(line, sizeof line, "levels           mic %.1f dBFS, reference %.1f dBFS, output %.1f dBFS\n",
                  f.mic_db, f.ref_db, f.out_db);
    s += line;
    if (f.erle_blocks > 0) {
        std::snprintf(line, sizeof line, "echo reduction   %.1f dB over %.1f s where only the far end talks\n",
                      f.erle_db, f.erle_blocks * f.block_seconds);
    } else {
        std::snprintf(line, sizeof line, "echo reduction   n/a (less than 0.2 s where only the far end talks)\n");
    }
    s += line;
    if (f.fe.present) {
        if (f.fe.estimate_ms >= 0) {
            std::snprintf(line, sizeof line,
                          "front end        echo delay %.1f ms (confidence %.2f), reference "
                          "delayed by %.1f ms, drift %d ppm\n",
                          f.fe.estimate_ms, f.fe.confidence, f.fe.applied_ms, f.fe.drift_ppm);
        } else {
            std::snprintf(line, sizeof line,
                          "front end        no echo delay estimate, reference delayed by %.1f ms\n",
                          f.fe.applied_ms);
        }
        s += line;
    }
    return s;
}

std::string summary_json(const RunFigures &f) {
    JsonObject j;
    j.num("duration_s", f.duration, 3).integer("frames", f.frames).num("processing_s", f.seconds, 3);
    if (f.duration >= kMinAudioForSpeed && f.seconds > 0) {
        j.num("real_time_factor", f.seconds / f.duration, 5);
    } else {
        j.null("real_time_factor");
    }
    j.num("mic_dbfs", f.mic_db, 1).num("ref_dbfs", f.ref_db, 1).num("out_dbfs", f.out_db, 1);
    if (f.erle_blocks > 0) {
        j.num("echo_reduction_db", f.erle_db, 1);
    } else {
        j.null("echo_reduction_db");
    }
    j.num("far_end_only_s", f.erle_blocks * f.block_seconds, 2);
    if (f.fe.present) {
        JsonObject fe;
        if (f.fe.estimate_ms >= 0) {
            fe.num("delay_estimate_ms", f.fe.estimate_ms, 1);
        } else {
            fe.null("delay_estimate_ms");
        }
        fe.num("delay_applied_ms", f.fe.applied_ms, 1)
            .num("confidence", f.fe.confidence, 3)
            .integer("drift_ppm", f.fe.drift_ppm)
            .integer("start_part", f.fe.start_part)
            .boolean("locked", f.fe.locked);
        j.raw("front_end", fe.text());
    }
    std::string hints = "[";
    for (const std::string &h : f.hints) hints += (hints.size() > 1 ? ", " : "") + json_string(h);
    j.raw("hints", hints + "]");
    return j.text() + "\n";
}

}  // namespace cli
