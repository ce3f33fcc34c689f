// "process": cancel the echo in a microphone recording, given the loudspeaker reference.
#include <cstdio>
#include <iostream>
#include <optional>

#include "cli/args.h"
#include "cli/canceller.h"
#include "cli/commands.h"
#include "cli/error.h"
#include "cli/params.h"
#include "cli/pending_file.h"
#include "cli/progress.h"
#include "cli/resample.h"
#include "cli/summary.h"
#include "cli/trace.h"
#include "cli/wav_io.h"

namespace cli {
namespace {

constexpr int kResampleRate = 16000;

bool supported_rate(int rate) {
    return rate == 8000 || rate == 16000;
}

// The rate the canceller runs at; refuses mismatched or unsupported rates.
int working_rate(const ProcessOptions &o, const Audio &mic, const Audio &ref) {
    if (mic.rate != ref.rate) {
        throw Error("microphone file '" + o.mic + "' is at " + std::to_string(mic.rate) +
                    " Hz but reference file '" + o.ref + "' is at " + std::to_string(ref.rate) +
                    " Hz; both must have the same sample rate");
    }
    if (supported_rate(mic.rate)) return mic.rate;
    if (!o.resample) {
        throw Error("microphone file '" + o.mic + "' is at " + std::to_string(mic.rate) +
                    " Hz; the canceller runs at 8000 or 16000 Hz: add --resample to convert to " +
                    std::to_string(kResampleRate) + " Hz and back");
    }
    return kResampleRate;
}

// The record the canceller will run with, and whether the plug-in gets it (or its own values).
struct Record {
    AecCfg cfg;
    bool host_values;
};

Record build_record(const ProcessOptions &o, int rate) {
    const bool host = o.api == Api::Host;
    Record r{host ? host_builtin_record(rate) : library_defaults(rate),
             host && o.config.empty() && o.params.empty()};
    if (!o.config.empty()) load_config_file(r.cfg, o.config);
    apply_param_options(r.cfg, o.params);
    r.cfg.u8SampleRate = rate == 8000 ? 0 : 1;
    check_record(r.cfg);
    if (host && (r.cfg.u8StartPart != 0 || r.cfg.u8HighFreqMode != 0)) {
        std::cerr << "sonvel-aec: warning: the host plug-in always uses u8StartPart 0 and "
                     "u8HighFreqMode 0; the values given are ignored\n";
        r.cfg.u8StartPart = 0;
        r.cfg.u8HighFreqMode = 0;
    }
    return r;
}

std::vector<int16_t> fit_reference(const ProcessOptions &o, const Audio &mic, Audio &ref) {
    std::vector<int16_t> far = std::move(ref.samples);
    if (far.size() < mic.samples.size()) {
        std::fprintf(stderr,
                     "sonvel-aec: warning: reference file '%s' (%.2f s) is shorter than microphone "
                     "file '%s' (%.2f s); padding it with silence\n",
                     o.ref.c_str(), static_cast<double>(far.size()) / ref.rate, o.mic.c_str(),
                     static_cast<double>(mic.samples.size()) / mic.rate);
    }
    far.resize(mic.samples.size(), 0);
    return far;
}

void write_text(PendingFile &file, const std::string &text) {
    FILE *f = fdopen(file.release_fd(), "w");
    const bool ok = f != nullptr && std::fwrite(text.data(), 1, text.size(), f) == text.size();
    if (f == nullptr || std::fclose(f) != 0 || !ok) {
        throw Error("cannot write " + file.role() + " '" + file.path() + "'");
    }
    file.commit();
}

}  // namespace

int process_command(const std::vector<std::string> &args) {
    const ProcessOptions o = parse_process_args(args);
    const Audio mic = read_mono(o.mic, "microphone file");
    Audio ref = read_mono(o.ref, "reference file");
    const int rate = working_rate(o, mic, ref);
    const Record rec = build_record(o, rate);
    if (o.show_config) {
        std::cout << format_record(rec.cfg);
        if (o.out.empty()) return 0;
    }
    std::vector<int16_t> far = fit_reference(o, mic, ref);
    const double ref_db = rms_dbfs(far);

    // Claim the outputs before the work, so that an unwritable path fails fast.
    PendingFile out_file(o.out, "output file");
    std::optional<PendingFile> trace_file;
    if (!o.trace.empty()) trace_file.emplace(o.trace, "trace file");

    std::vector<int16_t> near = resample(mic.samples, mic.rate, rate);
    far = resample(far, mic.rate, rate);
    const std::size_t n = near.size();
    const int delay = o.align ? latency_samples(rate) : 0;
    near.resize(n + delay, 0);
    far.resize(n + delay, 0);

    ProgressBar bar("processing", static_cast<double>(n) / rate);
    const RunResult run = run_canceller(o.api, rec.cfg, !rec.host_values, rate, near, far,
                                        [&](double f) { bar.update(f * 0.5); });
    const std::vector<TraceRow> rows =
        trace_signal(rec.cfg, rate, near, far, [&](double f) { bar.update(0.5 + f * 0.5); });
    bar.update(1.0);
    std::vector<int16_t> out(run.out.begin() + delay, run.out.end());
    out = resample(out, rate, mic.rate);
    out.resize(mic.samples.size(), 0);

    write_wav(out_file, mic.rate, out);
    if (trace_file) write_text(*trace_file, trace_csv(rows));

    if (!o.quiet) {
        RunFigures f;
        f.duration = static_cast<double>(mic.samples.size()) / mic.rate;
        f.frames = static_cast<long>((n + frame_length(rate) - 1) / frame_length(rate));
        f.seconds = run.seconds;
        f.mic_db = rms_dbfs(mic.samples);
        f.ref_db = ref_db;
        f.out_db = rms_dbfs(out);
        f.erle_db = echo_reduction_db(rows, f.erle_blocks);
        f.block_seconds = static_cast<double>(block_length(rate)) / rate;
        std::cout << format_summary(f);
    }
    return 0;
}

}  // namespace cli
