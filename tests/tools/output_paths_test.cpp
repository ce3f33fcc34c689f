// Output destinations: devices, FIFOs and standard output written through directly; symlinks
// followed; an input never overwritten; formats by extension or --format; the temporary file
// removed when the run is interrupted.
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "tools/tool_fixture.h"

namespace {

using namespace tooltest;

bool any_partial(const fs::path &dir) {
    for (const auto &e : fs::directory_iterator(dir)) {
        if (e.path().filename().string().find(".partial-") != std::string::npos) return true;
    }
    return false;
}

TEST_F(Tool, SpecialOutputsAreWrittenThroughAndInputsAreNeverOverwritten) {
    // A character device stays a device; /dev/full reports its error.
    EXPECT_EQ(tool("process " + pair() + " -q -o /dev/null").status, 0);
    struct stat st {};
    ASSERT_EQ(stat("/dev/null", &st), 0);
    EXPECT_TRUE(S_ISCHR(st.st_mode));
    if (access("/dev/full", W_OK) == 0) {
        const ToolRun r = tool("process " + pair() + " -q -o /dev/full");
        EXPECT_EQ(r.status, 1);
        EXPECT_NE(r.err.find("No space left"), std::string::npos) << r.err;
        ASSERT_EQ(stat("/dev/full", &st), 0);
        EXPECT_TRUE(S_ISCHR(st.st_mode));
    }

    // A FIFO keeps being a FIFO and its reader gets the whole file.
    ASSERT_EQ(mkfifo(path("fifo").c_str(), 0644), 0);
    const ToolRun r = tool("process " + pair() + " -q -o " + path("fifo") + " & cat " +
                           path("fifo") + " > " + path("from_fifo.wav") + "; wait $!");
    EXPECT_EQ(r.status, 0) << r.err;
    ASSERT_EQ(lstat(path("fifo").c_str(), &st), 0);
    EXPECT_TRUE(S_ISFIFO(st.st_mode));
    EXPECT_EQ(read_wav(path("from_fifo.wav")).samples.size(), mic_.size());

    // "-o -" is standard output (the summary moves to standard error); "-" as MIC is standard
    // input; the output equals a run on the files.
    ASSERT_EQ(tool("process " + pair() + " -o " + path("file.wav")).status, 0);
    const ToolRun piped = tool("process - " + path("ref.wav") + " -o - < " + path("mic.wav"));
    EXPECT_EQ(piped.status, 0);
    EXPECT_EQ(piped.out.rfind("RIFF", 0), 0u);
    EXPECT_NE(piped.err.find("echo reduction"), std::string::npos);
    EXPECT_FALSE(fs::exists(dir_ / "-"));
    EXPECT_EQ(piped.out, slurp(dir_ / "file.wav"));

    // A symlink is followed: the target is replaced, the link stays, the temporary file goes
    // beside the target (in another directory here).
    fs::create_directory(dir_ / "sub");
    fs::create_symlink("sub/target.wav", dir_ / "link.wav");
    EXPECT_EQ(tool("process " + pair() + " -q -o " + path("link.wav")).status, 0);
    EXPECT_TRUE(fs::is_symlink(dir_ / "link.wav"));
    EXPECT_EQ(read_wav(path("sub/target.wav")).samples, read_wav(path("file.wav")).samples);

    // The same file as an input, directly or through a link: refused before anything is read.
    const std::string before = slurp(dir_ / "mic.wav");
    fs::create_symlink("mic.wav", dir_ / "mic_link.wav");
    for (const std::string out : {"mic.wav", "mic_link.wav", "ref.wav"}) {
        const ToolRun same = tool("process " + pair() + " -o " + path(out));
        EXPECT_EQ(same.status, 2) << out;
        EXPECT_NE(same.err.find("same file"), std::string::npos) << same.err;
    }
    EXPECT_EQ(
        tool("process " + pair() + " -o " + path("x.wav") + " --trace " + path("ref.wav")).status,
        2);
    EXPECT_EQ(slurp(dir_ / "mic.wav"), before);
    EXPECT_FALSE(any_partial(dir_));
}

TEST_F(Tool, OutputFormatFollowsTheExtensionOrFormatOption) {
    const struct {
        std::string args, file;
        int status, major;
    } cases[] = {
        {"-o " + path("o.flac"), "o.flac", 0, SF_FORMAT_FLAC},
        {"-o " + path("o.WAV"), "o.WAV", 0, SF_FORMAT_WAV},
        {"-o " + path("o.raw") + " --format au", "o.raw", 0, SF_FORMAT_AU},
        {"-o " + path("o.ogg"), "o.ogg", 2, 0},
        {"-o " + path("o.wav") + " --format mp3", "o.wav", 2, 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.args);
        const ToolRun r = tool("process " + pair() + " -q " + c.args);
        EXPECT_EQ(r.status, c.status) << r.err;
        if (c.status != 0) {
            EXPECT_NE(r.err.find("wav, flac"), std::string::npos) << r.err;
            EXPECT_FALSE(fs::exists(dir_ / c.file));
            continue;
        }
        SF_INFO info{};
        SNDFILE *f = sf_open(path(c.file).c_str(), SFM_READ, &info);
        ASSERT_NE(f, nullptr);
        sf_close(f);
        EXPECT_EQ(info.format & SF_FORMAT_TYPEMASK, c.major);
        EXPECT_EQ(info.frames, static_cast<sf_count_t>(mic_.size()));
    }
}

// SIGINT and SIGTERM during a long run leave no temporary file behind.
TEST_F(Tool, InterruptedRunLeavesNoPartialFile) {
    std::vector<int16_t> long_mic, long_ref;
    for (int i = 0; i < 60; ++i) {  // 8 minutes
        long_mic.insert(long_mic.end(), mic_.begin(), mic_.end());
        long_ref.insert(long_ref.end(), ref_.begin(), ref_.end());
    }
    write_wav(path("long_mic.wav"), 8000, long_mic);
    write_wav(path("long_ref.wav"), 8000, long_ref);
    for (const int sig : {SIGINT, SIGTERM}) {
        SCOPED_TRACE(sig);
        const pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            const std::string out = path("out.wav");
            execl(SONVEL_AEC_TOOL, SONVEL_AEC_TOOL, "process", path("long_mic.wav").c_str(),
                  path("long_ref.wav").c_str(), "-q", "-o", out.c_str(), nullptr);
            _exit(127);
        }
        // Wait until the temporary file exists (or the run ends), then interrupt.
        for (int i = 0; i < 400 && !any_partial(dir_); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        kill(pid, sig);
        int status = 0;
        ASSERT_EQ(waitpid(pid, &status, 0), pid);
        if (WIFSIGNALED(status)) {
            EXPECT_EQ(WTERMSIG(status), sig);
        }
        EXPECT_FALSE(any_partial(dir_));
        fs::remove(dir_ / "out.wav");
    }
}

}  // namespace
