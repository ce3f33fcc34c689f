// Option parsing: "--name value" or "--name=value", positional file names, parameter options.
#include "cli/args.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <optional>

#include "cli/error.h"
#include "cli/params.h"

namespace cli {
namespace {

// Parameter options: each writes `count` consecutive record fields starting at `field`.
struct ParamSpec {
    const char *option;
    const char *field;
    int count;
    const char *metavar;
    const char *help;
};

constexpr ParamSpec kParams[] = {
    {"--comfort-noise", "u8CnEnable", 1, "on|off", "comfort noise in suppressed parts"},
    {"--suppression-level", "u8NlpLevel", 1, "0..2",
     "far-end level below which the near end passes"},
    {"--high-freq-mode", "u8HighFreqMode", 1, "0|1", "high-frequency gain shaping mode"},
    {"--start-part", "u8StartPart", 1, "0..6", "bulk delay of the echo filter, in 8 ms blocks"},
    {"--coh-threshold", "s16CohThr", 1, "Q15|0.x", "incoherence threshold of raised suppression"},
    {"--coh-band", "s16CohBinLo", 2, "LO,HI", "bins LO..HI-1 of the mean incoherence"},
    {"--hf-band", "s16HfBinLo", 2, "LO,HI", "bins examined by the upper-band cut-off"},
    {"--band-edges", "as16BandEdge", 6, "E0,..,E5", "edges of the seven coupling bands (bins)"},
    {"--band-shifts", "as16BandShift", 7, "H0,..,H6", "coupling gain 4*2^H (Q15) of each band"},
    {"--clamp-bins", "s16ClampBinLo", 2, "LO,HI", "overdrive caps: 2.0 up to LO, 3.0 up to HI"},
};

const ParamSpec *find_param(const std::string &option) {
    for (const ParamSpec &p : kParams) {
        if (option == p.option) return &p;
    }
    return nullptr;
}

// "on"/"off" for the comfort noise, a fraction for the threshold; everything else as given.
std::string normalise(const ParamSpec &p, const std::string &text) {
    const std::string field = p.field;
    if (field == "u8CnEnable") {
        if (text == "on" || text == "yes") return "1";
        if (text == "off" || text == "no") return "0";
    }
    if (field == "s16CohThr" && text.find('.') != std::string::npos) {
        char *end = nullptr;
        const double v = std::strtod(text.c_str(), &end);
        if (*end != '\0' || !(v >= 0.0 && v <= 1.0)) {
            throw UsageError(std::string(p.option) + ": '" + text + "' is not a fraction 0..1");
        }
        return std::to_string(std::lround(std::min(v * 32768.0, 32767.0)));
    }
    return text;
}

Api parse_api(const std::string &v) {
    if (v == "core") return Api::Core;
    if (v == "host") return Api::Host;
    throw UsageError("--api: expected 'core' or 'host', got '" + v + "'");
}

// Walks the arguments; `value` fetches an option's value from "--x=v" or the next argument.
class Walker {
public:
    explicit Walker(const std::vector<std::string> &args) : args_(args) {}
    bool next() {
        if (i_ >= args_.size()) return false;
        const std::string &a = args_[i_++];
        inline_value_.reset();
        const auto eq = a.find('=');
        if (a.rfind("--", 0) == 0 && eq != std::string::npos) {
            name_ = a.substr(0, eq);
            inline_value_ = a.substr(eq + 1);
        } else {
            name_ = a;
        }
        return true;
    }
    const std::string &name() const { return name_; }
    bool is_option() const { return name_.size() > 1 && name_[0] == '-'; }
    std::string value() {
        if (inline_value_) return *inline_value_;
        if (i_ >= args_.size()) throw UsageError(name_ + " needs a value");
        return args_[i_++];
    }

private:
    const std::vector<std::string> &args_;
    std::size_t i_ = 0;
    std::string name_;
    std::optional<std::string> inline_value_;
};

}  // namespace

ProcessOptions parse_process_args(const std::vector<std::string> &args) {
    ProcessOptions o;
    std::vector<std::string> files;
    Walker w(args);
    while (w.next()) {
        const std::string &n = w.name();
        if (!w.is_option()) {
            files.push_back(n);
        } else if (n == "-o" || n == "--output") {
            o.out = w.value();
        } else if (n == "--trace") {
            o.trace = w.value();
        } else if (n == "--config") {
            o.config = w.value();
        } else if (n == "--api") {
            o.api = parse_api(w.value());
        } else if (n == "--resample") {
            o.resample = true;
        } else if (n == "--align") {
            o.align = true;
        } else if (n == "-q" || n == "--quiet") {
            o.quiet = true;
        } else if (n == "--show-config") {
            o.show_config = true;
        } else if (find_param(n) != nullptr) {
            o.params.push_back({n, w.value()});
        } else {
            throw UsageError("unknown option '" + n + "'");
        }
    }
    if (files.size() != 2) throw UsageError("process needs two input files: MIC.wav REF.wav");
    o.mic = files[0];
    o.ref = files[1];
    if (o.out.empty() && !o.show_config)
        throw UsageError("process needs an output file: -o OUT.wav");
    return o;
}

DemoOptions parse_demo_args(const std::vector<std::string> &args) {
    DemoOptions o;
    Walker w(args);
    while (w.next()) {
        const std::string &n = w.name();
        if (n == "--rate") {
            const std::string v = w.value();
            if (v != "8000" && v != "16000")
                throw UsageError("--rate: expected 8000 or 16000, got '" + v + "'");
            o.rate = std::atoi(v.c_str());
        } else if (n == "--out") {
            o.dir = w.value();
        } else if (n == "--api") {
            o.api = parse_api(w.value());
        } else {
            throw UsageError("unknown demo argument '" + n + "'");
        }
    }
    return o;
}

void apply_param_options(AecCfg &cfg, const std::vector<ParamOption> &params) {
    for (const ParamOption &p : params) {
        const ParamSpec &param = *find_param(p.option);
        const Field &first = *find_field(param.field);
        if (param.count == 2 && first.count == 1) {
            // A LO,HI pair: two adjacent 16-bit fields.
            const Field pair{param.field, 2, false, first.offset};
            assign_field(cfg, pair, 0, 2, normalise(param, p.text), p.option);
        } else {
            assign_field(cfg, first, 0, first.count, normalise(param, p.text), p.option);
        }
    }
}

std::string param_option_help() {
    std::string s;
    for (const ParamSpec &p : kParams) {
        std::string head = "  " + std::string(p.option) + " " + p.metavar;
        head.resize(std::max<std::size_t>(head.size() + 1, 34), ' ');
        s += head + p.help + "\n";
    }
    return s;
}

}  // namespace cli
