#include "mcp/event_dispatcher.h"

#include <algorithm>
#include <utility>

#include "diagnostics/clock.h"

namespace mcp {
namespace {

// Small answers go out together up to this size, so that many calls in flight cost few writes.
constexpr std::size_t kBatchBytes = 64u << 10;

// What a writer's buffer may keep for the next time.
constexpr std::size_t kKeptBytes = 256u << 10;

}  // namespace

event_dispatcher::event_dispatcher(std::size_t untaken_limit)
    : untaken_limit_(untaken_limit), last_activity_ns_(orvanic_xr::MonotonicNanoseconds()) {
    frame_.reserve(128);
    outgoing_.reserve(128);
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
    {
        const std::lock_guard lock(mutex_);
        if (closed_) return post_result::closed;
        if (untaken_bytes_ > 0 && text.size() > untaken_limit_ - std::min(untaken_bytes_, untaken_limit_)) {
            return post_result::too_much;
        }
        untaken_bytes_ += text.size();
        answers_.push_back(std::move(text));
    }
    posted_.notify_all();
    return post_result::stored;
}

bool event_dispatcher::await_frame(const frame_sink& sink, std::chrono::milliseconds timeout) {
    if (!sink || closed_) return false;
    std::unique_lock lock(mutex_);
    const std::int32_t target = next_id_;
    const auto frame_posted = [&] { return posted_id_ == target; };
    posted_.wait_for(lock, timeout, [&] { return !answers_.empty() || frame_posted() || closed_ || reader_released_; });
    if (closed_ || (answers_.empty() && !frame_posted())) return false;
    outgoing_.clear();
    const std::size_t answer_bytes = take_answers_locked();
    if (frame_posted()) {
        outgoing_ += frame_;
        frame_.clear();
    }
    if (outgoing_.empty()) return true;
    lock.unlock();
    const bool written = sink(outgoing_);
    if (outgoing_.capacity() > kKeptBytes) outgoing_ = {};
    lock.lock();
    untaken_bytes_ -= answer_bytes;
    if (!written) close_locked();
    return written;
}

std::size_t event_dispatcher::take_answers_locked() {
    if (answers_.empty()) return 0;
    std::size_t bytes = answers_.front().size();
    if (bytes >= kBatchBytes) {
        outgoing_ = std::move(answers_.front());
        answers_.pop_front();
        return bytes;
    }
    for (bytes = 0; !answers_.empty() && bytes + answers_.front().size() <= kBatchBytes; answers_.pop_front()) {
        bytes += answers_.front().size();
        outgoing_ += answers_.front();
    }
    return bytes;
}

void event_dispatcher::close() {
    const std::lock_guard lock(mutex_);
    close_locked();
}

void event_dispatcher::close_locked() {
    if (closed_.exchange(true)) return;
    answers_.clear();
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
