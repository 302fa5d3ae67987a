// The runtime. One mutex guards everything that lives in it; an entry point takes it for its whole
// call, so any call may come from any thread. It is let go of to sleep, and to call a graphics driver: that may take
// its time, which only the caller has to wait for, and it may call back.
//
// A call with a handle that is none is refused. VELMOOR_SIM_STRICT makes one exception, for the destroyed: a runtime
// whose handles are pointers would crash there, and so the process ends.
//
// Every entry point has one shape: find the objects, check the arguments in a fixed order, do the work. What
// is wrong is thrown as a Refusal and turned into the returned code by Guarded, in one place.
//
// Metres, radians and nanoseconds; world coordinates are those of the STAGE space.
#pragma once

#include <openxr/openxr.h>

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string_view>
#include <utility>

#include "simulator/clock.h"
#include "simulator/control_server.h"
#include "simulator/handles.h"
#include "simulator/refusal.h"

namespace simulator {

class Runtime {
 public:
    // Lives for ever: threads that nobody joined may still call while the process exits.
    static Runtime& instance();

    // What a handle stands for. Throws XR_ERROR_HANDLE_INVALID; ends the process as told above.
    std::shared_ptr<Instance> Get(XrInstance handle) const { return GetAs<Instance>(handle); }
    std::shared_ptr<Session> Get(XrSession handle) const { return GetAs<Session>(handle); }
    std::shared_ptr<Space> Get(XrSpace handle) const { return GetAs<Space>(handle); }
    std::shared_ptr<ActionSet> Get(XrActionSet handle) const { return GetAs<ActionSet>(handle); }
    std::shared_ptr<Action> Get(XrAction handle) const { return GetAs<Action>(handle); }
    std::shared_ptr<Swapchain> Get(XrSwapchain handle) const { return GetAs<Swapchain>(handle); }
    std::shared_ptr<HandTracker> Get(XrHandTrackerEXT handle) const { return GetAs<HandTracker>(handle); }

    bool IsAlive(XrInstance handle) const;
    bool IsAlive(XrSession handle) const;

    // Throws XR_ERROR_LIMIT_REACHED.
    template <class Handle, class Object>
    Handle Add(std::shared_ptr<Object> object) {
        const std::uint64_t handle = handles.Add(std::move(object));
        if (handle == 0) Refuse(XR_ERROR_LIMIT_REACHED);
        return reinterpret_cast<Handle>(handle);
    }

    template <class Object, class Handle>
    void Remove(Handle handle) {
        handles.Remove<Object>(reinterpret_cast<std::uint64_t>(handle));
    }

    std::mutex mutex;
    HandleTable handles;
    // As the newest instance was created.
    bool strict = false;
    // As the first of the living instances was created.
    Clock clock;
    // Frames that are needed wait for more that need them, so that all find the same one. Of a clock that is held.
    bool gathers = false;
    // Null where nobody steers. It is there for as long as an instance is.
    std::unique_ptr<ControlServer> control;
    // The entry point that holds the mutex, without its "xr".
    const char* entry_point = "";
    // Told whenever a frame begins, a session stops running, or the clock is set.
    std::condition_variable frame_changed;

 private:
    template <class Object, class Handle>
    std::shared_ptr<Object> GetAs(Handle handle) const {
        const auto number = reinterpret_cast<std::uint64_t>(handle);
        auto object = handles.Find<Object>(number);
        if (object) return object;
        if (strict && handles.WasDestroyed<Object>(number)) EndProcess(number);
        Refuse(XR_ERROR_HANDLE_INVALID);
    }
    [[noreturn]] void EndProcess(std::uint64_t destroyed_handle) const;
};

// Likewise; the user is told on standard error.
template <class Work>
XrResult WithoutThrowing(Work work) noexcept {
    return WithoutThrowing(std::move(work),
                           [](const char* reason) { std::fprintf(stderr, "velmoor simulator: %s\n", reason); });
}

// `work(runtime, lock)` may open the lock. Whatever it found before may be gone afterwards, and what it wants to be
// destroyed with the lock open has to outlive it. The entry point is whoever calls this.
template <class Work>
XrResult GuardedWithLock(Work work, const char* entry_point = __builtin_FUNCTION()) noexcept {
    return WithoutThrowing([&]() -> XrResult {
        Runtime& runtime = Runtime::instance();
        std::unique_lock lock(runtime.mutex);
        runtime.entry_point = entry_point;
        return work(runtime, lock);
    });
}

template <class Work>
XrResult Guarded(Work work, const char* entry_point = __builtin_FUNCTION()) noexcept {
    return GuardedWithLock([&](Runtime& runtime, auto& /*lock*/) { return work(runtime); }, entry_point);
}

// The two-call idiom: a capacity of 0 asks for the count alone. `write(i)` writes element i.
template <class Write>
XrResult WriteElements(std::size_t size, std::uint32_t capacity, std::uint32_t* count, const void* buffer,
                       Write write) {
    Require(count && (buffer || capacity == 0));
    *count = static_cast<std::uint32_t>(size);
    if (capacity == 0) return XR_SUCCESS;
    if (capacity < size) return XR_ERROR_SIZE_INSUFFICIENT;
    for (std::size_t i = 0; i < size; ++i) write(i);
    return XR_SUCCESS;
}

template <class Range, class Element>
XrResult WriteList(const Range& range, std::uint32_t capacity, std::uint32_t* count, Element* buffer) {
    return WriteElements(range.size(), capacity, count, buffer, [&](std::size_t i) { buffer[i] = range[i]; });
}

// The count takes in the terminator.
inline XrResult WriteText(std::string_view text, std::uint32_t capacity, std::uint32_t* count, char* buffer) {
    return WriteElements(text.size() + 1, capacity, count, buffer,
                         [&](std::size_t i) { buffer[i] = i < text.size() ? text[i] : '\0'; });
}

// Into a text field of fixed size; the texts are ours and fit.
template <std::size_t kSize>
void CopyText(std::string_view text, char (&field)[kSize]) {
    const std::size_t length = std::min(text.size(), kSize - 1);
    std::copy_n(text.begin(), length, field);
    field[length] = '\0';
}

// By CLOCK_MONOTONIC, in nanoseconds.
std::int64_t RealNow();
// By the runtime's clock. Needs its mutex.
XrTime Now();

}  // namespace simulator
