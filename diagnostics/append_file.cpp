#include "diagnostics/append_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>

#include "diagnostics/write_signals.h"

namespace orvanic_xr {

AppendFile::~AppendFile() {
    if (descriptor_ >= 0) Close();
}

bool AppendFile::Open(const std::string& path) {
    if (descriptor_ >= 0) Close();
    descriptor_ = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    failed_ = descriptor_ < 0;
    return !failed_;
}

void AppendFile::Write(std::string_view text) noexcept {
    const HeldWriteSignals held;
    while (!text.empty() && !failed_) {
        const ssize_t written = write(descriptor_, text.data(), text.size());
        if (written >= 0) {
            text.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno != EINTR) {
            failed_ = true;
        }
    }
}

void AppendFile::Close() noexcept {
    if (close(descriptor_) != 0) failed_ = true;
    descriptor_ = -1;
}

}  // namespace orvanic_xr
