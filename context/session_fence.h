// Stands between the threads that the application knows nothing of and the runtime: with a session's handles, and
// with those of what belongs to it, they call only while the session lives.
#pragma once

#include <atomic>
#include <cstdint>
#include <utility>

namespace orvanic_xr {

// Any thread. No lock: whoever is inside hinders nobody but the one who closes.
class SessionFence {
 public:
    // Being inside, until it goes. Empty if the fence was closed before.
    class Pass {
     public:
        Pass() = default;
        Pass(Pass&& other) noexcept : fence_(std::exchange(other.fence_, nullptr)) {}
        Pass& operator=(Pass&&) = delete;
        ~Pass() {
            if (fence_) fence_->Leave();
        }
        explicit operator bool() const { return fence_ != nullptr; }

     private:
        friend class SessionFence;
        explicit Pass(SessionFence& fence) : fence_(&fence) {}
        SessionFence* fence_ = nullptr;
    };

    // May be entered again by who is inside.
    [[nodiscard]] Pass Enter() {
        if ((state_.fetch_add(1) & kClosed) == 0) return Pass(*this);
        Leave();
        return {};
    }

    // For good. Returns when nobody is inside; who is inside must not call it.
    void Close() {
        state_.fetch_or(kClosed);
        for (std::uint32_t state = state_; state != kClosed; state = state_) state_.wait(state);
    }
    bool closed() const { return (state_ & kClosed) != 0; }

 private:
    static constexpr std::uint32_t kClosed = 1u << 31;

    void Leave() {
        if (state_.fetch_sub(1) == (kClosed | 1)) state_.notify_all();
    }

    // kClosed, and how many are inside.
    std::atomic<std::uint32_t> state_ = 0;
};

}  // namespace orvanic_xr
