// An output file that appears only when complete: the data go to a temporary file beside the
// destination, which is renamed over it on commit and removed otherwise.
#pragma once

#include <string>

namespace cli {

class PendingFile {
public:
    // Creates the temporary file now, so that an unwritable destination is reported before any
    // work is done. `role` names the file in messages ("output file", "trace file").
    PendingFile(std::string path, std::string role);
    ~PendingFile();
    PendingFile(const PendingFile &) = delete;
    PendingFile &operator=(const PendingFile &) = delete;

    int fd() const { return fd_; }
    const std::string &path() const { return path_; }
    const std::string &role() const { return role_; }
    // Gives up ownership of the descriptor (a writer that closes it itself).
    int release_fd();
    // Closes the descriptor (if still owned) and renames the temporary file over the destination.
    void commit();

private:
    std::string path_;
    std::string role_;
    std::string temp_;
    int fd_ = -1;
    bool committed_ = false;
};

}  // namespace cli
