// Run summary.
#include "cli/summary.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "cli/json.h"

namespace cli {
namespace {

constexpr int kMinBlocks = 25;             // 0.2 s: fewer say nothing about the echo path
constexpr double kMinAudioForSpeed = 1.0;  // seconds; a shorter run's speed means nothing

// Far-end-only blocks (see echo_reduction_db): levels over 9 blocks (72 ms), far end active above
// -50 dBFS and 12 dB above the quietest tenth; the microphone at most 6 dB above the echo-only
// ratio (the lowest fifth of the ratios); the canceller's incoherence over 63 blocks (0.5 s) at
// most 0.05 above its lowest quarter.
constexpr std::size_t kLevelWindow = 9;
constexpr double kActiveDbfs = -50.0;
constexpr double kActiveAboveFloor = 12.0;
constexpr double kEchoQuantile = 20.0;
constexpr double kNearMarginDb = 6.0;
constexpr std::size_t kIncoherenceWindow = 63;
constexpr double kIncoherenceQuantile = 25.0;
constexpr double kIncoherenceMargin = 0.05;
constexpr std::size_t kReconvergeBlocks = 250;  // 2 s for the filter after a delay-line move
constexpr double kDelayJumpMs = 1.0;  // smaller steps (following a drift) leave the filter as it is

// Centred moving mean over `w` (odd) values, the missing ones at the edges counted as zero.
std::vector<double> moving_mean(const std::vector<double> &x, std::size_t w) {
    std::vector<double> y(x.size(), 0.0);
    const std::size_t half = w / 2;
    double sum = 0;
    for (std::size_t i = 0; i < x.size() + half; ++i) {
        if (i < x.size()) sum += x[i];
        if (i >= w) sum -= x[i - w];
        if (i >= half) y[i - half] = sum / static_cast<double>(w);
    }
    return y;
}

// The q-th percentile (0..100), interpolated linearly between the sorted values.
double percentile(std::vector<double> v, double q) {
    std::sort(v.begin(), v.end());
    const double pos = q / 100.0 * static_cast<double>(v.size() - 1);
    const auto lo = static_cast<std::size_t>(pos);
    const std::size_t hi = std::min(lo + 1, v.size() - 1);
    return v[lo] + (v[hi] - v[lo]) * (pos - static_cast<double>(lo));
}

}  // namespace

double rms_dbfs(std::span<const int16_t> x) {
    double e = 0;
    for (int16_t v : x) e += static_cast<double>(v) * v;
    if (x.empty() || e <= 0) return -120.0;
    return 10.0 * std::log10(e / x.size() / (32768.0 * 32768.0));
}

EchoReduction echo_reduction(const std::vector<TraceRow> &rows, std::span<const int16_t> near,
                             std::span<const int16_t> far, int rate, double delay_ms) {
    EchoReduction result;
    const std::size_t n = rows.size();
    if (n < 2) return result;
    const std::size_t l = rate == 8000 ? 64 : 128;
    const auto lag =
        static_cast<std::ptrdiff_t>(std::lround(std::max(0.0, delay_ms) * rate / 1000));
    // Block powers of the raw microphone and of the reference where its echo arrives.
    std::vector<double> mp(n, 0.0), rp(n, 0.0);
    for (std::size_t k = 0; k < n; ++k) {
        for (std::size_t i = k * l; i < (k + 1) * l; ++i) {
            const double m = i < near.size() ? near[i] : 0;
            const auto j = static_cast<std::ptrdiff_t>(i) - lag;
            const double r = j >= 0 && static_cast<std::size_t>(j) < far.size() ? far[j] : 0;
            mp[k] += m * m / l;
            rp[k] += r * r / l;
        }
    }
    mp = moving_mean(mp, kLevelWindow);
    rp = moving_mean(rp, kLevelWindow);
    std::vector<double> ref_db(n), ratio(n);
    for (std::size_t k = 0; k < n; ++k) {
        ref_db[k] = 10.0 * std::log10((rp[k] + 1e-3) / (32768.0 * 32768.0));
        ratio[k] = 10.0 * std::log10((mp[k] + 1e-3) / (rp[k] + 1e-3));
    }
    const double floor_db = percentile(ref_db, 10);
    // Row k's microphone energy is that of block k - 1 (one block of synthesis delay).
    std::vector<bool> far_on(n, false);
    std::vector<double> excess(n, 0.0), far_ratios;
    for (std::size_t k = 1; k < n; ++k) {
        far_on[k] = ref_db[k - 1] > kActiveDbfs && ref_db[k - 1] > floor_db + kActiveAboveFloor;
        excess[k] = ratio[k - 1];
        if (far_on[k]) far_ratios.push_back(ratio[k - 1]);
    }
    if (far_ratios.empty()) return result;
    const double echo_only = percentile(far_ratios, kEchoQuantile) + kNearMarginDb;

    // Until the filter has re-converged after the front end's last move of the delay line, the
    // canceller's coherence is no guide.
    std::size_t settled = 0;
    for (std::size_t k = 1; k < n; ++k) {
        if (std::fabs(rows[k].applied_delay_ms - rows[k - 1].applied_delay_ms) >= kDelayJumpMs)
            settled = std::min(n, k + kReconvergeBlocks);
    }
    std::vector<double> inc(n), settled_inc;
    for (std::size_t k = 0; k < n; ++k) inc[k] = rows[k].incoherence;
    inc = moving_mean(inc, kIncoherenceWindow);
    for (std::size_t k = settled; k < n; ++k) {
        if (rows[k].far_active) settled_inc.push_back(inc[k]);
    }
    const double coherent =
        settled_inc.empty() ? 2.0
                            : percentile(settled_inc, kIncoherenceQuantile) + kIncoherenceMargin;

    // Microphone over output power of the blocks that count, from block `from` on.
    const auto reduction = [&](std::size_t from, double &db, int &blocks) {
        double mic = 0, out = 0;
        blocks = 0;
        for (std::size_t k = from; k < n; ++k) {
            if (far_on[k] && excess[k] < echo_only && (k < settled || inc[k] < coherent)) {
                mic += rows[k].mic_energy;
                out += rows[k].out_energy;
                ++blocks;
            }
        }
        if (blocks < kMinBlocks || mic <= 0) {
            blocks = 0;
            return;
        }
        db = 10.0 * std::log10(mic / std::max(out, 1.0));
    };
    reduction(0, result.db, result.blocks);
    if (settled > 0 && settled < n) {
        reduction(settled, result.settled_db, result.settled_blocks);
        result.settled_from_s = rows[settled].time;
    }
    return result;
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
    std::snprintf(line, sizeof line,
                  "levels           mic %.1f dBFS, reference %.1f dBFS, output %.1f dBFS\n",
                  f.mic_db, f.ref_db, f.out_db);
    s += line;
    if (f.erle.blocks > 0) {
        std::snprintf(line, sizeof line,
                      "echo reduction   %.1f dB over %.1f s where only the far end talks\n",
                      f.erle.db, f.erle.blocks * f.block_seconds);
        s += line;
        if (f.erle.settled_blocks == 0) {
            line[0] = '\0';
        } else {
            std::snprintf(
                line, sizeof line,
                "                 %.1f dB from %.1f s on, once the delay line had settled\n",
                f.erle.settled_db, f.erle.settled_from_s);
        }
    } else {
        std::snprintf(line, sizeof line,
                      "echo reduction   n/a (less than 0.2 s where only the far end talks)\n");
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
    j.num("duration_s", f.duration, 3)
        .integer("frames", f.frames)
        .num("processing_s", f.seconds, 3);
    if (f.duration >= kMinAudioForSpeed && f.seconds > 0) {
        j.num("real_time_factor", f.seconds / f.duration, 5);
    } else {
        j.null("real_time_factor");
    }
    j.num("mic_dbfs", f.mic_db, 1).num("ref_dbfs", f.ref_db, 1).num("out_dbfs", f.out_db, 1);
    if (f.erle.blocks > 0) {
        j.num("echo_reduction_db", f.erle.db, 1);
    } else {
        j.null("echo_reduction_db");
    }
    j.num("far_end_only_s", f.erle.blocks * f.block_seconds, 2);
    if (f.erle.settled_blocks > 0) {
        j.num("settled_echo_reduction_db", f.erle.settled_db, 1)
            .num("settled_from_s", f.erle.settled_from_s, 2);
    }
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
