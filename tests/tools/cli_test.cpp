// The sonvel-aec tool: refusals of bad input (one message naming the file and the reason, a
// non-zero status, no output file left behind), reference padding, resampling, and end-to-end runs
// of process (both interfaces, the trace) and demo on generated audio.
#include "tools/tool_fixture.h"

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "cli/audio_file.h"
#include "cli/canceller.h"
#include "cli/demo_scenario.h"
#include "cli/error.h"
#include "cli/params.h"
#include "cli/resample.h"
#include "cli/trace.h"

namespace {

using namespace tooltest;

double snr_db(const std::vector<int16_t> &ref, const std::vector<int16_t> &x, std::size_t from,
              std::size_t to) {
    double s = 0, n = 0;
    for (std::size_t i = from; i < to; ++i) {
        s += static_cast<double>(ref[i]) * ref[i];
        n += (static_cast<double>(x[i]) - ref[i]) * (static_cast<double>(x[i]) - ref[i]);
    }
    return 10.0 * std::log10(s / std::max(n, 1.0));
}

TEST_F(Tool, BadInputIsRefusedWithOneMessageAndNoOutput) {
    std::ofstream(path("corrupt.wav")) << "RIFF but not really a wave file";
    write_stereo("stereo.wav");
    write_wav(path("mic48.wav"), 48000, mic_);
    write_wav(path("ref48.wav"), 48000, ref_);
    write_wav(path("ref16.wav"), 16000, ref_);
    const std::string out = " -o " + path("out.wav");
    struct Case {
        std::string args, file, reason;
    };
    const Case cases[] = {
        {path("missing.wav") + " " + path("ref.wav") + out, "missing.wav", "No such file"},
        {path("mic.wav") + " " + path("corrupt.wav") + out, "corrupt.wav", "cannot read"},
        {path("stereo.wav") + " " + path("ref.wav") + out, "stereo.wav", "2 channels"},
        {path("mic48.wav") + " " + path("ref48.wav") + out, "mic48.wav", "--resample"},
        {path("mic.wav") + " " + path("ref16.wav") + out, "ref16.wav", "same sample rate"},
        {path("mic.wav") + " " + path("ref.wav") + " -o " + path("no/such/dir/out.wav"), "out.wav",
         "No such file"},
        {path("mic.wav") + " " + path("ref.wav") + " -o " + dir_.string(), dir_.filename().string(),
         "directory"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.args);
        const ToolRun r = tool("process " + c.args + " --trace " + path("trace.csv"));
        EXPECT_EQ(r.status, 1);
        EXPECT_NE(r.err.find(c.file), std::string::npos) << r.err;
        EXPECT_NE(r.err.find(c.reason), std::string::npos) << r.err;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
        const std::vector<std::string> left = leftovers();
        EXPECT_EQ(std::count_if(left.begin(), left.end(),
                                [](const std::string &n) {
                                    return n == "out.wav" || n == "trace.csv" ||
                                           n.find("partial") != std::string::npos;
                                }),
                  0);
    }
    EXPECT_EQ(tool("process " + path("mic.wav")).status, 2);  // usage error
}

TEST_F(Tool, ShortReferenceIsPaddedWithAWarning) {
    write_wav(path("short.wav"), 8000, std::vector<int16_t>(ref_.begin(), ref_.begin() + 4000));
    const ToolRun r =
        tool("process " + path("mic.wav") + " " + path("short.wav") + " -o " + path("out.wav"));
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.err.find("warning"), std::string::npos);
    EXPECT_NE(r.err.find("short.wav"), std::string::npos);
    EXPECT_NE(r.err.find("padding"), std::string::npos);
    EXPECT_EQ(read_wav(path("out.wav")).samples.size(), mic_.size());
}

TEST_F(Tool, ResamplingRoundTripAt48kHz) {
    std::vector<int16_t> tone(48000);
    for (std::size_t i = 0; i < tone.size(); ++i) {
        tone[i] =
            static_cast<int16_t>(std::lround(8000.0 * std::sin(2.0 * M_PI * 1000.0 * i / 48000.0)));
    }
    const std::vector<int16_t> down = cli::resample(tone, 48000, 16000);
    EXPECT_EQ(down.size(), 16000u);
    const std::vector<int16_t> back = cli::resample(down, 16000, 48000);
    ASSERT_EQ(back.size(), tone.size());
    EXPECT_GT(snr_db(tone, back, 2400, 45600), 60.0);

    // A 48 kHz recording goes through the canceller and comes back at 48 kHz, the same length.
    write_wav(path("mic48.wav"), 48000, cli::resample(mic_, 8000, 48000));
    write_wav(path("ref48.wav"), 48000, cli::resample(ref_, 8000, 48000));
    const ToolRun r = tool("process --resample " + path("mic48.wav") + " " + path("ref48.wav") +
                           " -o " + path("out48.wav"));
    ASSERT_EQ(r.status, 0) << r.err;
    const cli::Audio out = read_wav(path("out48.wav"));
    EXPECT_EQ(out.rate, 48000);
    EXPECT_EQ(out.samples.size(), 8u * 48000);
}

