// analyze: the measurements and the recommended command line on generated recordings with a known
// echo delay and DC offset, at both rates; the inputs it cannot conclude on.
#include "tools/tool_fixture.h"

namespace {

using namespace tooltest;

// 30 s, a third of it double talk.
std::vector<cli::Segment> conversation() {
    return {{"far", 0, 5, true, false},  {"dt", 5, 8, true, true},
            {"far", 8, 13, true, false}, {"near", 13, 15, false, true},
            {"dt", 15, 19, true, true},  {"far", 19, 24, true, false},
            {"dt", 24, 27, true, true},  {"far", 27, 30, true, false}};
}

double json_number(const std::string &json, const std::string &key) {
    const auto at = json.find("\"" + key + "\": ");
    return at == std::string::npos ? NAN : std::atof(json.c_str() + at + key.size() + 4);
}

TEST_F(Tool, AnalyzeFindsTheDelayAndDcAndRecommendsTheOptions) {
    const struct {
        int rate;
        double delay_ms, dc, echo_db;
        std::string options;
    } cases[] = {
        {16000, 120, 0, 0, "--ref-delay 116"},
        {8000, 250, 983, -12, "--ref-delay 246 --dc-block"},
        {16000, 4, 0, -6, ""},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.delay_ms);
        cli::ScenarioSpec setup;
        setup.rate = c.rate;
        setup.segments = conversation();
        setup.bulk_delay_ms = c.delay_ms;
        setup.mic_dc = c.dc;
        setup.echo_gain_db = c.echo_db;
        const cli::Scenario s = cli::make_scenario(setup);
        write_wav(path("m.wav"), c.rate, s.mic);
        write_wav(path("r.wav"), c.rate, s.ref);
        ToolRun r = tool("analyze m.wav r.wav", dir_);
        ASSERT_EQ(r.status, 0) << r.out << r.err;
        EXPECT_NE(r.out.find("  sonvel-aec process m.wav r.wav -o out.wav" +
                             (c.options.empty() ? "" : " " + c.options) + "\n"),
                  std::string::npos)
            << r.out;
        r = tool("analyze m.wav r.wav --json", dir_);
        ASSERT_EQ(r.status, 0);
        EXPECT_NEAR(json_number(r.out, "delay_ms"), c.delay_ms, 2.0) << r.out;
        EXPECT_GE(json_number(r.out, "delay_confidence"), 0.5);
        EXPECT_NEAR(json_number(r.out, "duration_s"), 30.0, 1e-9);
        EXPECT_NEAR(json_number(r.out, "dc_lsb"), c.dc, 10.0) << r.out;  // the microphone's
        EXPECT_NEAR(json_number(r.out, "erl_db"), -c.echo_db, 6.0) << r.out;
        EXPECT_NEAR(json_number(r.out, "far_active_share"), 0.6, 0.15) << r.out;
        EXPECT_NE(r.out.find("\"concluded\": true"), std::string::npos);

        // The recommendation works: applied, the echo reduction is that of a well-placed echo.
        if (!c.options.empty()) {
            r = tool("process m.wav r.wav -o o.wav --json " + c.options, dir_);
            ASSERT_EQ(r.status, 0) << r.err;
            EXPECT_GT(json_number(r.out, "echo_reduction_db"), 15.0) << r.out;
            r = tool("process m.wav r.wav -o o.wav -q", dir_);
            EXPECT_NE(r.err.find("hint: "), std::string::npos) << r.err;
            EXPECT_NE(r.err.find(c.dc != 0 ? "--dc-block" : "--ref-delay auto"), std::string::npos)
                << r.err;
        }
    }
}

TEST_F(Tool, AnalyzeSaysWhyItCannotConclude) {
    const std::vector<int16_t> silence(mic_.size(), 0);
    write_wav(path("silent.wav"), 8000, silence);
    write_wav(path("one.wav"), 8000, std::vector<int16_t>(mic_.begin(), mic_.begin() + 80));
    write_wav(path("copy.wav"), 8000, ref_);
    std::ofstream(path("empty.wav")).close();
    const struct {
        std::string files;
        int status;
        std::string message;
    } cases[] = {
        {"empty.wav ref.wav", 1, "'empty.wav' is empty"},
        {"one.wav one.wav", 3, "too short (1 frame of 10 ms)"},
        {"mic.wav silent.wav", 3, "the reference is silent"},
        {"ref.wav copy.wav", 3, "the same samples"},
        {"silent.wav ref.wav", 3, "no correlation"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.files);
        ToolRun r = tool("analyze " + c.files, dir_);
        EXPECT_EQ(r.status, c.status) << r.out << r.err;
        EXPECT_NE((r.out + r.err).find(c.message), std::string::npos) << r.out << r.err;
        if (c.status == 3) {
            EXPECT_NE(r.out.find("no recommendation: "), std::string::npos);
            EXPECT_EQ(r.out.find("sonvel-aec process"), std::string::npos) << r.out;
            r = tool("analyze --json " + c.files, dir_);
            EXPECT_EQ(r.status, 3);
            EXPECT_NE(r.out.find("\"concluded\": false"), std::string::npos) << r.out;
            EXPECT_NE(r.out.find("\"command\": null"), std::string::npos) << r.out;
        }
    }
}

}  // namespace
