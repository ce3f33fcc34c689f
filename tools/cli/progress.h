// Progress bar on standard error, shown only when it is a terminal and the input is long.
#pragma once

#include <string>

namespace cli {

class ProgressBar {
  public:
    // Enabled when standard error is a terminal and `seconds` of audio exceed a few seconds.
    ProgressBar(std::string label, double seconds);
    ~ProgressBar();
    void update(double fraction);
    // Clears the bar's line, so that what follows starts on a clean line.
    void finish();

  private:
    std::string label_;
    bool enabled_;
    int shown_ = -1;
};

}  // namespace cli
