#pragma once

#include <string>
#include <string_view>

namespace orvanic_xr {

// A file that is only written at its end, straight to the kernel: what Write has taken survives a crash of the
// process. The first failure puts it in a failed state, in which writes do nothing; Open starts afresh.
class AppendFile {
 public:
    AppendFile() = default;
    ~AppendFile();
    AppendFile(const AppendFile&) = delete;
    AppendFile& operator=(const AppendFile&) = delete;

    // Creates the file if it is not there. The descriptor is not inherited by programs that the host starts.
    bool Open(const std::string& path);
    void Write(std::string_view text) noexcept;
    void Close() noexcept;
    bool failed() const noexcept { return failed_; }

 private:
    int descriptor_ = -1;
    bool failed_ = false;
};

}  // namespace orvanic_xr
