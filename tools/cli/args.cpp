// Option parsing: "--name value" or "--name=value", "--" to end the options, positional file
// names, parameter and front-end options handed on as settings.
#include "cli/args.h"

#include <cstddef>
#include <cstdlib>
#include <optional>

#include "cli/audio_file.h"
#include "cli/error.h"

namespace cli {
namespace {

Api parse_api(const std::string &v) {
    if (v == "core") return Api::Core;
    if (v == "host") return Api::Host;
    throw UsageError("--api: expected core or host, got '" + v + "'");
}

int parse_channel(const std::string &option, const std::string &v) {
    char *end = nullptr;
    const long n = std::strtol(v.c_str(), &end, 10);
    if (v.empty() || *end != '\0' || n < 1 || n > 64)
        throw UsageError(option + ": expected a channel number 1..64, got '" + v + "'");
    return static_cast<int>(n);
}

// Walks the arguments; `value` fetches an option's value from "--x=v" or the next argument.
class Walker {
  public:
    explicit Walker(const std::vector<std::string> &args) : args_(args) {}
    bool next() {
        if (i_ >= args_.size()) return false;
        const std::string &a = args_[i_++];
        inline_value_.reset();
        if (!options_ended_ && a == "--") {
            options_ended_ = true;
            return next();
        }
        is_option_ = !options_ended_ && a.size() > 1 && a[0] == '-';
        const auto eq = a.find('=');
        if (is_option_ && a.rfind("--", 0) == 0 && eq != std::string::npos) {
            name_ = a.substr(0, eq);
            inline_value_ = a.substr(eq + 1);
        } else {
            name_ = a;
        }
        return true;
    }
    const std::string &name() const { return name_; }
    bool is_option() const { return is_option_; }
    bool has_inline_value() const { return inline_value_.has_value(); }
    std::string value() {
        if (inline_value_) return *inline_value_;
        if (i_ >= args_.size()) throw UsageError(name_ + " needs a value");
        return args_[i_++];
    }
    // A flag takes no value; "--flag=..." is a mistake.
    void flag() const {
        if (inline_value_) throw UsageError(name_ + " takes no value");
    }

