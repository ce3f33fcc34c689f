// Run summary.
#include "cli/summary.h"

#include <cmath>
#include <cstdio>

namespace cli {

double rms_dbfs(std::span<const int16_t> x) {
    double e = 0;
    for (int16_t v : x) e += static_cast<double>(v) * v;
    if (x.empty() || e <= 0) return -120.0;
    return 10.0 * std::log10(e / x.size() / (32768.0 * 32768.0));
}

double echo_reduction_db(const std::vector<TraceRow> &rows, int &blocks) {
    double mic = 0, out = 0;
    blocks = 0;
    for (const TraceRow &r : rows) {
        // The level detector of the near end also responds to echo; the coherence analysis tells
        // near-end speech from echo, so it decides "near end silent".
        if (r.far_active && !r.near_state) {
            mic += r.mic_energy;
            out += r.out_energy;
            ++blocks;
        }
    }
    constexpr int kMinBlocks = 25;  // 0.2 s: fewer say nothing about the echo path
    if (blocks < kMinBlocks || mic <= 0) {
        blocks = 0;
        return 0;
    }
    return 10.0 * std::log10(mic / std::max(out, 1.0));
}

std::string format_summary(const RunFigures &f) {
    char buf[1024];
    const double rtf = f.duration > 0 ? f.seconds / f.duration : 0;
    std::string erle = "n/a (no block with the far end alone)";
    if (f.erle_blocks > 0) {
        char e[128];
        std::snprintf(e, sizeof e, "%.1f dB over %.1f s of far-end-only blocks", f.erle_db,
                      f.erle_blocks * f.block_seconds);
        erle = e;
    }
    std::snprintf(buf, sizeof buf,
                  "duration         %.2f s (%ld frames of 10 ms)\n"
                  "processing time  %.3f s, real-time factor %.4f (%.0fx faster than real time)\n"
                  "levels           mic %.1f dBFS, reference %.1f dBFS, output %.1f dBFS\n"
                  "echo reduction   %s\n",
                  f.duration, f.frames, f.seconds, rtf, rtf > 0 ? 1.0 / rtf : 0.0, f.mic_db,
                  f.ref_db, f.out_db, erle.c_str());
    return buf;
}

}  // namespace cli
