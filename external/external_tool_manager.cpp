#include "external/external_tool_manager.h"

#include <algorithm>
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
void WriteError(std::vector<char>& buffer, const std::string& text) {
    if (buffer.empty()) return;
    const std::size_t length = std::min(text.size(), buffer.size() - 1);
    std::copy_n(text.begin(), length, buffer.begin());
    buffer[length] = '\0';
}

void ExecuteEntry(DeferredCallbackEntry& entry) {
    LogInfo(" ... executing callback");
    try {
        CallWithBuffer(entry.callback, entry.resultBuffer, entry.argumentsJson, entry.userData,
                       [] { LogInfo(" ... re-execute callback (size inefficient)"); });
        entry.executed = true;
        entry.completion.set_value();
        LogInfo(" ... completed");
    } catch (const std::exception& exception) {
        LogWarning("Exception processing deferred callback: ", exception.what());
        WriteError(entry.resultBuffer, std::string("Error: ") + exception.what());
        entry.completion.set_value();
    } catch (...) {
        LogWarning("Unknown exception processing deferred callback");
        WriteError(entry.resultBuffer, "Error: Unknown exception");
        entry.completion.set_value();
    }
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
        Abandon(*entry);
    } else {
        queue.push_back(std::move(entry));
    }
}

std::int64_t ExternalToolManager::GetTimeoutSeconds() {
    std::lock_guard lock(mutex);
    return timeoutSeconds;
}

void ExternalToolManager::ProcessDeferredCallbacks(std::uint32_t invokeBitMask) {
    if (PumpingOnThisThread()) return;
    std::lock_guard lock(mutex);
    if (queue.empty()) return;
    struct PumpingMark {
        explicit PumpingMark(std::atomic<std::thread::id>& thread) : thread_(thread) {
            thread_ = std::this_thread::get_id();
        }
        ~PumpingMark() { thread_ = std::thread::id(); }
        std::atomic<std::thread::id>& thread_;
    } const mark(pumping_thread_);

    LogInfo("Processing ", queue.size(), " deferred external tool callbacks for invokeBitMask ",
            HexText(invokeBitMask));
    std::deque<std::shared_ptr<DeferredCallbackEntry>> skipped;
    while (!queue.empty()) {
        const std::shared_ptr<DeferredCallbackEntry> entry = std::move(queue.front());
        queue.pop_front();
        LogInfo("... Processing tool ", entry->toolName, " callbackFlags ", HexText(entry->callbackFlags));
        if (ProcessEntryLocked(*entry, invokeBitMask) == Fate::kSkipped) skipped.push_back(entry);
    }
    queue.swap(skipped);
    LogInfo("Remaining queue size ", queue.size());
}

ExternalToolManager::Fate ExternalToolManager::ProcessEntryLocked(DeferredCallbackEntry& entry,
                                                                  std::uint32_t invokeBitMask) {
    // Before the flags are looked at: a stale entry goes with whichever pump comes. Whole seconds, so it goes at
    // one more than the limit.
    const std::int64_t elapsed = (MonotonicNanoseconds() - entry.enqueueTime) / 1000000000;
    if (elapsed > timeoutSeconds) {
        LogWarning("External tool callback timed out in queue (elapsed: ", elapsed, "s, limit: ", timeoutSeconds, "s)");
        entry.timedOutInQueue = true;
        entry.completion.set_value();
        return Fate::kDone;
    }
    if ((entry.callbackFlags & invokeBitMask) == 0) {
        LogInfo(" ... skipped");
        return Fate::kSkipped;
    }
    ExecuteEntry(entry);
    return Fate::kDone;
}

void ExternalToolManager::ClearAbandoned() {
    std::deque<std::shared_ptr<DeferredCallbackEntry>> abandoned;
    {
        std::lock_guard lock(mutex);
        abandoned.swap(queue);
    }
    if (abandoned.empty()) return;
    LogWarning("Clearing ", abandoned.size(), " abandoned deferred callbacks (session ending)");
    Telemetry::instance().error("external_tool", "abandoned");
    for (const auto& entry : abandoned) Abandon(*entry);
}

void ExternalToolManager::Abandon(DeferredCallbackEntry& entry) {
    entry.timedOutInQueue = true;
    entry.completion.set_value();
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