  private:
    const std::vector<std::string> &args_;
    std::size_t i_ = 0;
    bool options_ended_ = false;
    bool is_option_ = false;
    std::string name_;
    std::optional<std::string> inline_value_;
};

// A command's own long options (without dashes), for suggestions.
const std::vector<std::string> kProcessOptions = {
    "help",        "output",   "trace", "config", "format", "api",        "channel",
    "ref-channel", "resample", "align", "quiet",  "json",   "show-config"};
const std::vector<std::string> kDemoOptions = {"help", "rate", "out", "api", "quiet"};
const std::vector<std::string> kAnalyzeOptions = {"help", "json", "resample", "channel",
                                                  "ref-channel"};

[[noreturn]] void unknown_option(const std::string &command, const std::string &name,
                                 const std::vector<std::string> &own) {
    std::string m = "unknown " + command + " option '" + name + "'";
    const auto first = name.find_first_not_of('-');
    const std::string key = first == std::string::npos ? name : name.substr(first);
    // Only process takes the settings' options.
    const std::string best = suggest_option(key, own, command == "process");
    if (!best.empty()) m += " (did you mean '--" + best + "'?)";
    throw UsageError(m);
}

// Front-end and parameter options: "--dc-block" alone means on.
bool take_setting(Walker &w, std::vector<SettingText> &out) {
    const std::string &n = w.name();
    if (n.rfind("--", 0) != 0) return false;
    const std::string key = n.substr(2);
    if (!is_option_key(key)) return false;
    const std::string value = key == "dc-block" && !w.has_inline_value() ? "on" : w.value();
    out.push_back({key, value, n, Source::CommandLine});
    return true;
}

std::vector<std::string> two_files(const std::vector<std::string> &files,
                                   const std::string &command) {
    if (files.size() != 2) {
        throw UsageError(command + " needs two input files, MIC and REF (got " +
                         std::to_string(files.size()) + ")");
    }
    return files;
}

}  // namespace

ProcessOptions parse_process_args(const std::vector<std::string> &args) {
    ProcessOptions o;
    std::vector<std::string> files;
    Walker w(args);
    while (w.next()) {
        const std::string &n = w.name();
        if (!w.is_option()) {
            files.push_back(n);
        } else if (n == "-h" || n == "--help") {
            o.help = true;
        } else if (n == "-o" || n == "--output") {
            o.out = w.value();
        } else if (n == "--trace") {
            o.trace = w.value();
        } else if (n == "--config") {
            o.config = w.value();
        } else if (n == "--format") {
            o.format = w.value();
        } else if (n == "--api") {
            o.api = parse_api(w.value());
        } else if (n == "--channel") {
            o.channel = parse_channel(n, w.value());
        } else if (n == "--ref-channel") {
            o.ref_channel = parse_channel(n, w.value());
        } else if (n == "--resample") {
            w.flag();
            o.resample = true;
        } else if (n == "--align") {
            w.flag();
            o.align = true;
        } else if (n == "-q" || n == "--quiet") {
            w.flag();
            o.quiet = true;
        } else if (n == "--json") {
            w.flag();
            o.json = true;
        } else if (n == "--show-config") {
            w.flag();
            o.show_config = true;
        } else if (!take_setting(w, o.settings)) {
            unknown_option("process", n, kProcessOptions);
        }
    }
    if (o.help) return o;
    if (o.show_config && files.empty() && o.out.empty()) return o;  // the defaults
    const std::vector<std::string> mr = two_files(files, "process");
    o.mic = mr[0];
    o.ref = mr[1];
    if (o.out.empty() && !o.show_config)
        throw UsageError("process needs an output file: -o OUT.wav (or -o - for standard output)");
    if (o.mic == "-" && o.ref == "-")
        throw UsageError("only one input can come from standard input");
    if (!o.out.empty() && o.out == o.trace)
        throw UsageError("the output and the trace cannot be the same file '" + o.out + "'");
    if (!o.out.empty()) choose_format(o.out, o.format);  // refuses an unknown format early
    if (o.ref_channel == 0) o.ref_channel = o.channel;
    return o;
}

DemoOptions parse_demo_args(const std::vector<std::string> &args) {
    DemoOptions o;
    Walker w(args);
    while (w.next()) {
        const std::string &n = w.name();
        if (!w.is_option()) {
            throw UsageError("demo takes no file names (got '" + n + "'); use --out DIR");
        } else if (n == "-h" || n == "--help") {
            o.help = true;
        } else if (n == "--rate") {
            const std::string v = w.value();
            if (v != "8000" && v != "16000")
                throw UsageError("--rate: expected 8000 or 16000, got '" + v + "'");
            o.rate = std::atoi(v.c_str());
        } else if (n == "--out") {
            o.dir = w.value();
        } else if (n == "--api") {
            o.api = parse_api(w.value());
        } else if (n == "-q" || n == "--quiet") {
            w.flag();
            o.quiet = true;
        } else {
            unknown_option("demo", n, kDemoOptions);
        }
    }
    return o;
}

AnalyzeOptions parse_analyze_args(const std::vector<std::string> &args) {
    AnalyzeOptions o;
    std::vector<std::string> files;
    Walker w(args);
    while (w.next()) {
        const std::string &n = w.name();
        if (!w.is_option()) {
            files.push_back(n);
        } else if (n == "-h" || n == "--help") {
            o.help = true;
        } else if (n == "--json") {
            w.flag();
            o.json = true;
        } else if (n == "--resample") {
            w.flag();
            o.resample = true;
        } else if (n == "--channel") {
            o.channel = parse_channel(n, w.value());
        } else if (n == "--ref-channel") {
            o.ref_channel = parse_channel(n, w.value());
        } else {
            unknown_option("analyze", n, kAnalyzeOptions);
        }
    }
    if (o.help) return o;
    const std::vector<std::string> mr = two_files(files, "analyze");
    o.mic = mr[0];
    o.ref = mr[1];
    if (o.mic == "-" && o.ref == "-")
        throw UsageError("only one input can come from standard input");
    if (o.ref_channel == 0) o.ref_channel = o.channel;
    return o;
}

std::string process_help() {
    return "usage: sonvel-aec process MIC REF -o OUT [options]\n"
           "       sonvel-aec process --show-config [options]\n"
           "\n"
           "Removes the echo of REF (what the loudspeaker played) from MIC (the microphone\n"
           "recording), 10 ms frame by frame. '-' as MIC or REF reads standard input.\n"
           "  -o, --output FILE        output file; '-' is standard output. A regular file is\n"
           "                           written only when complete; a device or FIFO directly\n"
           "  --format NAME            output format (" +
           output_format_list() +
           "); default: from\n"
           "                           the extension, WAV without one\n"
           "  --trace FILE.csv         one row of internal state per 8 ms block\n"
           "  --json                   the summary as one JSON object\n"
           "  --resample               accept other rates: convert each input to the working\n"
           "                           rate and the output back to the microphone's rate\n"
           "  --channel N              channel N (from 1) of a multichannel input\n"
           "  --ref-channel N          channel N of a multichannel reference (default: --channel)\n"
           "  --align                  remove the canceller's latency (18 ms) from the output\n"
           "  --api core|host          core interface (default) or the host plug-in descriptor\n"
           "  --config FILE            settings as 'key = value' lines (option names without\n"
           "                           dashes, or field names); options override it\n"
           "  --show-config            print the settings in effect (without files: defaults)\n"
           "  -q, --quiet              no summary\n"
           "front end (off unless asked for; off is the pure core):\n"
           "  --ref-delay MS|auto|off  delay the reference by MS (0..500) ms, or follow the\n"
           "                           estimated echo delay\n"
           "  --dc-block[=on|off]      high-pass (about 40 Hz) the microphone and the reference\n"
           "  --drift auto|off         follow the clock drift between the two (with auto delay)\n"
           "parameters:\n" +
           setting_option_help() +
           "\nExit status: 0 done, 1 input or processing failure, 2 command-line mistake.\n";
}

std::string demo_help() {
    return "usage: sonvel-aec demo [--rate 8000|16000] [--out DIR] [--api core|host] [-q]\n"
           "\n"
           "Synthesises a 22 s conversation with echo (far end alone, near end alone, double\n"
           "talk, far end alone), runs the canceller and writes mic.wav, ref.wav, near.wav,\n"
           "out.wav and trace.csv into DIR (default sonvel-demo), then prints a table per\n"
           "segment and the summary 'process' would print. -q prints nothing.\n";
}

std::string analyze_help() {
    return "usage: sonvel-aec analyze MIC REF [--json] [--resample] [--channel N] "
           "[--ref-channel N]\n"
           "\n"
           "Measures a recording pair before processing: duration, levels, DC offsets, clipping,\n"
           "far-end activity, the echo's bulk delay behind the reference with its confidence,\n"
           "the clock drift and a rough echo return loss; then recommends the options for\n"
           "'process' as a command line. When it cannot conclude it says why.\n"
           "\n"
           "Exit status: 0 analysed, 3 analysed but no conclusion (see the reason), 1 input\n"
           "failure, 2 command-line mistake.\n";
}

}  // namespace cli
