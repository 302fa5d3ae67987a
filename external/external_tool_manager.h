// Lends the application's threads to callbacks that may only run there. The thread that serves a call queues an
// entry and waits; the application's own xrPollEvent and xrBeginFrame drain the queue, run the callbacks and wake
// the waiting threads. The wait is bounded, so an application that stopped calling OpenXR holds no call for ever.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "external/external_tool.h"

namespace orvanic_xr {

// One deferred call, shared by the queue and the waiting thread. Holds copies of all it needs: the waiting
// thread may have left before the callback runs.
struct DeferredCallbackEntry {
    explicit DeferredCallbackEntry(const ExternalTool& tool, std::string arguments);

    PFN_xrOrvanicExternalToolCallbackKESTX1 callback;
    std::uint32_t callbackFlags;
    std::string argumentsJson;
    void* userData;
    std::string toolName;
    std::vector<char> resultBuffer;  // kExternalResultSize zeros at first
    std::promise<void> completion;
    std::function<void()> need_no_frames;  // called before the promise is fulfilled
    std::int64_t enqueueTime;              // monotonic nanoseconds
    // Written before the promise is fulfilled, read after.
    bool executed = false;
    bool timedOutInQueue = false;
};

class ExternalToolManager {
 public:
    static constexpr std::int64_t kTimeoutSeconds = 5;

    explicit ExternalToolManager(std::int64_t timeout_seconds = kTimeoutSeconds) : timeoutSeconds(timeout_seconds) {}

    static ExternalToolManager& instance();

    // Throws std::runtime_error when called by a callback that the pump runs: it would wait for itself.
    void Enqueue(std::shared_ptr<DeferredCallbackEntry> entry);
    std::int64_t GetTimeoutSeconds() const { return timeoutSeconds; }

    // Runs the waiting callbacks whose flags meet `invokeBitMask` (1 in xrPollEvent, 2 in xrBeginFrame) on this
    // thread, and gives up those that waited too long. Throws nothing that a callback throws.
    void ProcessDeferredCallbacks(std::uint32_t invokeBitMask);

    // The instance ends: whoever still waits is told at once, also the caller of the callback that ends it.
    void ClearAbandoned();
    // The same, and until the next Open also for whoever comes later: the server's end waits for its callers.
    void Close();
    void Open();

 private:
    enum class Fate { kExecuted, kSkipped, kGivenUp };
    Fate FateOf(const DeferredCallbackEntry& entry, std::uint32_t invokeBitMask) const;
    std::size_t QueueSize();
    std::shared_ptr<DeferredCallbackEntry> EntryAt(std::size_t index);  // null beyond the last
    // False if it is not there any more: the end of the instance told its caller already.
    bool Remove(const std::shared_ptr<DeferredCallbackEntry>& entry);
    bool PumpingOnThisThread() const { return pumping_thread_ == std::this_thread::get_id(); }

    const std::int64_t timeoutSeconds;

    // The thread that is inside ProcessDeferredCallbacks, so that a callback which leads back here is not left
    // waiting for the turn that its own thread has.
    std::atomic<std::thread::id> pumping_thread_{};

    // Guards at_work_. On purpose held across the callbacks: they take turns, whichever threads the application
    // calls from. Taken before `mutex`.
    std::mutex turn_;
    std::shared_ptr<DeferredCallbackEntry> at_work_;  // what the pump is at

    // Guards both below. Not held across a callback: one that ends the instance waits for the calls of other tools, and
    // these may be about to queue.
    std::mutex mutex;
    std::deque<std::shared_ptr<DeferredCallbackEntry>> queue;
    bool closed_ = false;
};

}  // namespace orvanic_xr
