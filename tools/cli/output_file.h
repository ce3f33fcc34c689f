// Output destinations. A regular file (or a new one) appears only when complete: the data go to a
// hidden temporary file beside it, renamed over it on commit and removed otherwise, also on
// SIGINT and SIGTERM. A symlink is followed and its target replaced. Anything else that exists
// (a device, a FIFO) and "-" (standard output) is written through directly.
#pragma once

#include <sys/types.h>
#include <string>

namespace cli {

// Removes the temporary files of every live OutputFile on SIGINT, SIGTERM and SIGHUP, then dies of
// the signal as usual.
void install_cleanup_handlers();

// Throws UsageError when `output` (following symlinks) is the same file as `input`; `-` is
// standard input as an input and standard output as an output, so they never clash.
void refuse_same_file(const std::string &output, const std::string &output_role,
                      const std::string &input, const std::string &input_role);

class OutputFile {
  public:
    // Claims the destination now (the temporary file is created or the device opened), so that
    // an unwritable destination is reported before any work is done. `role` names it in
    // messages ("output file", "trace file").
    OutputFile(std::string path, std::string role);
    ~OutputFile();
    OutputFile(const OutputFile &) = delete;
    OutputFile &operator=(const OutputFile &) = delete;

    const std::string &path() const { return path_; }
    const std::string &role() const { return role_; }
    // True when written through directly (standard output, a device, a FIFO).
    bool direct() const { return temp_.empty(); }
    // Writes the whole content and puts it in place.
    void write_all(const std::string &bytes);

  private:
    [[noreturn]] void fail(int error) const;
    std::string path_;    // as given
    std::string target_;  // where the content lands (a symlink's target)
    std::string role_;
    std::string temp_;
    int fd_ = -1;
    int slot_ = -1;  // in the signal handler's list
    bool committed_ = false;
};

}  // namespace cli
