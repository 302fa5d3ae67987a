#include "command/line_writer.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace velmoor {
namespace {

// A pipe that can be written to takes so much without waiting.
constexpr std::size_t kShort = 4096;
constexpr int kPollMilliseconds = 100;

bool has_room(int output, int milliseconds) {
    pollfd waiting{output, POLLOUT, 0};
    return poll(&waiting, 1, milliseconds) > 0;
}

}  // namespace

line_writer::line_writer(int output, std::function<void()> broken)
    : output_(output), broken_(std::move(broken)), thread_(&line_writer::run, this) {}

line_writer::~line_writer() {
    {
        const std::lock_guard lock(mutex_);
        is_stopping_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

void line_writer::write(std::string line) {
    line += '\n';
    {
        std::unique_lock lock(mutex_);
        if (is_broken_) return;
        if (is_writing_ || !lines_.empty() || line.size() > kShort || !has_room(output_, 0)) {
            lines_.push_back(std::move(line));
            changed_.notify_all();
            return;
        }
        is_writing_ = true;
    }
    const bool is_written = write_now(line);
    {
        const std::lock_guard lock(mutex_);
        is_writing_ = false;
        is_broken_ |= !is_written;
    }
    changed_.notify_all();
    if (!is_written) broken_();
}

bool line_writer::write_now(std::string& line) {
    std::size_t written = 0;
    while (written < line.size()) {
        // Waits here, where it can be told to end, and not in write().
        if (!has_room(output_, kPollMilliseconds)) {
            const std::lock_guard lock(mutex_);
            if (is_stopping_) return false;
            continue;
        }
        const ssize_t count = ::write(output_, line.data() + written, std::min(line.size() - written, kShort));
        if (count > 0) {
            written += static_cast<std::size_t>(count);
        } else if (count < 0 && errno != EINTR && errno != EAGAIN) {
            return false;
        }
    }
    return true;
}

void line_writer::run() {
    std::unique_lock lock(mutex_);
    for (;;) {
        changed_.wait(lock, [this] { return (is_stopping_ && lines_.empty()) || (!is_writing_ && !lines_.empty()); });
        if (lines_.empty()) return;
        std::string line = std::move(lines_.front());
        lines_.pop_front();
        is_writing_ = true;
        lock.unlock();
        const bool is_written = write_now(line);
        lock.lock();
        is_writing_ = false;
        if (is_written) continue;
        is_broken_ = true;
        lines_.clear();
        lock.unlock();
        broken_();
        return;
    }
}

}  // namespace velmoor
