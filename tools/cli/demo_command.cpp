// "demo": synthesise a conversation, cancel its echo, write the signals and the trace, and show
// what happened in each segment.
#include <sndfile.h>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <span>
#include <system_error>

#include "cli/args.h"
#include "cli/audio_file.h"
#include "cli/canceller.h"
#include "cli/commands.h"
#include "cli/demo_scenario.h"
#include "cli/error.h"
#include "cli/frontend_probe.h"
#include "cli/output_file.h"
#include "cli/params.h"
#include "cli/summary.h"
#include "cli/trace.h"

namespace cli {
namespace {

std::span<const int16_t> slice(const std::vector<int16_t> &x, const Segment &s, int rate) {
    const auto a = std::min(x.size(), static_cast<std::size_t>(s.start * rate));
    const auto b = std::min(x.size(), static_cast<std::size_t>(s.end * rate));
    return std::span<const int16_t>(x).subspan(a, b - a);
}

void write_file(const std::string &path, const std::string &bytes) {
    OutputFile(path, "output file").write_all(bytes);
}

void write_wav(const std::string &path, int rate, std::span<const int16_t> samples) {
    write_file(path, encode_audio(SF_FORMAT_WAV, rate, samples));
}

// Microphone over output power summed over every segment where only the far end talks.
double far_only_reduction_db(const Scenario &s, const std::vector<int16_t> &out) {
    double mic = 0, o = 0;
    for (const Segment &seg : s.segments) {
        if (!seg.far || seg.near) continue;
        for (const int16_t v : slice(s.mic, seg, s.rate)) mic += static_cast<double>(v) * v;
        for (const int16_t v : slice(out, seg, s.rate)) o += static_cast<double>(v) * v;
    }
    return 10.0 * std::log10(mic / std::max(o, 1.0));
}

// Per segment: microphone and output levels, the echo reduction (microphone over output level)
// where the far end talks, and the change of the near end (output over the clean near-end level)
// where the near end talks.
void print_table(const Scenario &s, const std::vector<int16_t> &out) {
    std::printf("\n%-16s %9s %9s %9s %11s %11s\n", "segment", "time", "mic", "output", "echo",
                "near-end");
    std::printf("%-16s %9s %9s %9s %11s %11s\n", "", "s", "dBFS", "dBFS", "reduction", "change");
    for (const Segment &seg : s.segments) {
        const double mic = rms_dbfs(slice(s.mic, seg, s.rate));
        const double o = rms_dbfs(slice(out, seg, s.rate));
        const double clean = rms_dbfs(slice(s.near, seg, s.rate));
        char time[32], erle[32] = "-", change[32] = "-";
        std::snprintf(time, sizeof time, "%g-%g", seg.start, seg.end);
        if (seg.far) std::snprintf(erle, sizeof erle, "%.1f dB", mic - o);
        if (seg.near) std::snprintf(change, sizeof change, "%+.1f dB", o - clean);
        std::printf("%-16s %9s %9.1f %9.1f %11s %11s\n", seg.name.c_str(), time, mic, o, erle,
                    change);
    }
}

}  // namespace

int demo_command(const std::vector<std::string> &args) {
    const DemoOptions o = parse_demo_args(args);
    if (o.help) {
        std::printf("%s", demo_help().c_str());
        return 0;
    }
    std::error_code ec;
    std::filesystem::create_directories(o.dir, ec);
    if (ec) throw Error("cannot create output directory '" + o.dir + "': " + ec.message());

    const Scenario s = make_scenario(o.rate);
    const bool host = o.api == Api::Host;
    const AecCfg cfg = host ? host_builtin_record(o.rate) : library_defaults(o.rate);

    // The output is aligned with the microphone: the canceller's latency is removed.
    const int delay = latency_samples(o.rate);
    std::vector<int16_t> near = s.mic, far = s.ref;
    near.resize(near.size() + delay, 0);
    far.resize(far.size() + delay, 0);
    const RunResult run = run_canceller(o.api, Settings{cfg, {}}, false, o.rate, near, far, {});
    std::vector<int16_t> out(run.out.begin() + delay, run.out.end());
    std::vector<TraceRow> rows = trace_signal(cfg, o.rate, s.mic, s.ref);
    const FrontendProbe probe = probe_frontend(AecFrontendCfg{}, o.rate, s.mic, s.ref);
    attach_estimates(rows, probe.frames, o.rate);

    const std::string dir = o.dir + "/";
    write_wav(dir + "mic.wav", o.rate, s.mic);
    write_wav(dir + "ref.wav", o.rate, s.ref);
    write_wav(dir + "near.wav", o.rate, s.near);
    write_wav(dir + "out.wav", o.rate, out);
    write_file(dir + "trace.csv", trace_csv(rows));
    if (o.quiet) return 0;

    const double duration = static_cast<double>(s.mic.size()) / o.rate;
    std::printf("demo: %.0f s at %d Hz, %s interface, echo path with %.1f ms bulk delay\n",
                duration, o.rate, host ? "host plug-in" : "core", 1000.0 * s.bulk_delay / o.rate);
    std::printf(
        "wrote %smic.wav ref.wav near.wav out.wav trace.csv (out.wav is aligned with "
        "mic.wav: the %.0f ms latency is removed)\n",
        dir.c_str(), 1000.0 * delay / o.rate);
    print_table(s, out);
    const EchoReduction summary = echo_reduction(rows, s.mic, s.ref, o.rate, echo_delay_ms(probe));
    std::printf("\nfar end only, both segments: %.1f dB echo reduction (from the known segments)\n",
                far_only_reduction_db(s, out));
    std::printf(
        "summary of 'process':        %.1f dB over %.1f s where only the far end talks "
        "(blocks judged far-end only from the signals alone)\n",
        summary.db, summary.blocks * static_cast<double>(block_length(o.rate)) / o.rate);
    std::printf("processing: %.3f s for %.0f s of audio (real-time factor %.4f)\n", run.seconds,
                duration, run.seconds / duration);
    return 0;
}

}  // namespace cli
