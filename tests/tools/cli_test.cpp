// The sonvel-aec tool: refusals of bad input (one message naming the file and the reason, a
// non-zero status, no output file left behind), reference padding, parameter files and refusals,
// resampling, and end-to-end runs of process and demo on generated audio.
#include <gtest/gtest.h>

#include <sndfile.h>
#include <sys/wait.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "cli/canceller.h"
#include "cli/demo_scenario.h"
#include "cli/error.h"
#include "cli/params.h"
#include "cli/resample.h"
#include "cli/trace.h"
#include "cli/wav_io.h"

namespace fs = std::filesystem;

namespace {

struct ToolRun {
    int status;
    std::string out, err;
};

std::string slurp(const fs::path &p) {
    std::ifstream in(p);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

class Tool : public testing::Test {
protected:
    void SetUp() override {
        char tmpl[] = "/tmp/sonvel-cli-test-XXXXXX";
        dir_ = mkdtemp(tmpl);
        static const cli::Scenario s = cli::make_scenario(8000);
        mic_ = std::vector<int16_t>(s.mic.begin(),
                                    s.mic.begin() + 8000 * 8);  // far end alone, then near
        ref_ = std::vector<int16_t>(s.ref.begin(), s.ref.begin() + 8000 * 8);
        cli::write_wav(path("mic.wav"), "test file", 8000, mic_);
        cli::write_wav(path("ref.wav"), "test file", 8000, ref_);
    }
    void TearDown() override { fs::remove_all(dir_); }

    std::string path(const std::string &name) const { return (dir_ / name).string(); }

    ToolRun tool(const std::string &args) const {
        const std::string cmd = std::string(SONVEL_AEC_TOOL) + " " + args + " >" + path("stdout") +
                                " 2>" + path("stderr");
        const int rc = std::system(cmd.c_str());
        return {WIFEXITED(rc) ? WEXITSTATUS(rc) : -1, slurp(dir_ / "stdout"),
                slurp(dir_ / "stderr")};
    }

    // Files other than the inputs and the captured streams.
    std::vector<std::string> leftovers() const {
        std::vector<std::string> names;
        for (const auto &e : fs::directory_iterator(dir_)) {
            const std::string n = e.path().filename().string();
            if (n != "mic.wav" && n != "ref.wav" && n != "stdout" && n != "stderr")
                names.push_back(n);
        }
        return names;
    }

    void write_stereo(const std::string &name) const {
        SF_INFO info{};
        info.samplerate = 8000;
        info.channels = 2;
        info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
        SNDFILE *f = sf_open(path(name).c_str(), SFM_WRITE, &info);
        const std::vector<int16_t> frames(1600, 100);
        sf_writef_short(f, frames.data(), 800);
        sf_close(f);
    }

    fs::path dir_;
    std::vector<int16_t> mic_, ref_;
};

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
    cli::write_wav(path("mic48.wav"), "test file", 48000, mic_);
    cli::write_wav(path("ref48.wav"), "test file", 48000, ref_);
    cli::write_wav(path("ref16.wav"), "test file", 16000, ref_);
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
    cli::write_wav(path("short.wav"), "test file", 8000,
                   std::vector<int16_t>(ref_.begin(), ref_.begin() + 4000));
    const ToolRun r =
        tool("process " + path("mic.wav") + " " + path("short.wav") + " -o " + path("out.wav"));
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.err.find("warning"), std::string::npos);
    EXPECT_NE(r.err.find("short.wav"), std::string::npos);
    EXPECT_NE(r.err.find("padding"), std::string::npos);
    EXPECT_EQ(cli::read_mono(path("out.wav"), "out").samples.size(), mic_.size());
}

