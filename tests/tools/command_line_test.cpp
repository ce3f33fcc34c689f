// The command line: help per command, "--", exit statuses (2 for every command-line mistake, 1
// for every input failure), messages in the option's own terms, the summary's forms.
#include "tools/tool_fixture.h"

namespace {

using namespace tooltest;

TEST_F(Tool, ExitStatusesAndMessagesSpeakTheOptionsLanguage) {
    const std::string io = pair() + " -o " + path("out.wav");
    const struct {
        std::string args;
        int status;
        std::string message;
    } cases[] = {
        {"process " + io + " --suppression-level abc", 2,
         "--suppression-level: expected an integer 0..2, got 'abc'"},
        {"process " + io + " --suppression-level -1", 2, "--suppression-level: -1 is outside 0..2"},
        {"process " + io + " --suppression-level 3", 2, "outside 0..2"},
        {"process " + io + " --coh-threshold 1.5", 2, "fraction 0..1"},
        {"process " + io + " --comfort-noise maybe", 2, "expected on or off"},
        {"process " + io + " --band-edges 5,4,28,32,45,56", 2, "as16BandEdge = 5,4,28,32,45,56"},
        {"process " + io + " --coh-band 8", 2, "expected 2 comma-separated values"},
        {"process " + io + " --ref-delay 501", 2, "outside 0..500"},
        {"process " + io + " --ref-delay soon", 2, "expected auto, off or milliseconds"},
        {"process " + io + " --drift on", 2, "expected auto or off"},
        {"process " + io + " --api host --dc-block", 2, "--api core only"},
        {"process " + io + " --supression-level 1", 2, "did you mean '--suppression-level'"},
        {"process " + io + " --align=yes", 2, "takes no value"},
        {"process " + path("mic.wav"), 2, "two input files"},
        {"process " + pair(), 2, "-o OUT.wav"},
        {"process - - -o " + path("out.wav"), 2, "only one input"},
        {"demo --rate 44100", 2, "expected 8000 or 16000"},
        {"demo extra", 2, "no file names"},
        {"frobnicate", 2, "unknown command"},
        {"process " + path("none.wav") + " " + path("ref.wav") + " -o " + path("out.wav"), 1,
         "No such file"},
        {"analyze " + path("mic.wav") + " " + path("none.wav"), 1, "No such file"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.args);
        const ToolRun r = tool(c.args);
        EXPECT_EQ(r.status, c.status) << r.err;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
        EXPECT_FALSE(fs::exists(dir_ / "out.wav"));
    }

    // Help of each command on standard output, status 0.
    for (const std::string cmd : {"process", "demo", "analyze"}) {
        for (const std::string flag : {"--help", "-h"}) {
            const ToolRun r = tool(cmd + " " + flag);
            EXPECT_EQ(r.status, 0) << cmd;
            EXPECT_EQ(r.out.rfind("usage: sonvel-aec " + cmd, 0), 0u) << r.out;
        }
    }
    EXPECT_EQ(tool("--help").status, 0);
    EXPECT_EQ(tool("").status, 2);

    // "--" ends the options: a file named like an option.
    fs::copy_file(dir_ / "mic.wav", dir_ / "-odd.wav");
    ToolRun r = tool("process -q -o out.wav -- -odd.wav ref.wav", dir_);
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(fs::exists(dir_ / "out.wav"));

    // Band shifts outside their monotonic range work, with a warning.
    r = tool("process " + pair() + " -q -o " + path("s.wav") +
             " --band-shifts 11,12,16,14,15,12,27");
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.err.find("warning: --band-shifts: shift 27 lies outside 0..22"), std::string::npos)
        << r.err;
}

TEST_F(Tool, SummaryFormsShowConfigAndQuietDemo) {
    // Defaults without input files; values in the option's language.
    ToolRun r =
        tool("process --show-config --comfort-noise ON --coh-threshold 0.5 --ref-delay auto");
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("u8CnEnable = 1"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("s16CohThr = 16384"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("ref-delay = auto"), std::string::npos) << r.out;

    // JSON summary: one object with the figures.
    r = tool("process " + pair() + " -o " + path("o.wav") + " --json");
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out.rfind("{\"duration_s\": 8.000, \"frames\": 800,", 0), 0u) << r.out;
    for (const char *key : {"\"real_time_factor\": 0.", "\"echo_reduction_db\": ", "\"hints\": ["})
        EXPECT_NE(r.out.find(key), std::string::npos) << key << r.out;

    // One frame: singular, and no real-time factor for less than a second of audio.
    write_wav(path("one_mic.wav"), 8000, std::vector<int16_t>(mic_.begin(), mic_.begin() + 80));
    write_wav(path("one_ref.wav"), 8000, std::vector<int16_t>(ref_.begin(), ref_.begin() + 80));
    r = tool("process " + path("one_mic.wav") + " " + path("one_ref.wav") + " -o " + path("1.wav"));
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("(1 frame of 10 ms)"), std::string::npos) << r.out;
    EXPECT_EQ(r.out.find("real-time factor"), std::string::npos) << r.out;
    r = tool("process " + path("one_mic.wav") + " " + path("one_ref.wav") + " -o " + path("1.wav") +
             " --json");
    EXPECT_NE(r.out.find("\"real_time_factor\": null"), std::string::npos) << r.out;

    // On a terminal the progress bar is drawn and its line cleared before the summary.
    if (std::system("command -v script >/dev/null") == 0) {
        r = tool("-c '" + std::string(SONVEL_AEC_TOOL) + " process " + pair() + " -o " +
                     path("tty.wav") + "' /dev/null",
                 {}, "script -qe");
        EXPECT_EQ(r.status, 0) << r.err;
        EXPECT_NE(r.out.find("100%"), std::string::npos) << r.out;
        const auto at = r.out.find("duration");
        ASSERT_NE(at, std::string::npos) << r.out;
        EXPECT_TRUE(at == 0 || r.out[at - 1] == '\r' || r.out[at - 1] == '\n') << r.out;
    }

    r = tool("demo --rate 8000 -q --out " + path("demo"));
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(r.out.empty()) << r.out;
    EXPECT_TRUE(fs::exists(dir_ / "demo" / "out.wav"));
}

}  // namespace
