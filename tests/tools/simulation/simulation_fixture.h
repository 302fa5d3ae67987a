// A running session over the scripted next layer, as the simulation tools find it: instance cached, session
// current, its context made, and (unless a test says otherwise) one frame waited for.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include "context/context_manager.h"
#include "context/session_context.h"
#include "mcp/json.h"
#include "tests/fakes/fake_runtime.h"
#include "tests/fakes/log_capture.h"
#include "tests/fakes/renew.h"
#include "tools/math/pose_math.h"
#include "tools/simulation/pose_animation_manager.h"
#include "tools/simulation/simulation_tools.h"

namespace orvanic_xr {

class SimulationTest : public testing::Test {
 protected:
    static constexpr XrTime kFrameTime = 1'000'000'000;

    SimulationTest() {
        Renew(ContextManager::instance());
        InstanceState instance;
        instance.valid = true;
        instance.instance = runtime_.instance();
        instance.enabledExtensions = {"XR_EXT_conformance_automation", "XR_EXT_local_floor"};
        ContextManager::instance().setInstanceState(instance);
        BeginSession();
        context_->RecordFrameTime(kFrameTime);
        runtime_.take_calls();
        runtime_.take_lookups();
        log_.take();
    }

    ~SimulationTest() override {
        PoseAnimationManager::instance().CancelAll();
        context_.reset();
        Renew(ContextManager::instance());
    }

    // Another session becomes the current one, through the fake as an application would make it.
    void BeginSession() {
        const auto create_session = Next<PFN_xrCreateSession>("xrCreateSession");
        XrSessionCreateInfo info{XR_TYPE_SESSION_CREATE_INFO, nullptr, 0, 1};
        session_ = XR_NULL_HANDLE;
        create_session(runtime_.instance(), &info, &session_);
        SessionState state;
        state.valid = true;
        state.session = session_;
        ContextManager::instance().updateSessionState(state);
        ContextManager::instance().createSessionContext(session_);
        context_ = ContextManager::instance().getSessionContext(session_);
    }

    template <typename Function>
    Function Next(const char* name) {
        PFN_xrVoidFunction function = nullptr;
        FakeRuntime::next_get_instance_proc_addr()(runtime_.instance(), name, &function);
        return reinterpret_cast<Function>(function);
    }

    // The text of the tool's one content item.
    static std::string Call(ToolEntry (*make)(), const mcp::json& arguments) {
        const mcp::json content = make().handler(arguments, "");
        EXPECT_EQ(content.size(), 1u);
        return content.at(0).at("text").get<std::string>();
    }

    // Whether a line that holds `text` comes into the log, within ten seconds.
    bool WaitFor(const std::string& text) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (std::chrono::steady_clock::now() < deadline) {
            for (const std::string& line : log_.lines()) {
                if (line.find(text) != std::string::npos) return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return false;
    }

    void Activate() { context_->conformance_automation_active = true; }

    FakeRuntime runtime_;
    LogCapture log_;
    XrSession session_ = XR_NULL_HANDLE;
    std::shared_ptr<SessionContext> context_;
};

}  // namespace orvanic_xr
