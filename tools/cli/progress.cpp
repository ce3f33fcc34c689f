// Progress bar drawing.
#include "cli/progress.h"

#include <unistd.h>
#include <cstdio>

namespace cli {

namespace {
constexpr double kMinSeconds = 5.0;
constexpr int kWidth = 40;
}  // namespace

ProgressBar::ProgressBar(std::string label, double seconds)
    : label_(std::move(label)), enabled_(isatty(STDERR_FILENO) == 1 && seconds > kMinSeconds) {}

ProgressBar::~ProgressBar() { finish(); }

void ProgressBar::finish() {
    if (enabled_ && shown_ >= 0)
        std::fprintf(stderr, "\r%*s\r", kWidth + 20 + static_cast<int>(label_.size()), "");
    std::fflush(stderr);
    enabled_ = false;
}

void ProgressBar::update(double fraction) {
    if (!enabled_) return;
    const int percent = static_cast<int>(fraction * 100.0 + 0.5);
    if (percent == shown_) return;
    shown_ = percent;
    const int filled = percent * kWidth / 100;
    std::string bar(static_cast<std::size_t>(filled), '#');
    bar.resize(kWidth, '.');
    std::fprintf(stderr, "\r%s [%s] %3d%%", label_.c_str(), bar.c_str(), percent);
    std::fflush(stderr);
}

}  // namespace cli
