// "process": cancel the echo in a microphone recording, given the loudspeaker reference.
#include <cstdio>
#include <iostream>
#include <optional>

#include "cli/args.h"
#include "cli/audio_file.h"
#include "cli/canceller.h"
#include "cli/commands.h"
#include "cli/config_file.h"
#include "cli/error.h"
#include "cli/frontend_probe.h"
#include "cli/hints.h"
#include "cli/input_pair.h"
#include "cli/output_file.h"
#include "cli/params.h"
#include "cli/progress.h"
#include "cli/resample.h"
#include "cli/summary.h"
#include "cli/trace.h"

namespace cli {
namespace {

// The settings of the run: the interface's starting record, then the configuration file, then
// the options. A record the library refuses is an input error when the file made it so and a
// command-line mistake when an option did.
struct Run {
    Settings settings;
    bool host_values = false;  // the host plug-in runs with its built-in values
};

Run build_settings(const ProcessOptions &o, const std::vector<SettingText> &file, int rate) {
    const bool host = o.api == Api::Host;
    Run r;
    r.settings.cfg = host ? host_builtin_record(rate) : library_defaults(rate);
    r.host_values = host && file.empty() && o.settings.empty();
    for (const SettingText &t : file) apply_setting(r.settings, t);
    if (host && r.settings.fe.active())
        throw Error(o.config +
                    ": the front end (ref-delay, dc-block, drift) runs with --api core only");
    r.settings.cfg.u8SampleRate = rate == 8000 ? 0 : 1;
    check_record(r.settings.cfg);
    for (const SettingText &t : o.settings) apply_setting(r.settings, t);
    try {
        check_record(r.settings.cfg);
    } catch (const UsageError &) {
        throw;
    } catch (const Error &e) {
        throw UsageError(e.what());
    }
    if (host && (r.settings.cfg.u8StartPart != 0 || r.settings.cfg.u8HighFreqMode != 0)) {
        std::cerr << "sonvel-aec: warning: the host plug-in always uses u8StartPart 0 and "
                     "u8HighFreqMode 0; the values given are ignored\n";
        r.settings.cfg.u8StartPart = 0;
        r.settings.cfg.u8HighFreqMode = 0;
    }
    return r;
}

// Checks the command line's settings before anything is read (mistakes there are exit status 2).
void check_option_settings(const ProcessOptions &o) {
    Settings scratch{library_defaults(16000), {}};
    std::vector<std::string> warnings;
    for (const SettingText &t : o.settings) {
        if (const std::string w = apply_setting(scratch, t); !w.empty()) warnings.push_back(w);
    }
    if (o.api == Api::Host && scratch.fe.active())
        throw UsageError(
            "the front end (--ref-delay, --dc-block, --drift) runs with --api core only");
    print_warnings(warnings);
}

std::vector<SettingText> read_config(const ProcessOptions &o) {
    if (o.config.empty()) return {};
    std::vector<std::string> warnings;
    std::vector<SettingText> file =
        read_config_file(o.config, Settings{library_defaults(16000), {}}, warnings);
    print_warnings(warnings);
    return file;
}

void refuse_overwriting_inputs(const ProcessOptions &o) {
    for (const auto &[path, role] : {std::pair{o.out, "output file"}, {o.trace, "trace file"}}) {
        if (path.empty()) continue;
        refuse_same_file(path, role, o.mic, "microphone file");
        refuse_same_file(path, role, o.ref, "reference file");
        if (!o.config.empty()) refuse_same_file(path, role, o.config, "configuration file");
    }
}

}  // namespace

int process_command(const std::vector<std::string> &args) {
    const ProcessOptions o = parse_process_args(args);
    if (o.help) {
        std::cout << process_help();
        return 0;
    }
    check_option_settings(o);
    refuse_overwriting_inputs(o);
    const std::vector<SettingText> file = read_config(o);
    if (o.mic.empty()) {  // --show-config alone: the defaults at 16000 Hz
        const Run run = build_settings(o, file, 16000);
        std::cout << "# at 16000 Hz (the input files' rate decides)\n"
                  << format_settings(run.settings);
        return 0;
    }

    std::vector<std::string> warnings;
    const InputPair in =
        load_input_pair({o.mic, o.ref, o.channel, o.ref_channel, o.resample}, warnings);
    print_warnings(warnings);
    const int rate = in.rate;
    const Run run = build_settings(o, file, rate);
    if (o.show_config) {
        std::cout << format_settings(run.settings);
        if (o.out.empty()) return 0;
    }

    // Claim the outputs before the work, so that an unwritable path fails fast.
    const int format = choose_format(o.out, o.format);
    OutputFile out_file(o.out, "output file");
    std::optional<OutputFile> trace_file;
    if (!o.trace.empty()) trace_file.emplace(o.trace, "trace file");

    const std::size_t n = in.near.size();
    const int delay = o.align ? latency_samples(rate) : 0;
    std::vector<int16_t> near = in.near, far = in.far;
    near.resize(n + delay, 0);
    far.resize(n + delay, 0);

    ProgressBar bar("processing", static_cast<double>(n) / rate);
    const RunResult result = run_canceller(o.api, run.settings, !run.host_values, rate, near, far,
                                           [&](double f) { bar.update(f * 0.5); });
    // The front end alone gives the estimates (it measures in every mode) and, when it is on, the
    // signals the core sees, which the observing instance of the trace is fed.
    const FrontendProbe probe = probe_frontend(run.settings.fe.record(), rate, near, far);
    const bool fe = run.settings.fe.active();
    std::vector<TraceRow> rows =
        trace_signal(run.settings.cfg, rate, fe ? probe.near : near, fe ? probe.far : far,
                     [&](double f) { bar.update(0.5 + f * 0.5); });
    attach_estimates(rows, probe.frames, rate);
    bar.update(1.0);
    bar.finish();
    std::vector<int16_t> out(result.out.begin() + delay, result.out.end());
    out = resample(out, rate, in.mic_rate);
    out.resize(in.mic_samples, 0);

    out_file.write_all(encode_audio(format, in.mic_rate, out));
    if (trace_file) trace_file->write_all(trace_csv(rows));

    RunFigures f;
    f.duration = static_cast<double>(in.mic_samples) / in.mic_rate;
    f.frames = static_cast<long>((n + frame_length(rate) - 1) / frame_length(rate));
    f.seconds = result.seconds;
    f.mic_db = rms_dbfs(in.mic_original);
    f.ref_db = rms_dbfs(in.far);
    f.out_db = rms_dbfs(out);
    f.erle = echo_reduction(rows, near, far, rate, echo_delay_ms(probe));
    f.block_seconds = static_cast<double>(block_length(rate)) / rate;
    f.fe = result.fe;
    f.hints = run_hints(run.settings, in, probe);
    for (const std::string &h : f.hints) std::cerr << "sonvel-aec: hint: " << h << "\n";
    // With the audio or the trace on standard output, the summary goes to standard error.
    std::ostream &report = o.out == "-" || o.trace == "-" ? std::cerr : std::cout;
    if (o.json) {
        report << summary_json(f);
    } else if (!o.quiet) {
        report << format_summary(f);
    }
    return 0;
}

}  // namespace cli
