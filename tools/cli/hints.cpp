// Hints naming the option that fixes what a run found.
#include "cli/hints.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace cli {
namespace {

constexpr double kDcHintLsb = 100.0;  // about -50 dBFS: enough to cost echo reduction
constexpr double kTailRoomMs = 8.0;   // of the span, kept for the room's response

}  // namespace

double dc_offset(std::span<const int16_t> x) {
    // Per 10 ms (at 16000 Hz; 20 ms at 8000 Hz) piece: mean and variance.
    constexpr std::size_t kPiece = 160;
    std::vector<std::pair<double, double>> pieces;  // variance, mean
    for (std::size_t at = 0; at < x.size(); at += kPiece) {
        const std::size_t n = std::min(kPiece, x.size() - at);
        double sum = 0, sq = 0;
        for (std::size_t i = at; i < at + n; ++i) {
            sum += x[i];
            sq += static_cast<double>(x[i]) * x[i];
        }
        const double mean = sum / n;
        pieces.emplace_back(sq / n - mean * mean, mean);
    }
    if (pieces.empty()) return 0;
    // The quietest pieces: an offset persists there, the asymmetry of speech does not.
    std::sort(pieces.begin(), pieces.end());
    pieces.resize(std::max<std::size_t>(1, pieces.size() * 3 / 10));
    std::vector<double> means;
    for (const auto &p : pieces) means.push_back(p.second);
    std::nth_element(means.begin(), means.begin() + means.size() / 2, means.end());
    return means[means.size() / 2];
}

bool echo_out_of_reach(double behind_ms) {
    return behind_ms < 0 || behind_ms > kFilterReachMs - kTailRoomMs;
}

std::vector<std::string> run_hints(const Settings &s, const InputPair &in,
                                   const FrontendProbe &probe) {
    std::vector<std::string> hints;
    if (!s.fe.dc_block) {
        const double near = dc_offset(in.near), far = dc_offset(in.far);
        const double worst = std::fabs(near) >= std::fabs(far) ? near : far;
        if (std::fabs(worst) >= kDcHintLsb) {
            char buf[200];
            std::snprintf(buf, sizeof buf,
                          "the %s carries a DC offset of %+.0f LSB (%.0f dBFS); --dc-block "
                          "removes it",
                          worst == near ? "microphone" : "reference", worst,
                          20.0 * std::log10(std::fabs(worst) / 32768.0));
            hints.emplace_back(buf);
        }
    }
    const FrontendFigures &e =
        probe.last.confidence >= kConfidentEstimate ? probe.last : probe.best;
    if (e.estimate_ms >= 0 && e.confidence >= kConfidentEstimate &&
        s.fe.delay != FrontendSettings::Delay::Auto) {
        const double applied = s.fe.delay == FrontendSettings::Delay::Fixed ? s.fe.delay_ms : 0.0;
        const double behind = e.estimate_ms - applied;
        if (echo_out_of_reach(behind)) {
            char buf[300];
            const long fix = std::lround(std::max(0.0, e.estimate_ms - kLeadMs));
            std::snprintf(buf, sizeof buf,
                          "the echo arrives %.0f ms after the reference%s, outside the filter's "
                          "reach of %.0f ms; --ref-delay auto (or --ref-delay %ld) lines it up",
                          e.estimate_ms,
                          applied > 0 ? (" (the reference is delayed by " +
                                         std::to_string(s.fe.delay_ms) + " ms)")
                                            .c_str()
                                      : "",
                          kFilterReachMs, fix);
            hints.emplace_back(buf);
        }
    }
    return hints;
}

}  // namespace cli
