// The summary's echo reduction against the truth: microphone over output power over the segments
// known to be far-end only, on the demo and on generated recordings with a third of double talk,
// at both rates, with the echo in the filter's reach and lined up by the front end.
#include "tools/tool_fixture.h"

namespace {

using namespace tooltest;

double far_only_truth(const cli::Scenario &s, const std::vector<int16_t> &out) {
    double mic = 0, o = 0;
    for (const cli::Segment &seg : s.segments) {
        if (!seg.far || seg.near) continue;
        const auto a = static_cast<std::size_t>(seg.start * s.rate);
        const auto b = std::min(out.size(), static_cast<std::size_t>(seg.end * s.rate));
        for (std::size_t i = a; i < b; ++i) {
            mic += static_cast<double>(s.mic[i]) * s.mic[i];
            o += static_cast<double>(out[i]) * out[i];
        }
    }
    return 10.0 * std::log10(mic / o);
}

TEST_F(Tool, SummaryEchoReductionIsTheFarEndOnlyReduction) {
    const std::vector<cli::Segment> third_double_talk = {
        {"far", 0, 5, true, false},    {"dt", 5, 8, true, true},    {"far", 8, 13, true, false},
        {"near", 13, 15, false, true}, {"dt", 15, 19, true, true},  {"far", 19, 24, true, false},
        {"dt", 24, 27, true, true},    {"far", 27, 30, true, false}};
    const struct {
        int rate;
        double delay_ms, dc, echo_db, near_db;
        std::string options;
        bool demo;
    } cases[] = {
        {16000, 4, 0, 0, -24, "", true},
        {8000, 4, 0, 0, -24, "", true},
        {16000, 30, 0, -6, -24, "", false},
        {8000, 20, 0, 0, -18, "", false},
        {16000, 120, 0, 0, -24, "--ref-delay auto", false},
        {8000, 200, 300, -3, -24, "--ref-delay auto --dc-block", false},
        {16000, 120, 0, 0, -24, "", false},  // out of reach: little reduction, and said so
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::to_string(c.rate) + " Hz, " + std::to_string(c.delay_ms) + " ms " +
                     c.options);
        cli::ScenarioSpec setup = cli::demo_spec(c.rate);
        if (!c.demo) setup.segments = third_double_talk;
        setup.bulk_delay_ms = c.delay_ms;
        setup.mic_dc = c.dc;
        setup.echo_gain_db = c.echo_db;
        setup.near_dbfs = c.near_db;
        setup.seed = c.demo ? 0 : 1;
        const cli::Scenario s = cli::make_scenario(setup);
        write_wav(path("m.wav"), c.rate, s.mic);
        write_wav(path("r.wav"), c.rate, s.ref);
        const ToolRun r = tool("process m.wav r.wav -o o.wav --align --json " + c.options, dir_);
        ASSERT_EQ(r.status, 0) << r.err;
        const double figure = std::atof(r.out.c_str() + r.out.find("\"echo_reduction_db\": ") + 21);
        const double truth = far_only_truth(s, read_wav(path("o.wav")).samples);
        EXPECT_NEAR(figure, truth, 3.0) << r.out;
    }
}

}  // namespace
