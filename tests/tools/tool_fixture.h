// The sonvel-aec tool's test fixture: a temporary directory with an 8 s microphone and reference
// pair (far end alone, then the near end), and running the built tool on it.
#pragma once

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

#include "cli/audio_file.h"
#include "cli/demo_scenario.h"

namespace fs = std::filesystem;

namespace tooltest {

inline void write_wav(const std::string &path, int rate, const std::vector<int16_t> &x) {
    std::ofstream(path, std::ios::binary) << cli::encode_audio(SF_FORMAT_WAV, rate, x);
}

inline cli::Audio read_wav(const std::string &path) {
    std::vector<std::string> warnings;
    return cli::read_audio(path, "test file", 0, warnings);
}

struct ToolRun {
    int status;
    std::string out, err;
};

inline std::string slurp(const fs::path &p) {
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
        write_wav(path("mic.wav"), 8000, mic_);
        write_wav(path("ref.wav"), 8000, ref_);
    }
    void TearDown() override { fs::remove_all(dir_); }

    std::string path(const std::string &name) const { return (dir_ / name).string(); }
    // "MIC REF" of the fixture's pair.
    std::string pair() const { return path("mic.wav") + " " + path("ref.wav"); }

    // Runs the tool (or `program`) with `args` (shell syntax), in directory `cwd` when given.
    ToolRun tool(const std::string &args, const fs::path &cwd = {},
                 const std::string &program = SONVEL_AEC_TOOL) const {
        const std::string cd = cwd.empty() ? std::string() : "cd '" + cwd.string() + "' && ";
        const std::string cmd =
            cd + program + " " + args + " >" + path("stdout") + " 2>" + path("stderr");
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

}  // namespace tooltest
