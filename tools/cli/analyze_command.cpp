// "analyze": measure a recording pair and recommend the options for "process".
#include <iostream>

#include "cli/analysis.h"
#include "cli/args.h"
#include "cli/commands.h"
#include "cli/error.h"
#include "cli/input_pair.h"

namespace cli {

namespace {
constexpr int kNoConclusion = 3;
}  // namespace

int analyze_command(const std::vector<std::string> &args) {
    const AnalyzeOptions o = parse_analyze_args(args);
    if (o.help) {
        std::cout << analyze_help();
        return 0;
    }
    std::vector<std::string> warnings;
    const InputPair in =
        load_input_pair({o.mic, o.ref, o.channel, o.ref_channel, o.resample}, warnings);
    print_warnings(warnings);
    const Analysis a = analyze_pair(in);
    const std::string command = recommended_command(a, o.mic, o.ref);
    std::cout << (o.json ? analysis_json(a, command) : format_analysis(a, command));
    return a.reason.empty() ? 0 : kNoConclusion;
}

}  // namespace cli