TEST_F(Tool, ConfigFileAndOptionsSetTheRecordAndRefusalsNameTheField) {
    std::ofstream(path("good.cfg")) << "# tuning\n"
                                       "u8NlpLevel = 2\n"
                                       "as16BandEdge = 5, 17, 28, 32, 45, 56   # bins\n"
                                       "as16BandShift[6] = 9\n"
                                       "\n"
                                       "s16CohThr=0x4000\n";
    AecCfg cfg = cli::library_defaults(16000);
    cli::load_config_file(cfg, path("good.cfg"));
    EXPECT_EQ(cfg.u8NlpLevel, 2);
    EXPECT_EQ(cfg.as16BandEdge[0], 5);
    EXPECT_EQ(cfg.as16BandEdge[5], 56);
    EXPECT_EQ(cfg.as16BandShift[6], 9);
    EXPECT_EQ(cfg.as16BandShift[5], Sonvel_AEC_gastMrvAecCfgTab.as16BandShift[5]);
    EXPECT_EQ(cfg.s16CohThr, 16384);

    const std::pair<std::string, std::string> bad[] = {
        {"u8Bogus = 1\n", "bad.cfg:1: unknown field 'u8Bogus'"},
        {"\nas16BandEdge = 1, 2\n", "bad.cfg:2: as16BandEdge takes 6"},
        {"s16CohThr = 40000\n", "does not fit"},
        {"u8NlpLevel 2\n", "expected 'name = value'"},
    };
    for (const auto &[text, message] : bad) {
        std::ofstream(path("bad.cfg")) << text;
        AecCfg c = cli::library_defaults(16000);
        try {
            cli::load_config_file(c, path("bad.cfg"));
            ADD_FAILURE() << text;
        } catch (const cli::Error &e) {
            EXPECT_NE(std::string(e.what()).find(message), std::string::npos) << e.what();
        }
    }

    // The library's refusal: field, allowed range and status code, from a file or an option.
    std::ofstream(path("refused.cfg")) << "u8NlpLevel = 3\n";
    ToolRun r = tool("process " + path("mic.wav") + " " + path("ref.wav") + " -o " +
                     path("out.wav") + " --config " + path("refused.cfg"));
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("u8NlpLevel = 3"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("status -22"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("0..2"), std::string::npos) << r.err;
    r = tool("process " + path("mic.wav") + " " + path("ref.wav") + " -o " + path("out.wav") +
             " --band-edges 5,4,28,32,45,56");
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("as16BandEdge = 5,4,28,32,45,56"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("status -24"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("<= 128"), std::string::npos) << r.err;  // the bound at 8000 Hz
    EXPECT_FALSE(fs::exists(path("out.wav")));

    r = tool("process " + path("mic.wav") + " " + path("ref.wav") +
             " --show-config --coh-threshold 0.5 --comfort-noise off --coh-band 8,17");
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("s16CohThr = 16384"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("u8CnEnable = 0"), std::string::npos);
    EXPECT_NE(r.out.find("s16CohBinLo = 8\ns16CohBinHi = 17"), std::string::npos);
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
    cli::write_wav(path("mic48.wav"), "test file", 48000, cli::resample(mic_, 8000, 48000));
    cli::write_wav(path("ref48.wav"), "test file", 48000, cli::resample(ref_, 8000, 48000));
    const ToolRun r = tool("process --resample " + path("mic48.wav") + " " + path("ref48.wav") +
                           " -o " + path("out48.wav"));
    ASSERT_EQ(r.status, 0) << r.err;
    const cli::Audio out = cli::read_mono(path("out48.wav"), "out");
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
    const cli::Audio core = cli::read_mono(path("core.wav"), "out");
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
    EXPECT_EQ(cli::read_mono(path("host.wav"), "out").samples, core.samples);
}

// The trace instance, fed 8 ms blocks, sees exactly what the frame-by-frame output path
// processes: its output block k is the output path's samples k*L.. delayed by one frame.
TEST_F(Tool, TraceFollowsTheOutputPath) {
    for (const int rate : {8000, 16000}) {
        SCOPED_TRACE(rate);
        const AecCfg cfg = cli::library_defaults(rate);
        const std::span<const int16_t> near(mic_), far(ref_);
        const cli::RunResult run =
            cli::run_canceller(cli::Api::Core, cfg, false, rate, near, far, {});
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
        const cli::Audio a = cli::read_mono(path(std::string("demo/") + name), name);
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
