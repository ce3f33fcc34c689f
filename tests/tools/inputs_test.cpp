// Inputs: mixed rates converted file by file, the note on content above the band, channel
// selection, a longer reference cut with a warning, a truncated file reported with what was read.
#include "cli/resample.h"
#include "tools/tool_fixture.h"

namespace {

using namespace tooltest;

void write_channels(const std::string &path, int rate,
                    const std::vector<std::vector<int16_t>> &ch) {
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = static_cast<int>(ch.size());
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    std::vector<int16_t> frames;
    for (std::size_t i = 0; i < ch[0].size(); ++i)
        for (const auto &c : ch) frames.push_back(c[i]);
    SNDFILE *f = sf_open(path.c_str(), SFM_WRITE, &info);
    sf_writef_short(f, frames.data(), static_cast<sf_count_t>(ch[0].size()));
    sf_close(f);
}

TEST_F(Tool, MixedRatesAreConvertedFileByFile) {
    // A 16 kHz microphone with a 48 kHz reference: the reference is converted to 16 kHz and the
    // output stays at the microphone's rate; the result matches a run on a 16 kHz reference.
    const std::vector<int16_t> mic16 = cli::resample(mic_, 8000, 16000);
    const std::vector<int16_t> ref16 = cli::resample(ref_, 8000, 16000);
    write_wav(path("mic16.wav"), 16000, mic16);
    write_wav(path("ref16.wav"), 16000, ref16);
    write_wav(path("ref48.wav"), 48000, cli::resample(ref_, 8000, 48000));
    ToolRun r = tool("process " + path("mic16.wav") + " " + path("ref48.wav") + " -o " +
                     path("o.wav") + " -q");
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("--resample"), std::string::npos) << r.err;
    r = tool("process --resample " + path("mic16.wav") + " " + path("ref48.wav") + " -o " +
             path("o.wav") + " --json");
    ASSERT_EQ(r.status, 0) << r.err;
    const cli::Audio out = read_wav(path("o.wav"));
    EXPECT_EQ(out.rate, 16000);
    EXPECT_EQ(out.samples.size(), mic16.size());
    ASSERT_EQ(tool("process " + path("mic16.wav") + " " + path("ref16.wav") + " -o " +
                   path("o16.wav") + " --json")
                  .status,
              0);
    const std::string json16 = slurp(dir_ / "stdout");
    const auto erle = [](const std::string &j) {
        return std::atof(j.c_str() + j.find("\"echo_reduction_db\": ") + 21);
    };
    EXPECT_NEAR(erle(r.out), erle(json16), 1.0) << r.out << json16;

    // A 48 kHz microphone with content above 8 kHz: converted down, with a note.
    std::vector<int16_t> hiss(48000 * 2);
    for (std::size_t i = 0; i < hiss.size(); ++i)
        hiss[i] = static_cast<int16_t>(i % 2 ? 3000 : -3000);  // 24 kHz
    write_wav(path("hiss48.wav"), 48000, hiss);
    r = tool("process --resample " + path("hiss48.wav") + " " + path("ref16.wav") + " -q -o " +
             path("h.wav"));
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.err.find("note: microphone file"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("above 8000 Hz"), std::string::npos) << r.err;
    EXPECT_EQ(read_wav(path("h.wav")).rate, 48000);
}

TEST_F(Tool, ChannelsLengthsAndDamagedFiles) {
    // Channel 2 of a stereo microphone is the microphone; the output equals the mono run.
    const std::vector<int16_t> noise(mic_.size(), 7);
    write_channels(path("stereo.wav"), 8000, {noise, mic_});
    ToolRun r =
        tool("process " + path("stereo.wav") + " " + path("ref.wav") + " -q -o " + path("o.wav"));
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("2 channels; pick one with --channel N (1..2)"), std::string::npos)
        << r.err;
    r = tool("process " + path("stereo.wav") + " " + path("ref.wav") + " --channel 3 -q -o " +
             path("o.wav"));
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("--channel 3 does not exist"), std::string::npos) << r.err;
    ASSERT_EQ(tool("process " + path("stereo.wav") + " " + path("ref.wav") + " --channel 2 -q -o " +
                   path("c2.wav"))
                  .status,
              0);
    ASSERT_EQ(tool("process " + pair() + " -q -o " + path("mono.wav")).status, 0);
    EXPECT_EQ(read_wav(path("c2.wav")).samples, read_wav(path("mono.wav")).samples);
    // --ref-channel picks the reference's own channel.
    write_channels(path("ref_st.wav"), 8000, {ref_, noise});
    ASSERT_EQ(tool("process " + path("stereo.wav") + " " + path("ref_st.wav") +
                   " --channel 2 --ref-channel 1 -q -o " + path("c21.wav"))
                  .status,
              0);
    EXPECT_EQ(read_wav(path("c21.wav")).samples, read_wav(path("mono.wav")).samples);

    // A longer reference is cut, with a warning naming both lengths.
    std::vector<int16_t> long_ref = ref_;
    long_ref.resize(ref_.size() + 8000, 100);
    write_wav(path("long.wav"), 8000, long_ref);
    r = tool("process " + path("mic.wav") + " " + path("long.wav") + " -q -o " + path("l.wav"));
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.err.find("warning: reference file '" + path("long.wav") + "' (9.00 s) is longer"),
              std::string::npos)
        << r.err;
    EXPECT_NE(r.err.find("its end is cut"), std::string::npos) << r.err;
    EXPECT_EQ(read_wav(path("l.wav")).samples, read_wav(path("mono.wav")).samples);

    // A truncated WAV: a warning with how much was read, and the run goes on.
    const std::string full = slurp(dir_ / "mic.wav");
    std::ofstream(path("cut.wav"), std::ios::binary) << full.substr(0, 44 + 2 * 8000 * 3);
    r = tool("process " + path("cut.wav") + " " + path("ref.wav") + " -q -o " + path("t.wav"));
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.err.find("is truncated"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("read 3.00 s"), std::string::npos) << r.err;
    // Empty files: refused.
    std::ofstream(path("empty.wav")).close();
    r = tool("process " + path("empty.wav") + " " + path("ref.wav") + " -q -o " + path("e.wav"));
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("is empty"), std::string::npos) << r.err;
}

}  // namespace
