// Temporary-file-and-rename output.
#include "cli/pending_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "cli/error.h"

namespace cli {

PendingFile::PendingFile(std::string path, std::string role)
    : path_(std::move(path)), role_(std::move(role)) {
    struct stat st {};
    if (stat(path_.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
        throw Error("cannot write " + role_ + " '" + path_ + "': it is a directory");
    }
    const auto slash = path_.rfind('/');
    const std::string dir = slash == std::string::npos ? "." : path_.substr(0, slash + 1);
    const std::string base = slash == std::string::npos ? path_ : path_.substr(slash + 1);
    std::string pattern = (slash == std::string::npos ? "" : dir) + "." + base + ".partial-XXXXXX";
    std::vector<char> buf(pattern.begin(), pattern.end());
    buf.push_back('\0');
    fd_ = mkstemp(buf.data());
    if (fd_ < 0) {
        throw Error("cannot write " + role_ + " '" + path_ + "': " + std::strerror(errno));
    }
    fchmod(fd_, 0644);
    temp_ = buf.data();
}

PendingFile::~PendingFile() {
    if (fd_ >= 0) close(fd_);
    if (!committed_) unlink(temp_.c_str());
}

int PendingFile::release_fd() {
    const int fd = fd_;
    fd_ = -1;
    return fd;
}

void PendingFile::commit() {
    if (fd_ >= 0) {
        const int rc = close(fd_);
        fd_ = -1;
        if (rc != 0)
            throw Error("cannot write " + role_ + " '" + path_ + "': " + std::strerror(errno));
    }
    if (std::rename(temp_.c_str(), path_.c_str()) != 0) {
        throw Error("cannot write " + role_ + " '" + path_ + "': " + std::strerror(errno));
    }
    committed_ = true;
}

}  // namespace cli
