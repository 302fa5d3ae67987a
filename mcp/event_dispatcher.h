#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

namespace mcp {

// The writing end of an open stream.
class frame_sink {
 public:
    virtual ~frame_sink() = default;

    // False if that failed. Waits while the client doesn't read.
    virtual bool write(std::string_view bytes) = 0;
    // True if write() would not wait, for a few kilobytes.
    virtual bool has_room() = 0;
};

// Bytes of answers that wait for clients, over all sessions.
struct untaken_total {
    explicit untaken_total(std::size_t most) : limit(most) {}

    const std::size_t limit;
    std::atomic<std::size_t> bytes{0};
};

// What one session has to tell its client, between the threads that tell it and the one HTTP worker that holds
// the stream. A frame sits in a single slot and is lost if the worker was busy, which is good enough for
// heartbeats. An answer is queued, and never lost or reordered while the stream lives.
//
// While the worker waits it lends its sink: who posts a small answer then writes it in its place, if that needs
// no waiting, which spares the client the time that waking the worker takes. At any time it is in one state:
//
//           await_frame()         something is due
//     away ----------------> lent -------------------> worker writes --> away
//      ^                      | |
//      +--- nothing in time --+ | post_answer() of a small one, and room
//                               +--------------------> poster writes --> lent
//
// and from each of them "closed", for good: by close() or a write that failed. Writing is done without the lock;
// what is posted meanwhile waits for whoever writes. What is posted while the worker is away waits for its return.
class event_dispatcher {
 public:
    enum class post_result { stored, closed, too_much, too_much_of_all };

    // More than `untaken_limit` bytes of answers are not kept for a client that doesn't read, nor are any more for one
    // that lags when `total` is full.
    explicit event_dispatcher(std::size_t untaken_limit, std::shared_ptr<untaken_total> total = nullptr);
    ~event_dispatcher();
    event_dispatcher(const event_dispatcher&) = delete;
    event_dispatcher& operator=(const event_dispatcher&) = delete;

    // Puts a frame into the slot, over what is there. False if closed or if `text` is empty.
    bool post_frame(const std::string& text);

    // Queues a frame that must arrive. An answer larger than the limits is still taken when nothing waits.
    post_result post_answer(std::string text);

    // Waits for something to write, and writes it: all queued answers, or the first part of them if they are
    // many, and a frame that was posted during this wait. True if the stream goes on with no keepalive needed;
    // false if the time ran out, the dispatcher is closed, or writing failed, which closes it. Only one thread
    // at a time may wait; without a sink it doesn't.
    bool await_frame(frame_sink* sink, std::chrono::milliseconds timeout);

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
    bool is_due_locked() const;
    void take_answers_locked(std::size_t most_bytes);
    bool write_outgoing(std::unique_lock<std::mutex>& lock, frame_sink& sink);
    void write_for_reader(std::unique_lock<std::mutex>& lock);
    void close_locked();
    post_result admit_locked(std::size_t bytes) const;
    void forget_untaken_locked(std::size_t bytes);

    const std::size_t untaken_limit_;
    const std::shared_ptr<untaken_total> total_;

    mutable std::mutex mutex_;        // all below; next_id_ and closed_ are also read without it
    std::condition_variable posted_;  // for await_frame
    std::condition_variable ended_;   // for pause, which an answer must not wake
    std::atomic<std::int32_t> next_id_{0};
    std::int32_t posted_id_ = -1;
    std::string frame_;
    std::deque<std::string> answers_;
    std::size_t untaken_bytes_ = 0;  // of answers_ and of those being written
    std::atomic<bool> closed_{false};
    std::int64_t last_activity_ns_;

    // Of the waiting worker, "the reader" of the queue.
    frame_sink* lent_sink_ = nullptr;
    std::int32_t target_ = 0;  // the id of the first frame that is posted during its wait
    bool reader_leaves_ = false;
    bool reader_released_ = false;

    // Of the thread that writes, which alone touches outgoing_, without the lock.
    bool writing_ = false;
    std::string outgoing_;
    std::size_t outgoing_answer_bytes_ = 0;
};

}  // namespace mcp