TEST_F(Tool, ProcessCancelsEchoAndBothInterfacesAgree) {
    ToolRun r = tool("process " + path("mic.wav") + " " + path("ref.wav") + " -o " +
                     path("core.wav") + " --trace " + path("trace.csv") +
                     " --api core --suppression-level 1 --coh-threshold 20000"
                     " --coh-band 8,17 --band-edges 5,17,28,32,45,56 --clamp-bins 5,10"
                     " --band-shifts 11,12,16,14,15,12,16");
    ASSERT_EQ(r.status, 0) << r.err;
    for (const char *line : {"duration", "real-time factor", "levels", "echo reduction"}) {
        EXPECT_NE(r.out.find(line), std::string::npos) << r.out;
    }
    const cli::Audio core = read_wav(path("core.wav"));
    ASSERT_EQ(core.samples.size(), mic_.size());
    // Far end alone for the first six seconds: the echo is at least 15 dB down by seconds 3..6.
    const std::size_t from = 3 * 8000, to = 6 * 8000;
    double e_mic = 0, e_out = 0;
    for (std::size_t i = from; i < to; ++i) {
        e_mic += static_cast<double>(mic_[i]) * mic_[i];
        e_out += static_cast<double>(core.samples[i]) * core.samples[i];
    }
    EXPECT_GT(10.0 * std::log10(e_mic / e_out), 15.0);
    const std::string trace = slurp(dir_ / "trace.csv");
    EXPECT_EQ(std::count(trace.begin(), trace.end(), '\n'), 1 + 8 * 8000 / 64);
    EXPECT_EQ(trace.rfind("time_s,near_level_dbfs,far_level_dbfs,near_active", 0), 0u);

    // The plug-in's built-in values, given through the core path above, give the same output.
    r = tool("process " + path("mic.wav") + " " + path("ref.wav") + " -o " + path("host.wav") +
             " --api host -q");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(r.out.empty());
    EXPECT_EQ(read_wav(path("host.wav")).samples, core.samples);
}

// The trace instance, fed 8 ms blocks, sees exactly what the frame-by-frame output path
// processes: its output block k is the output path's samples k*L.. delayed by one frame.
TEST_F(Tool, TraceFollowsTheOutputPath) {
    for (const int rate : {8000, 16000}) {
        SCOPED_TRACE(rate);
        const AecCfg cfg = cli::library_defaults(rate);
        const std::span<const int16_t> near(mic_), far(ref_);
        const cli::RunResult run =
            cli::run_canceller(cli::Api::Core, cli::Settings{cfg, {}}, false, rate, near, far, {});
        const std::vector<cli::TraceRow> rows = cli::trace_signal(cfg, rate, near, far);
        const int f = cli::frame_length(rate), l = cli::block_length(rate);
        ASSERT_EQ(rows.size(), (mic_.size() + l - 1) / l);
        for (std::size_t k = 0; (k + 1) * l + f <= run.out.size(); ++k) {
            double e = 0;
            for (int i = 0; i < l; ++i) e += std::pow(run.out[f + k * l + i], 2.0);
            ASSERT_EQ(rows[k].out_energy, e) << "block " << k;
        }
    }
}

TEST_F(Tool, DemoWritesItsFilesAndTable) {
    const ToolRun r = tool("demo --rate 8000 --out " + path("demo"));
    ASSERT_EQ(r.status, 0) << r.err;
    for (const char *name : {"mic.wav", "ref.wav", "near.wav", "out.wav"}) {
        const cli::Audio a = read_wav(path(std::string("demo/") + name));
        EXPECT_EQ(a.rate, 8000);
        EXPECT_EQ(a.samples.size(), 22u * 8000);
    }
    EXPECT_TRUE(fs::exists(path("demo/trace.csv")));
    for (const char *row : {"far end only", "near end only", "double talk"}) {
        EXPECT_NE(r.out.find(row), std::string::npos) << r.out;
    }
    EXPECT_EQ(tool("demo --rate 44100").status, 2);
}

}  // namespace
