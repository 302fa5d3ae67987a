#include "mcp/event_dispatcher.h"

#include <algorithm>
#include <exception>
#include <limits>
#include <utility>

#include "diagnostics/clock.h"

namespace mcp {
namespace {

// Small answers go out together up to this size, so that many calls in flight cost few writes.
constexpr std::size_t kBatchBytes = 64u << 10;

// A stream with room has room for this much.
constexpr std::size_t kLentBytes = 8u << 10;

// What the buffer of what goes out may keep for the next time.
constexpr std::size_t kKeptBytes = 256u << 10;

}  // namespace

event_dispatcher::event_dispatcher(std::size_t untaken_limit, std::shared_ptr<untaken_total> total)
    : untaken_limit_(untaken_limit),
      total_(total ? std::move(total) : std::make_shared<untaken_total>(std::numeric_limits<std::size_t>::max())),
      last_activity_ns_(orvanic_xr::MonotonicNanoseconds()) {
    frame_.reserve(128);
    outgoing_.reserve(128);
}

event_dispatcher::~event_dispatcher() {
    total_->bytes -= untaken_bytes_;
}

bool event_dispatcher::post_frame(const std::string& text) {
    if (closed_ || text.empty()) return false;
    {
        const std::lock_guard lock(mutex_);
        if (closed_) return false;
        if (frame_.capacity() < text.size()) frame_.reserve(text.size() + 64);
        frame_.assign(text);
        posted_id_ = next_id_++;
    }
    posted_.notify_all();
    return true;
}

event_dispatcher::post_result event_dispatcher::post_answer(std::string text) {
    std::unique_lock lock(mutex_);
    if (closed_) return post_result::closed;
    const std::size_t bytes = text.size();
    if (const post_result admitted = admit_locked(bytes); admitted != post_result::stored) return admitted;
    answers_.push_back(std::move(text));
    untaken_bytes_ += bytes;
    total_->bytes += bytes;
    if (writing_) return post_result::stored;  // who writes looks again
    if (lent_sink_) write_for_reader(lock);
    if (is_due_locked()) posted_.notify_all();
    return post_result::stored;
}

event_dispatcher::post_result event_dispatcher::admit_locked(std::size_t bytes) const {
    if (untaken_bytes_ == 0) return post_result::stored;
    const std::size_t all = total_->bytes;
    if (bytes > untaken_limit_ - std::min(untaken_bytes_, untaken_limit_)) return post_result::too_much;
    return bytes > total_->limit - std::min(all, total_->limit) ? post_result::too_much_of_all : post_result::stored;
}

void event_dispatcher::forget_untaken_locked(std::size_t bytes) {
    untaken_bytes_ -= bytes;
    total_->bytes -= bytes;
}

void event_dispatcher::write_for_reader(std::unique_lock<std::mutex>& lock) {
    while (!closed_ && !answers_.empty() && answers_.front().size() <= kLentBytes && lent_sink_->has_room()) {
        take_answers_locked(kLentBytes);
        write_outgoing(lock, *lent_sink_);
    }
}

bool event_dispatcher::is_due_locked() const {
    return !answers_.empty() || posted_id_ >= target_ || closed_ || reader_released_ || reader_leaves_;
}

bool event_dispatcher::await_frame(frame_sink* sink, std::chrono::milliseconds timeout) {
    if (!sink || closed_) return false;
    std::unique_lock lock(mutex_);
    target_ = next_id_;
    lent_sink_ = sink;
    posted_.wait_for(lock, timeout, [this] { return is_due_locked() && !writing_; });
    reader_leaves_ = true;
    posted_.wait(lock, [this] { return !writing_; });
    reader_leaves_ = false;
    lent_sink_ = nullptr;
    if (closed_ || (answers_.empty() && posted_id_ < target_)) return false;
    take_answers_locked(kBatchBytes);
    if (posted_id_ >= target_) {
        outgoing_ += frame_;
        frame_.clear();
    }
    return outgoing_.empty() || write_outgoing(lock, *sink);
}

void event_dispatcher::take_answers_locked(std::size_t most_bytes) {
    outgoing_.clear();
    outgoing_answer_bytes_ = 0;
    while (!answers_.empty()) {
        std::string& next = answers_.front();
        if (outgoing_.empty() && next.size() >= most_bytes) {
            outgoing_ = std::move(next);
            outgoing_answer_bytes_ = outgoing_.size();
            answers_.pop_front();
            return;
        }
        if (outgoing_.size() + next.size() > most_bytes) return;
        outgoing_ += next;
        outgoing_answer_bytes_ += next.size();
        answers_.pop_front();
    }
}

bool event_dispatcher::write_outgoing(std::unique_lock<std::mutex>& lock, frame_sink& sink) {
    writing_ = true;
    lock.unlock();
    bool written = false;
    std::exception_ptr thrown;
    try {
        written = sink.write(outgoing_);
    } catch (...) {
        thrown = std::current_exception();
    }
    if (outgoing_.capacity() > kKeptBytes) outgoing_ = {};
    lock.lock();
    writing_ = false;
    forget_untaken_locked(std::exchange(outgoing_answer_bytes_, 0));
    if (!written) close_locked();
    if (thrown) std::rethrow_exception(thrown);
    return written;
}

void event_dispatcher::close() {
    const std::lock_guard lock(mutex_);
    close_locked();
}

void event_dispatcher::close_locked() {
    if (closed_.exchange(true)) return;
    answers_.clear();
    forget_untaken_locked(untaken_bytes_ - outgoing_answer_bytes_);  // what is being written is still in memory
    posted_.notify_all();
    ended_.notify_all();
}

void event_dispatcher::release_reader() {
    const std::lock_guard lock(mutex_);
    reader_released_ = true;
    posted_.notify_all();
}

void event_dispatcher::pause(std::chrono::milliseconds duration, const std::atomic<bool>& keep_on) {
    std::unique_lock lock(mutex_);
    ended_.wait_for(lock, duration, [&] { return closed_ || !keep_on; });
}

void event_dispatcher::wake() {
    const std::lock_guard lock(mutex_);
    ended_.notify_all();
}

void event_dispatcher::touch() {
    const std::lock_guard lock(mutex_);
    last_activity_ns_ = orvanic_xr::MonotonicNanoseconds();
}

std::int64_t event_dispatcher::last_activity_ns() const {
    const std::lock_guard lock(mutex_);
    return last_activity_ns_;
}

}  // namespace mcp
