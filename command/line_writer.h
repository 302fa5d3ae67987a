// Writes lines to a pipe whose reader may be slow: whoever has something to say does not wait for him.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace velmoor {

class line_writer {
 public:
    // `broken` runs once, when nobody reads any more.
    line_writer(int output, std::function<void()> broken);
    // Writes what is left, unless the reader is gone or does not read.
    ~line_writer();
    line_writer(const line_writer&) = delete;
    line_writer& operator=(const line_writer&) = delete;

    // Any thread. A short line goes out at once, if nothing waits before it and the pipe has room.
    void write(std::string line);

 private:
    bool write_now(std::string& line);
    void run();

    const int output_;
    const std::function<void()> broken_;

    std::mutex mutex_;  // all below but the thread
    std::condition_variable changed_;
    std::deque<std::string> lines_;
    bool is_writing_ = false;  // whoever set it is the only one to write
    bool is_broken_ = false;
    bool is_stopping_ = false;

    std::thread thread_;  // last: it uses all the others
};

}  // namespace velmoor
