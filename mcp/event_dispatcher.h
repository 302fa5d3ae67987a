#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>

namespace mcp {

// Writes bytes to an open stream; false if that failed. Blocks while the client doesn't read.
using frame_sink = std::function<bool(std::string_view bytes)>;

// What one session has to tell its client, between the threads that tell it and the one HTTP worker that writes
// it. A frame sits in a single slot and is lost if the writer was busy, which is good enough for heartbeats. An
// answer is queued, and never lost or reordered while the stream lives.
class event_dispatcher {
 public:
    enum class post_result { stored, closed, too_much };

    // More than `untaken_limit` bytes of answers are not kept for a client that doesn't read.
    explicit event_dispatcher(std::size_t untaken_limit);

    // Puts a frame into the slot, over what is there. False if closed or if `text` is empty.
    bool post_frame(const std::string& text);

    // Queues a frame that must arrive. An answer larger than the limit is still taken when nothing waits.
    post_result post_answer(std::string text);

    // Waits for something to write, and writes it: all queued answers, or the first part of them if they are
    // many, and a frame that was posted during this wait. True if the stream goes on with no keepalive needed;
    // false if the time ran out, the dispatcher is closed, or writing failed, which closes it. Only one thread
    // at a time may wait.
    bool await_frame(const frame_sink& sink, std::chrono::milliseconds timeout);

    // Nothing can be posted any more, and what is queued is dropped.
    void close();
    bool is_closed() const { return closed_; }

    // Ends await_frame at once, now and from now on, when there is nothing to write. Posting goes on.
    void release_reader();

    // Sleeps for `duration`, or until closed, or until wake() finds `keep_on` cleared.
    void pause(std::chrono::milliseconds duration, const std::atomic<bool>& keep_on);
    void wake();

    void touch();
    std::int64_t last_activity_ns() const;  // by the monotonic clock

 private:
    std::size_t take_answers_locked();
    void close_locked();

    const std::size_t untaken_limit_;

    mutable std::mutex mutex_;        // all below; next_id_ and closed_ are also read without it
    std::condition_variable posted_;  // for await_frame
    std::condition_variable ended_;   // for pause, which an answer must not wake
    std::atomic<std::int32_t> next_id_{0};
    std::int32_t posted_id_ = -1;
    std::string frame_;
    std::deque<std::string> answers_;
    std::size_t untaken_bytes_ = 0;  // of answers_ and of those being written
    std::atomic<bool> closed_{false};
    bool reader_released_ = false;
    std::int64_t last_activity_ns_;

    std::string outgoing_;  // what is being written; the waiting thread's own
};

}  // namespace mcp
