// Drift tracker. Points (one per 0.5 s of confident estimates) go into a ring of 64, i.e. the last
// 32 s or so; a least-squares line is fitted to them with exact integer sums (times relative to
// the oldest point, so the sums stay within 64 bits). The slope becomes ppm once the points span
// 8 s: ppm = slope[samples/sample] * 1e6. A point more than `jump` away from the line is left
// out; the fourth such point in a row restarts the fit with it: the echo path changed rather than
// drifted. A slope beyond +-1000 ppm is no clock drift (crystals stay within a few hundred ppm)
// but estimates wandering between reflections; such a line is not used or reported.
#include "frontend/drift_tracker.h"

#include <cstring>

namespace sonvel::frontend {

namespace {

constexpr uint32_t kMinSpanFrames = 800;  // 8 s
constexpr int64_t kMaxPpm = 1000;

void fit(DriftTracker &dt, int32_t frameLen) {
    const int n = dt.count;
    const int oldest = (dt.next - n + kDriftPoints) % kDriftPoints;
    const uint32_t t0 = dt.t[oldest];
    int64_t st = 0, sd = 0, stt = 0, std_ = 0;
    uint32_t span = 0;
    for (int k = 0; k < n; ++k) {
        const int i = (oldest + k) % kDriftPoints;
        const int64_t t = dt.t[i] - t0;  // < 2^16 frames in a ring of 64 half-second points
        const int64_t d = dt.d[i];
        st += t;
        sd += d;
        stt += t * t;
        std_ += t * d;
        span = static_cast<uint32_t>(t);
    }
    const int64_t den = n * stt - st * st;
    dt.t0 = t0;
    if (n < 2 || den <= 0) {
        dt.valid = 0;
        dt.ppm = 0;
        dt.slopeNum = 0;
        dt.slopeDen = 1;
        dt.lineQ8At0 = n > 0 ? sd / n : 0;
        return;
    }
    const int64_t num = n * std_ - st * sd;
    dt.slopeNum = num;
    dt.slopeDen = den;
    // Intercept at t0: (sd - slope * st) / n.
    dt.lineQ8At0 = (sd - (num * st) / den) / n;
    dt.valid = span >= kMinSpanFrames;
    // ppm = num / den / 256 / frameLen * 1e6 = num * 15625 / (den * 4 * frameLen).
    const int64_t ppm = (num * 15625) / (den * 4 * frameLen);
    if (ppm > kMaxPpm || ppm < -kMaxPpm) dt.valid = 0;
    dt.ppm = dt.valid ? static_cast<int32_t>(ppm) : 0;
}

}  // namespace

void drift_tracker_reset(DriftTracker &dt) {
    std::memset(&dt, 0, sizeof dt);
    dt.slopeDen = 1;
}

void drift_tracker_add(DriftTracker &dt, uint32_t frame, int32_t delayQ8, int32_t frameLen,
                       int32_t jumpQ8) {
    if (dt.count >= 4) {
        const int32_t off = delayQ8 - drift_tracker_at(dt, frame);
        if (off > jumpQ8 || off < -jumpQ8) {
            // Stray points are dropped; four in a row (2 s) mean the path moved.
            if (++dt.strays < 4) return;
            drift_tracker_reset(dt);
        }
    }
    dt.strays = 0;
    dt.t[dt.next] = frame;
    dt.d[dt.next] = delayQ8;
    dt.next = (dt.next + 1) % kDriftPoints;
    if (dt.count < kDriftPoints) ++dt.count;
    fit(dt, frameLen);
}

int32_t drift_tracker_at(const DriftTracker &dt, uint32_t frame) {
    // Far beyond the points the line means little; the bound keeps the product within 64 bits.
    int64_t t = static_cast<int64_t>(frame - dt.t0);
    if (t > 65535) t = 65535;
    return static_cast<int32_t>(dt.lineQ8At0 + (dt.slopeNum * t) / dt.slopeDen);
}

}  // namespace sonvel::frontend
