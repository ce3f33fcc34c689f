// Configuration files: the same keys and values as the command line (parity), byte-order mark,
// duplicate keys, suggestions for unknown keys, refusals with the file's line.
#include "cli/config_file.h"
#include "cli/error.h"
#include "cli/params.h"
#include "tools/tool_fixture.h"

namespace {

using namespace tooltest;

TEST_F(Tool, ConfigFileAcceptsWhatTheCommandLineAccepts) {
    const std::string options =
        "--comfort-noise off --suppression-level 2 --coh-threshold 0.7 --coh-band 8,17 "
        "--band-edges 5,17,28,32,45,56 --band-shifts 11,12,16,14,15,12,16 --clamp-bins 5,10 "
        "--hf-band 60,90 --start-part 1 --ref-delay 120 --dc-block --drift auto";
    // The same settings as option names, as field names, in other spellings; a BOM first.
    std::ofstream(path("options.cfg")) << "\xEF\xBB\xBF# option names\n"
                                          "comfort-noise = OFF\n"
                                          "suppression-level = 2\n"
                                          "coh-threshold = 0.7   # a fraction\n"
                                          "coh-band = 8,17\n"
                                          "band-edges = 5, 17, 28, 32, 45, 56\n"
                                          "band-shifts = 11,12,16,14,15,12,16\n"
                                          "clamp-bins = 5,10\n"
                                          "hf-band = 60,90\n"
                                          "start-part = 1\n"
                                          "ref-delay = 120\n"
                                          "dc-block = on\n"
                                          "drift = auto\n";
    std::ofstream(path("fields.cfg")) << "u8CnEnable = off\nu8NlpLevel = 2\ns16CohThr = 22938\n"
                                         "s16CohBinLo = 8\ns16CohBinHi = 17\n"
                                         "as16BandEdge = 5,17,28,32,45,56\n"
                                         "as16BandShift = 11,12,16,14,15,12,9\n"
                                         "as16BandShift[6] = 16\n"
                                         "s16ClampBinLo = 5\ns16ClampBinHi = 10\n"
                                         "s16HfBinLo = 60\ns16HfBinHi = 90\nu8StartPart = 1\n"
                                         "ref-delay = 120ms\ndc-block = yes\ndrift = auto\n";
    const ToolRun cli = tool("process " + pair() + " --show-config " + options);
    ASSERT_EQ(cli.status, 0) << cli.err;
    EXPECT_NE(cli.out.find("s16CohThr = 22938"), std::string::npos) << cli.out;
    for (const std::string cfg : {"options.cfg", "fields.cfg"}) {
        const ToolRun r = tool("process " + pair() + " --show-config --config " + path(cfg));
        EXPECT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(r.out, cli.out) << cfg;
        EXPECT_TRUE(r.err.empty()) << r.err;
    }
    // Options override the file.
    const ToolRun over = tool("process " + pair() + " --show-config --config " +
                              path("fields.cfg") + " --suppression-level 1");
    EXPECT_NE(over.out.find("u8NlpLevel = 1"), std::string::npos);
}

TEST_F(Tool, ConfigFileMistakesNameTheLine) {
    const cli::Settings scratch{cli::library_defaults(16000), {}};
    const struct {
        std::string text, message;
    } bad[] = {
        {"u8Bogus = 1\n", "bad.cfg:1: unknown setting 'u8Bogus'"},
        {"supression-level = 1\n", "did you mean 'suppression-level'"},
        {"u8NlpLevl = 1\n", "did you mean 'u8NlpLevel'"},
        {"\nas16BandEdge = 1, 2\n",
         "bad.cfg:2: as16BandEdge: expected 6 comma-separated values, got 2"},
        {"s16CohThr = 40000\n", "bad.cfg:1: s16CohThr: 40000 is outside 0..32767"},
        {"suppression-level 2\n", "expected 'key = value'"},
        {"as16BandShift[7] = 1\n", "unknown setting 'as16BandShift[7]'"},
        {"u8SampleRate = 1\n", "follows the input files"},
    };
    for (const auto &b : bad) {
        SCOPED_TRACE(b.text);
        std::ofstream(path("bad.cfg")) << b.text;
        std::vector<std::string> warnings;
        try {
            cli::read_config_file(path("bad.cfg"), scratch, warnings);
            ADD_FAILURE() << "accepted";
        } catch (const cli::UsageError &e) {
            ADD_FAILURE() << "a file's mistake is an input error: " << e.what();
        } catch (const cli::Error &e) {
            EXPECT_NE(std::string(e.what()).find(b.message), std::string::npos) << e.what();
        }
    }

    // A duplicate key (under either name) is a warning naming both lines; the later one wins.
    std::ofstream(path("dup.cfg")) << "u8NlpLevel = 1\n# x\nsuppression-level = 2\n";
    std::vector<std::string> warnings;
    const auto settings = cli::read_config_file(path("dup.cfg"), scratch, warnings);
    ASSERT_EQ(warnings.size(), 1u);
    EXPECT_NE(warnings[0].find("dup.cfg:3: suppression-level is also set on line 1"),
              std::string::npos)
        << warnings[0];
    EXPECT_EQ(settings.size(), 2u);

    // Through the tool: a directory, and a value the library refuses: status 1, with the line.
    ToolRun r = tool("process " + pair() + " -o " + path("o.wav") + " --config " + dir_.string());
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("it is a directory"), std::string::npos) << r.err;
    std::ofstream(path("refused.cfg")) << "band-edges = 5,4,28,32,45,56\n";
    r = tool("process " + pair() + " -o " + path("o.wav") + " --config " + path("refused.cfg"));
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("status -24"), std::string::npos) << r.err;
    EXPECT_FALSE(fs::exists(dir_ / "o.wav"));
}

}  // namespace
