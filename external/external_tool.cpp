#include "external/external_tool.h"

#include <chrono>
#include <cstring>
#include <exception>
#include <future>
#include <memory>

#include "context/context_manager.h"
#include "diagnostics/clock.h"
#include "diagnostics/logger.h"
#include "diagnostics/telemetry.h"
#include "diagnostics/write_signals.h"
#include "external/callback_buffer.h"
#include "external/external_result.h"
#include "external/external_tool_manager.h"
#include "mcp/thread_pool.h"
#include "tools/simulation/frame_demand.h"
#include "tools/tool_entry.h"
#include "tools/tool_results.h"

namespace orvanic_xr {
namespace {

constexpr char kCategory[] = "external_unity";

// One call from its start to its answer: every way out tells telemetry how it ended.
class ExternalCall {
 public:
    ExternalCall(const ExternalTool& tool, const json& arguments) : tool_(tool) {
        const ToolCallIntent intent = extract_reason_and_sentiment(arguments);
        Telemetry::instance().tool_start(tool_.name, kCategory, intent.reason, intent.sentiment);
        start_ns_ = MonotonicNanoseconds();
    }

    json Succeed(const std::string& text) const {
        Finish(true, {});
        return ShapeExternalToolResult(text);
    }

    json Fail(const std::string& telemetry_text, const std::string& answer) const {
        Finish(false, telemetry_text);
        return make_text_tool_result(answer);
    }

 private:
    void Finish(bool success, const std::string& error_text) const {
        const std::int64_t latency_ms = (MonotonicNanoseconds() - start_ns_) / 1000000;
        Telemetry::instance().tool_finish(tool_.name, latency_ms, success, error_text, kCategory);
    }

    const ExternalTool& tool_;
    std::int64_t start_ns_ = 0;
};

// Length of the text, with the warning that a full buffer may have cut it.
std::size_t ResultLength(const std::vector<char>& buffer) {
    const std::size_t length = TextLength(buffer);
    if (length + 1 >= buffer.size()) LogWarning("External tool result may have been truncated (buffer full)");
    return length;
}

bool CompletesInTime(const std::future<void>& completed, std::int64_t limit_seconds) {
    const mcp::lent_place lent;
    return completed.wait_for(std::chrono::seconds(limit_seconds)) == std::future_status::ready;
}

json RunDeferred(const ExternalTool& tool, const ExternalCall& call, std::string arguments_json,
                 ExternalToolManager& manager) {
    LogInfo("External tool callback queued: ", tool.name, " callbackFlags: ", tool.callbackFlags);
    const auto entry = std::make_shared<DeferredCallbackEntry>(tool, std::move(arguments_json));
    const std::future<void> completed = entry->completion.get_future();
    LogInfo(" ... waiting");
    const FrameNeed need(ContextManager::instance().getSessionState().session);
    entry->need_no_frames = [need] { need.End(); };
    manager.Enqueue(entry);
    need.Begin();
    const std::int64_t limit = manager.GetTimeoutSeconds();
    const bool timed_out = !CompletesInTime(completed, limit);
    LogInfo(" ... completed. timeout_status: ", timed_out);
    if (timed_out) {
        need.End();
        // The entry stays in the queue: the pump still runs it, or drops it when it is too old.
        LogError("External tool call timed out waiting for main thread (timeout: ", limit, "s)");
        return call.Fail("timeout_waiting_for_main_thread",
                         "Error: External tool callback timed out waiting for main thread");
    }
    need.Rest();
    if (entry->timedOutInQueue) {
        const std::int64_t elapsed = (MonotonicNanoseconds() - entry->enqueueTime) / 1000000000;
        LogError("External tool callback timed out in queue (elapsed: ", elapsed, "s)");
        return call.Fail("timeout_in_processing_queue", "Error: External tool callback timed out in processing queue");
    }
    return call.Succeed({entry->resultBuffer.data(), ResultLength(entry->resultBuffer)});
}

json RunImmediately(const ExternalTool& tool, const ExternalCall& call, const std::string& arguments_json) {
    LogInfo("Immediately revoke tool: ", tool.name);
    std::vector<char> buffer(kExternalResultSize);
    const CallbackOutcome outcome = [&] {
        const ReleasedWriteSignals as_in_the_application;
        return CallWithBuffer(tool.callback, buffer, arguments_json, tool.userData, [] {});
    }();
    if (outcome.result != XR_SUCCESS) {
        const std::string number = std::to_string(static_cast<int>(outcome.result));
        LogError("External tool callback failed: ", number);
        return call.Fail("callback_failed: " + number, "Error: External tool callback failed: " + number);
    }
    const std::size_t length = ResultLength(buffer);
    if (outcome.output_size < length) {
        LogWarning("External tool result length doesn't match (outputSize: ", outcome.output_size,
                   ", resultStrLen: ", length, ")");
    }
    return call.Succeed({buffer.data(), length});
}

}  // namespace

std::size_t TextLength(const std::vector<char>& buffer) {
    return strnlen(buffer.data(), buffer.size());
}

json ExecuteExternalTool(const ExternalTool& tool, const json& arguments, ExternalToolManager& manager) {
    const ExternalCall call(tool, arguments);
    try {
        std::string arguments_json = mcp::dump_json(arguments);
        if ((tool.callbackFlags & kDeferralFlags) == 0) return RunImmediately(tool, call, arguments_json);
        return RunDeferred(tool, call, std::move(arguments_json), manager);
    } catch (const std::exception& exception) {
        LogError("Exception in external tool wrapper: ", PeerText{exception.what(), kErrorTextBytes});
        return call.Fail(exception.what(), std::string("Internal error: ") + exception.what());
    } catch (...) {
        LogError("Unknown exception in external tool wrapper");
        return call.Fail("unknown_exception", "Internal error: unknown exception");
    }
}

json ExecuteExternalTool(const ExternalTool& tool, const json& arguments) {
    return ExecuteExternalTool(tool, arguments, ExternalToolManager::instance());
}

}  // namespace orvanic_xr
