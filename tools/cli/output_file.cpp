// Output destinations: temporary file and rename, direct writes, symlink targets, the same-file
// refusal and the signal-time cleanup of temporary files.
#include "cli/output_file.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <vector>

#include "cli/error.h"

namespace cli {
namespace {

// Temporary files to remove on a signal; written only outside the handler, with the flag set
// last, so the handler sees complete names.
constexpr int kSlots = 8;
char g_partial[kSlots][PATH_MAX];
volatile std::sig_atomic_t g_partial_used[kSlots];

extern "C" void remove_partials_and_die(int sig) {
    for (int i = 0; i < kSlots; ++i) {
        if (g_partial_used[i]) unlink(g_partial[i]);
    }
    std::signal(sig, SIG_DFL);
    std::raise(sig);
}

int register_partial(const std::string &path) {
    if (path.size() >= PATH_MAX) return -1;
    for (int i = 0; i < kSlots; ++i) {
        if (!g_partial_used[i]) {
            std::memcpy(g_partial[i], path.c_str(), path.size() + 1);
            g_partial_used[i] = 1;
            return i;
        }
    }
    return -1;
}

void unregister_partial(int slot) {
    if (slot >= 0) g_partial_used[slot] = 0;
}

std::string directory_of(const std::string &path) {
    const auto slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

// Follows a chain of symlinks (also a dangling one) to the path the data should land on.
std::string follow_links(std::string path) {
    for (int hop = 0; hop < 40; ++hop) {
        struct stat st {};
        if (lstat(path.c_str(), &st) != 0 || !S_ISLNK(st.st_mode)) return path;
        std::vector<char> buf(PATH_MAX);
        const ssize_t n = readlink(path.c_str(), buf.data(), buf.size() - 1);
        if (n < 0) return path;
        const std::string target(buf.data(), static_cast<std::size_t>(n));
        path = target[0] == '/' ? target : directory_of(path) + target;
    }
    return path;
}

}  // namespace

void install_cleanup_handlers() {
    for (const int sig : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction sa {};
        sa.sa_handler = remove_partials_and_die;
        sigemptyset(&sa.sa_mask);
        sigaction(sig, &sa, nullptr);
    }
}

void refuse_same_file(const std::string &output, const std::string &output_role,
                      const std::string &input, const std::string &input_role) {
    if (output == "-" || input == "-") return;
    struct stat a {
    }, b{};
    if (stat(output.c_str(), &a) != 0 || stat(input.c_str(), &b) != 0) return;
    if (a.st_dev == b.st_dev && a.st_ino == b.st_ino && S_ISREG(a.st_mode)) {
        throw UsageError(output_role + " '" + output + "' is the same file as " + input_role +
                         " '" + input + "'; refusing to overwrite an input");
    }
}

OutputFile::OutputFile(std::string path, std::string role)
    : path_(std::move(path)), role_(std::move(role)) {
    if (path_ == "-") {
        if (isatty(STDOUT_FILENO) == 1)
            throw UsageError(role_ + " '-' is standard output, which is a terminal; redirect it");
        fd_ = STDOUT_FILENO;
        return;
    }
    target_ = follow_links(path_);
    struct stat st {};
    const bool exists = stat(target_.c_str(), &st) == 0;
    if (exists && S_ISDIR(st.st_mode)) {
        throw Error("cannot write " + role_ + " '" + path_ + "': it is a directory");
    }
    if (exists && !S_ISREG(st.st_mode)) {
        fd_ = open(target_.c_str(), O_WRONLY | O_NOCTTY | O_CLOEXEC);
        if (fd_ < 0) fail(errno);
        return;
    }
    const auto slash = target_.rfind('/');
    const std::string base = slash == std::string::npos ? target_ : target_.substr(slash + 1);
    const std::string pattern = directory_of(target_) + "." + base + ".partial-XXXXXX";
    std::vector<char> buf(pattern.begin(), pattern.end());
    buf.push_back('\0');
    fd_ = mkstemp(buf.data());
    if (fd_ < 0) fail(errno);
    temp_ = buf.data();
    slot_ = register_partial(temp_);
    fchmod(fd_, exists ? (st.st_mode & 07777) : 0644);
}

OutputFile::~OutputFile() {
    if (fd_ >= 0 && fd_ != STDOUT_FILENO) close(fd_);
    if (!temp_.empty() && !committed_) unlink(temp_.c_str());
    unregister_partial(slot_);
}

void OutputFile::fail(int error) const {
    throw Error("cannot write " + role_ + " '" + path_ + "': " + std::strerror(error));
}

void OutputFile::write_all(const std::string &bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = write(fd_, bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) fail(errno);
        done += static_cast<std::size_t>(n);
    }
    if (fd_ == STDOUT_FILENO) return;
    const int fd = fd_;
    fd_ = -1;
    if (close(fd) != 0) fail(errno);
    if (temp_.empty()) return;
    if (std::rename(temp_.c_str(), target_.c_str()) != 0) fail(errno);
    committed_ = true;
}

}  // namespace cli
