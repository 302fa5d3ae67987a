#include "external/external_tool.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstring>
#include <functional>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "diagnostics/clock.h"
#include "diagnostics/write_signals.h"
#include "external/external_result.h"
#include "external/external_tool_manager.h"
#include "mcp/thread_pool.h"
#include "tests/fakes/log_capture.h"

namespace orvanic_xr {
namespace {

using mcp::json;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

TEST(ShapeExternalToolResult, TurnsAnyTextIntoContent) {
    const std::pair<const char*, const char*> cases[] = {
        {R"([{"type":"text","text":"a"},{"type":"text","text":"b"}])",
         R"([{"type":"text","text":"a"},{"type":"text","text":"b"}])"},
        {R"({"type":"text","text":"a","more":1})", R"([{"type":"text","text":"a","more":1}])"},
        {R"([{"type":"text","text":"a"},1])",
         R"([{"type":"text","text":"[\n  {\n    \"type\": \"text\",\n    \"text\": \"a\"\n  },\n  1\n]"}])"},
        {R"({"score":7})", R"([{"type":"text","text":"{\n  \"score\": 7\n}"}])"},
        {"[]", R"([{"type":"text","text":"[]"}])"},
        {R"("hi")", R"([{"type":"text","text":"\"hi\""}])"},
        {"plain words", R"([{"type":"text","text":"plain words"}])"},
        {"\xff", "[{\"type\":\"text\",\"text\":\"\xEF\xBF\xBD\"}]"},
    };
    for (const auto& [text, content] : cases) EXPECT_EQ(mcp::dump_json(ShapeExternalToolResult(text)), content);
    const std::string deep = std::string(300, '[') + std::string(300, ']');
    EXPECT_EQ(ShapeExternalToolResult(deep)[0]["text"], deep);
}

// The callback of a test's own making: what it does stands in `body`.
struct Script {
    std::function<XrResult(char* buffer, std::uint32_t capacity, std::uint32_t* size, const std::string& arguments)>
        body;
    std::atomic<int> calls = 0;
};

XrResult XRAPI_CALL RunScript(char* buffer, std::uint32_t capacity, std::uint32_t* size, const char* arguments,
                              void* user_data) {
    auto& script = *static_cast<Script*>(user_data);
    ++script.calls;
    return script.body(buffer, capacity, size, arguments);
}

class ExternalTools : public testing::Test {
 protected:
    ExternalTool Tool(std::uint32_t flags) { return {"game_tool", RunScript, flags, &script_}; }

