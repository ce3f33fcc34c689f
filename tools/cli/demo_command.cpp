// "demo": synthesise a conversation, cancel its echo, write the signals and the trace, and show
// what happened in each segment.
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <span>
#include <system_error>

#include "cli/args.h"
#include "cli/canceller.h"
#include "cli/commands.h"
#include "cli/demo_scenario.h"
#include "cli/error.h"
#include "cli/params.h"
#include "cli/pending_file.h"
#include "cli/summary.h"
#include "cli/trace.h"
#include "cli/wav_io.h"

namespace cli {
namespace {

std::span<const int16_t> slice(const std::vector<int16_t> &x, const Segment &s, int rate) {
    const auto a = std::min(x.size(), static_cast<std::size_t>(s.start * rate));
    const auto b = std::min(x.size(), static_cast<std::size_t>(s.end * rate));
    return std::span<const int16_t>(x).subspan(a, b - a);
}

void write_csv(const std::string &path, const std::string &text) {
    PendingFile file(path, "trace file");
    FILE *f = fdopen(file.release_fd(), "w");
    const bool ok = f != nullptr && std::fwrite(text.data(), 1, text.size(), f) == text.size();
    if (f == nullptr || std::fclose(f) != 0 || !ok)
        throw Error("cannot write trace file '" + path + "'");
    file.commit();
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
    const RunResult run = run_canceller(o.api, cfg, false, o.rate, near, far, {});
    std::vector<int16_t> out(run.out.begin() + delay, run.out.end());
    const std::vector<TraceRow> rows = trace_signal(cfg, o.rate, s.mic, s.ref);

    const std::string dir = o.dir + "/";
    write_wav(dir + "mic.wav", "output file", o.rate, s.mic);
    write_wav(dir + "ref.wav", "output file", o.rate, s.ref);
    write_wav(dir + "near.wav", "output file", o.rate, s.near);
    write_wav(dir + "out.wav", "output file", o.rate, out);
    write_csv(dir + "trace.csv", trace_csv(rows));

    const double duration = static_cast<double>(s.mic.size()) / o.rate;
    std::printf("demo: %.0f s at %d Hz, %s interface, echo path with %.1f ms bulk delay\n",
                duration, o.rate, host ? "host plug-in" : "core", 1000.0 * s.bulk_delay / o.rate);
    std::printf(
        "wrote %smic.wav ref.wav near.wav out.wav trace.csv (out.wav is aligned with "
        "mic.wav: the %.0f ms latency is removed)\n",
        dir.c_str(), 1000.0 * delay / o.rate);
    print_table(s, out);
    std::printf("\nprocessing: %.3f s for %.0f s of audio (real-time factor %.4f)\n", run.seconds,
                duration, run.seconds / duration);
    return 0;
}

}  // namespace cli
