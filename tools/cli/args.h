// Command-line options of the two commands.
#pragma once

#include <string>
#include <vector>

#include "cli/canceller.h"

namespace cli {

// A parameter given on the command line: which record field(s) and the text of the value.
struct ParamOption {
    std::string option;  // e.g. "--coh-band"
    std::string text;    // e.g. "8,17"
};

struct ProcessOptions {
    std::string mic, ref, out, trace, config;
    Api api = Api::Core;
    bool resample = false;
    bool align = false;
    bool quiet = false;
    bool show_config = false;
    std::vector<ParamOption> params;
};

struct DemoOptions {
    int rate = 16000;
    std::string dir = "sonvel-demo";
    Api api = Api::Core;
};

ProcessOptions parse_process_args(const std::vector<std::string> &args);
DemoOptions parse_demo_args(const std::vector<std::string> &args);

// Applies the parameter options to the record (after any configuration file).
void apply_param_options(AecCfg &cfg, const std::vector<ParamOption> &params);

// Help text of the parameter options.
std::string param_option_help();

}  // namespace cli