    std::string Run(std::uint32_t flags = 0, const json& arguments = json::object()) {
        return ExecuteExternalTool(Tool(flags), arguments, manager_).at(0).at("text");
    }
    std::future<std::string> RunWaiting(std::uint32_t flags) {
        return std::async(std::launch::async, [this, flags] { return Run(flags); });
    }
    // Waits until a call is queued, by pumps that run nothing; the log lines until then are taken.
    void AwaitQueued() {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (std::chrono::steady_clock::now() < deadline) {
            manager_.ProcessDeferredCallbacks(0);
            const auto lines = log_.take();
            if (std::find(lines.begin(), lines.end(), "INFO Remaining queue size 1") != lines.end()) return;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        ADD_FAILURE() << "not queued";
    }
    // Has a call wait, and pumps once.
    std::string RunDeferred(std::uint32_t flags, std::uint32_t pumped) {
        auto waiting = RunWaiting(flags);
        AwaitQueued();
        manager_.ProcessDeferredCallbacks(pumped);
        return waiting.get();
    }
    void Answer(const std::string& text, XrResult result = XR_SUCCESS) {
        script_.body = [text, result](char* buffer, std::uint32_t capacity, std::uint32_t* size, const std::string&) {
            *size = static_cast<std::uint32_t>(text.size());
            if (text.size() >= capacity) return XR_ERROR_SIZE_INSUFFICIENT;
            text.copy(buffer, text.size());
            return result;
        };
    }

    Script script_;
    LogCapture log_;
    ExternalToolManager manager_;
};

TEST_F(ExternalTools, GiveALongResultTheRoomItAsksForOnce) {
    const std::string text(100000, 'x');
    Answer(text);
    EXPECT_EQ(Run(), text);
    EXPECT_EQ(script_.calls, 2);
    EXPECT_EQ(log_.lines("WARNING").front(), "WARNING External tool result may have been truncated (buffer full)");
    EXPECT_EQ(RunDeferred(3, 2), text);
    EXPECT_EQ(script_.calls, 4);
    EXPECT_THAT(log_.lines(), Contains("INFO  ... re-execute callback (size inefficient)"));
}

TEST_F(ExternalTools, RefuseAbsurdRequestsForRoom) {
    for (const auto& [asked, calls] : {std::pair{0xFFFFFFFFu, 1}, {268435456u, 1}, {0u, 2}, {10u, 2}}) {
        SCOPED_TRACE(asked);
        script_.calls = 0;
        script_.body = [size_asked = asked](char*, std::uint32_t, std::uint32_t* size, const std::string&) {
            *size = size_asked;
            return XR_ERROR_SIZE_INSUFFICIENT;
        };
        EXPECT_EQ(Run(), "Error: External tool callback failed: -11");
        EXPECT_EQ(script_.calls, calls);
    }
}

TEST_F(ExternalTools, StopAtTheBufferWhateverTheCallbackClaims) {
    script_.body = [](char* buffer, std::uint32_t capacity, std::uint32_t* size, const std::string&) {
        std::memset(buffer, 'y', capacity);  // no terminator anywhere
        buffer[0] = '"';                     // the parser's error quotes all of it
        *size = 5;
        return XR_SUCCESS;
    };
    EXPECT_EQ(Run().size(), 65536u);
    EXPECT_THAT(log_.lines("WARNING"),
                ElementsAre("WARNING External tool result may have been truncated (buffer full)",
                            "WARNING External tool result length doesn't match (outputSize: 5, resultStrLen: 65536)",
                            testing::AllOf(HasSubstr("non-JSON result"), testing::SizeIs(testing::Lt(600u)))));
}

TEST_F(ExternalTools, HaveTheSignalsOfTheApplicationWhereTheServerHoldsThem) {
    script_.body = [](char*, std::uint32_t, std::uint32_t*, const std::string&) {
        sigset_t blocked;
        pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
        return sigismember(&blocked, SIGPIPE) == 1 ? XR_ERROR_RUNTIME_FAILURE : XR_SUCCESS;
    };
    std::thread([this] {
        HoldWriteSignalsOnThisThread();
        EXPECT_EQ(Run(), "");
    }).join();
}

TEST_F(ExternalTools, SurviveWhatCallbacksThrow) {
    script_.body = [](auto...) -> XrResult { throw std::runtime_error("no such cube"); };
    EXPECT_EQ(Run(), "Internal error: no such cube");
    EXPECT_EQ(log_.lines().back(), "ERROR Exception in external tool wrapper: no such cube");
    script_.body = [](auto...) -> XrResult { throw 7; };
    EXPECT_EQ(Run(), "Internal error: unknown exception");
    EXPECT_EQ(RunDeferred(1, 1), "Error: Unknown exception");
    script_.body = [](auto...) -> XrResult { throw std::runtime_error(std::string(70000, 'e')); };
    EXPECT_EQ(RunDeferred(1, 1), "Error: " + std::string(65535 - 7, 'e')) << "cut to the buffer";
}

TEST_F(ExternalTools, WaitForTheThreadThatTheirFlagsName) {
    std::thread::id ran_on;
    script_.body = [&](char* buffer, std::uint32_t, std::uint32_t*, const std::string&) {
        ran_on = std::this_thread::get_id();
        std::strcpy(buffer, "done");
        return XR_ERROR_RUNTIME_FAILURE;  // not looked at here: what stands in the buffer counts
    };
    auto waiting = RunWaiting(2);
    AwaitQueued();
    log_.take();
    manager_.ProcessDeferredCallbacks(1);
    EXPECT_THAT(log_.take(), ElementsAre("INFO Processing 1 deferred external tool callbacks for invokeBitMask 0x1",
                                         "INFO ... Processing tool game_tool callbackFlags 0x2", "INFO  ... skipped",
                                         "INFO Remaining queue size 1"));
    manager_.ProcessDeferredCallbacks(2);
    EXPECT_EQ(waiting.get(), "done");
    EXPECT_EQ(ran_on, std::this_thread::get_id());
    log_.take();
    manager_.ProcessDeferredCallbacks(2);
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(ExternalTools, KeepTheOrderOfTheSkipped) {
    std::vector<std::string> order;
    script_.body = [&](char*, std::uint32_t, std::uint32_t*, const std::string& arguments) {
        order.push_back(arguments);
        return XR_SUCCESS;
    };
    for (const char* arguments : {"first", "second", "third"}) {
        manager_.Enqueue(std::make_shared<DeferredCallbackEntry>(Tool(2), arguments));
    }
    manager_.ProcessDeferredCallbacks(1);
    manager_.ProcessDeferredCallbacks(2);
    EXPECT_THAT(order, ElementsAre("first", "second", "third"));
}

TEST_F(ExternalTools, AreGivenUpInTheQueueAtSixSeconds) {
    FakeClock clock(0, 1'000'000'000);
    Answer("late");
    auto entry = std::make_shared<DeferredCallbackEntry>(Tool(1), "{}");
    manager_.Enqueue(entry);
    clock.Advance(5'999'999'999);
    manager_.ProcessDeferredCallbacks(2);
    EXPECT_FALSE(entry->timedOutInQueue);
    clock.Advance(1);
    manager_.ProcessDeferredCallbacks(2);  // by either pump, whatever the flags
    EXPECT_TRUE(entry->timedOutInQueue);
    EXPECT_EQ(script_.calls, 0);
    EXPECT_THAT(log_.lines("WARNING"),
                ElementsAre("WARNING External tool callback timed out in queue (elapsed: 6s, limit: 5s)"));
}

TEST_F(ExternalTools, ReportAnApplicationThatStoppedCallingOpenXr) {
    ExternalToolManager impatient(0);
    Answer("late");
    EXPECT_EQ(ExecuteExternalTool(Tool(2), json::object(), impatient)[0]["text"],
              "Error: External tool callback timed out waiting for main thread");
    EXPECT_THAT(log_.lines("ERROR"),
                ElementsAre("ERROR External tool call timed out waiting for main thread (timeout: 0s)"));
    impatient.ProcessDeferredCallbacks(2);
    EXPECT_EQ(script_.calls, 1) << "the entry stayed in the queue and still runs";
}

TEST_F(ExternalTools, HoldNobodyUpAndAreToldAtOnceThatTheInstanceEnds) {
    std::string answer;
    mcp::thread_pool pool(1);
    auto waiting = pool.enqueue([&] { answer = Run(2); });
    AwaitQueued();
    EXPECT_EQ(pool.enqueue([] {}).wait_for(std::chrono::seconds(3)), std::future_status::ready);
    manager_.ClearAbandoned();
    waiting.wait();
    EXPECT_EQ(answer, "Error: External tool callback timed out in processing queue");
    EXPECT_THAT(log_.lines("WARNING"), ElementsAre("WARNING Clearing 1 abandoned deferred callbacks (session ending)"));
    log_.take();
    manager_.ClearAbandoned();
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(ExternalTools, CannotMakeACallbackWaitForItself) {
    std::string inner;
    script_.body = [&](char* buffer, std::uint32_t, std::uint32_t*, const std::string&) {
        if (inner.empty()) {
            inner = "called";
            inner = Run(1);
            manager_.ProcessDeferredCallbacks(1);
        }
        std::strcpy(buffer, "outer");
        return XR_SUCCESS;
    };
    EXPECT_EQ(RunDeferred(1, 1), "outer");
    EXPECT_EQ(inner, "Internal error: a deferred tool callback cannot wait for another one");
}

// It may end the instance, which waits for calls that are about to queue.
TEST_F(ExternalTools, KeepNobodyFromTheQueueWhileOneRuns) {
    std::future<void> queueing;
    script_.body = [&](auto...) {
        if (script_.calls > 1) return XR_SUCCESS;
        queueing = std::async(std::launch::async,
                              [this] { manager_.Enqueue(std::make_shared<DeferredCallbackEntry>(Tool(1), "{}")); });
        EXPECT_EQ(queueing.wait_for(std::chrono::seconds(3)), std::future_status::ready);
        return XR_SUCCESS;
    };
    manager_.Enqueue(std::make_shared<DeferredCallbackEntry>(Tool(1), "{}"));
    manager_.ProcessDeferredCallbacks(1);
    EXPECT_EQ(script_.calls, 1) << "the new one is the next pump's";
    manager_.ProcessDeferredCallbacks(1);
    EXPECT_EQ(script_.calls, 2);
}

TEST_F(ExternalTools, TakeTurnsOnTwoPumpingThreads) {
    std::atomic<int> inside = 0;
    std::atomic<bool> overlapped = false;
    script_.body = [&](char* buffer, std::uint32_t, std::uint32_t*, const std::string&) {
        if (++inside > 1) overlapped = true;
        std::strcpy(buffer, "1");
        --inside;
        return XR_SUCCESS;
    };
    std::atomic<bool> stop = false;
    std::thread poll([&] {
        while (!stop) manager_.ProcessDeferredCallbacks(1);
    });
    std::thread frame([&] {
        while (!stop) manager_.ProcessDeferredCallbacks(2);
    });
    std::vector<std::future<std::string>> calls;
    for (int i = 0; i < 30; ++i) calls.push_back(RunWaiting(static_cast<std::uint32_t>(1 + i % 3)));
    for (auto& call : calls) EXPECT_EQ(call.get(), "1");
    stop = true;
    poll.join();
    frame.join();
    EXPECT_EQ(script_.calls, 30);
    EXPECT_FALSE(overlapped);
}

}  // namespace
}  // namespace orvanic_xr
