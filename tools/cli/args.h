// Command-line options of the commands. Options and file names may come in any order; "--" ends
// the options; "--name=value" and "--name value" are the same. Every mistake is a UsageError.
#pragma once

#include <string>
#include <vector>

#include "cli/canceller.h"
#include "cli/settings.h"

namespace cli {

struct ProcessOptions {
    std::string mic, ref, out, trace, config, format;
    Api api = Api::Core;
    bool resample = false;
    bool align = false;
    bool quiet = false;
    bool json = false;
    bool show_config = false;
    bool help = false;
    int channel = 0;      // of a multichannel microphone (and reference, unless ref_channel)
    int ref_channel = 0;  // of a multichannel reference
    std::vector<SettingText> settings;  // parameter and front-end options, in order
};

struct DemoOptions {
    int rate = 16000;
    std::string dir = "sonvel-demo";
    Api api = Api::Core;
    bool quiet = false;
    bool help = false;
};

struct AnalyzeOptions {
    std::string mic, ref;
    bool json = false;
    bool resample = false;
    bool help = false;
    int channel = 0, ref_channel = 0;
};

ProcessOptions parse_process_args(const std::vector<std::string> &args);
DemoOptions parse_demo_args(const std::vector<std::string> &args);
AnalyzeOptions parse_analyze_args(const std::vector<std::string> &args);

// Help texts of the commands.
std::string process_help();
std::string demo_help();
std::string analyze_help();

}  // namespace cli
