// tools/plot_trace.py (run when Debian's python3 has numpy, matplotlib and soundfile): audio in
// the formats the tool writes, a trace without audio, and one-line errors for missing files.
#include "tools/tool_fixture.h"

namespace {

using namespace tooltest;

const std::string kPython = "/usr/bin/python3";
const std::string kScript =
    (fs::path(__FILE__).parent_path() / ".." / ".." / "tools" / "plot_trace.py").string();

TEST_F(Tool, PlotTraceReadsEveryFormatAndFailsInOneLine) {
    if (std::system((kPython + " -c 'import numpy, matplotlib, soundfile' 2>/dev/null").c_str()) !=
        0)
        GTEST_SKIP() << "python3 with numpy, matplotlib and soundfile is not installed";
    ASSERT_EQ(tool("process " + pair() + " -q -o " + path("out.flac") + " --trace " +
                   path("t.csv") + " --ref-delay auto")
                  .status,
              0);
    const auto plot = [&](const std::string &args) {
        const std::string cmd =
            kPython + " " + kScript + " " + args + " >" + path("py.out") + " 2>" + path("py.err");
        const int rc = std::system(cmd.c_str());
        return ToolRun{WIFEXITED(rc) ? WEXITSTATUS(rc) : -1, slurp(dir_ / "py.out"),
                       slurp(dir_ / "py.err")};
    };
    ToolRun r = plot("--trace " + path("t.csv") + " --mic " + path("mic.wav") + " --out " +
                     path("out.flac") + " --latency-ms 18 -o " + path("full.png"));
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(fs::file_size(dir_ / "full.png") > 0);
    r = plot("--trace " + path("t.csv") + " -o " + path("states.png"));  // no audio
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(fs::exists(dir_ / "states.png"));
    for (const std::string &args : {path("no_such_dir"), "--trace " + path("none.csv"),
                                    "--trace " + path("t.csv") + " --mic " + path("none.wav"),
                                    "--trace " + path("mic.wav")}) {
        SCOPED_TRACE(args);
        r = plot(args);
        EXPECT_EQ(r.status, 1);
        EXPECT_EQ(r.err.rfind("plot_trace: ", 0), 0u) << r.err;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    }
}

}  // namespace
