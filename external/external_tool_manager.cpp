#include "external/external_tool_manager.h"

#include <cstdio>
#include <exception>
#include <stdexcept>
#include <utility>

#include "diagnostics/clock.h"
#include "diagnostics/logger.h"
#include "diagnostics/number_text.h"
#include "diagnostics/telemetry.h"
#include "external/callback_buffer.h"

namespace orvanic_xr {
namespace {

// What the agent reads of a callback that threw: as much of it as the buffer holds, and a terminator.
void WriteError(std::vector<char>& buffer, const char* text) noexcept {
    std::snprintf(buffer.data(), buffer.size(), "Error: %s", text);
}

// The one who waits is told once: a callback that ended the instance finds its own call given up.
void Complete(DeferredCallbackEntry& entry) {
    if (entry.need_no_frames) entry.need_no_frames();
    try {
        entry.completion.set_value();
    } catch (const std::future_error&) {
    }
}

void GiveUp(DeferredCallbackEntry& entry) {
    entry.timedOutInQueue = true;
    Complete(entry);
}

void ExecuteEntry(DeferredCallbackEntry& entry) {
    LogInfo(" ... executing callback");
    try {
        CallWithBuffer(entry.callback, entry.resultBuffer, entry.argumentsJson, entry.userData,
                       [] { LogInfo(" ... re-execute callback (size inefficient)"); });
        entry.executed = true;
    } catch (const std::exception& exception) {
        LogWarning("Exception processing deferred callback: ", exception.what());
        WriteError(entry.resultBuffer, exception.what());
    } catch (...) {
        LogWarning("Unknown exception processing deferred callback");
        WriteError(entry.resultBuffer, "Unknown exception");
    }
    const bool executed = entry.executed;
    Complete(entry);
    if (executed) LogInfo(" ... completed");
}

}  // namespace

DeferredCallbackEntry::DeferredCallbackEntry(const ExternalTool& tool, std::string arguments)
    : callback(tool.callback),
      callbackFlags(tool.callbackFlags),
      argumentsJson(std::move(arguments)),
      userData(tool.userData),
      toolName(tool.name),
      resultBuffer(kExternalResultSize),
      enqueueTime(MonotonicNanoseconds()) {}

ExternalToolManager& ExternalToolManager::instance() {
    // Never destroyed: calls may still wait while the process ends.
    static ExternalToolManager& manager = *new ExternalToolManager;
    return manager;
}

void ExternalToolManager::Enqueue(std::shared_ptr<DeferredCallbackEntry> entry) {
    if (PumpingOnThisThread()) throw std::runtime_error("a deferred tool callback cannot wait for another one");
    std::lock_guard lock(mutex);
    if (closed_) {
        GiveUp(*entry);
    } else {
        queue.push_back(std::move(entry));
    }
}

void ExternalToolManager::ProcessDeferredCallbacks(std::uint32_t invokeBitMask) {
    if (PumpingOnThisThread() || QueueSize() == 0) return;
    std::lock_guard turn(turn_);
    struct PumpingMark {
        explicit PumpingMark(ExternalToolManager& manager) : manager_(manager) {
            manager_.pumping_thread_ = std::this_thread::get_id();
        }
        ~PumpingMark() {
            manager_.at_work_.reset();
            manager_.pumping_thread_ = std::thread::id();
        }
        ExternalToolManager& manager_;
    } const mark(*this);

    // Who comes from now on waits for the next pump.
    std::size_t waiting = QueueSize();
    if (waiting == 0) return;
    LogInfo("Processing ", waiting, " deferred external tool callbacks for invokeBitMask ", HexText(invokeBitMask));
    for (std::size_t skipped = 0; waiting > 0 && (at_work_ = EntryAt(skipped)); --waiting) {
        LogInfo("... Processing tool ", at_work_->toolName, " callbackFlags ", HexText(at_work_->callbackFlags));
        switch (FateOf(*at_work_, invokeBitMask)) {
            case Fate::kSkipped:
                LogInfo(" ... skipped");
                ++skipped;
                break;
            case Fate::kGivenUp:
                if (Remove(at_work_)) GiveUp(*at_work_);
                break;
            case Fate::kExecuted:
                if (Remove(at_work_)) ExecuteEntry(*at_work_);
                break;
        }
    }
    LogInfo("Remaining queue size ", QueueSize());
}

ExternalToolManager::Fate ExternalToolManager::FateOf(const DeferredCallbackEntry& entry,
                                                      std::uint32_t invokeBitMask) const {
    // Before the flags are looked at: a stale entry goes with whichever pump comes. Whole seconds, so it goes at
    // one more than the limit.
    const std::int64_t elapsed = (MonotonicNanoseconds() - entry.enqueueTime) / 1000000000;
    if (elapsed > timeoutSeconds) {
        LogWarning("External tool callback timed out in queue (elapsed: ", elapsed, "s, limit: ", timeoutSeconds, "s)");
        return Fate::kGivenUp;
    }
    return (entry.callbackFlags & invokeBitMask) == 0 ? Fate::kSkipped : Fate::kExecuted;
}

std::size_t ExternalToolManager::QueueSize() {
    std::lock_guard lock(mutex);
    return queue.size();
}

std::shared_ptr<DeferredCallbackEntry> ExternalToolManager::EntryAt(std::size_t index) {
    std::lock_guard lock(mutex);
    return index < queue.size() ? queue[index] : nullptr;
}

bool ExternalToolManager::Remove(const std::shared_ptr<DeferredCallbackEntry>& entry) {
    std::lock_guard lock(mutex);
    return std::erase(queue, entry) > 0;
}

void ExternalToolManager::ClearAbandoned() {
    std::deque<std::shared_ptr<DeferredCallbackEntry>> abandoned;
    {
        std::lock_guard lock(mutex);
        abandoned.swap(queue);
    }
    if (PumpingOnThisThread()) abandoned.push_back(at_work_);
    if (abandoned.empty()) return;
    LogWarning("Clearing ", abandoned.size(), " abandoned deferred callbacks (session ending)");
    Telemetry::instance().error("external_tool", "abandoned");
    for (const auto& entry : abandoned) GiveUp(*entry);
}

void ExternalToolManager::Close() {
    {
        std::lock_guard lock(mutex);
        closed_ = true;
    }
    ClearAbandoned();
}

void ExternalToolManager::Open() {
    std::lock_guard lock(mutex);
    closed_ = false;
}

}  // namespace orvanic_xr
