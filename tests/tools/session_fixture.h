// A running session over the scripted next layer, as tools find it: instance cached, session current, its context
// made, and (unless a test says otherwise) one frame waited for.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>
#include <utility>

#include "context/context_manager.h"
#include "context/session_context.h"
#include "layer/dispatch/dispatch.h"
#include "tests/fakes/fake_runtime.h"
#include "tests/fakes/log_capture.h"
#include "tests/fakes/renew.h"
#include "tests/tools/tool_answer.h"

namespace orvanic_xr {

class SessionTest : public testing::Test {
 protected:
    static constexpr XrTime kFrameTime = 1'000'000'000;

    SessionTest() {
        Renew(ContextManager::instance());
        EnableExtensions({"XR_EXT_conformance_automation", "XR_EXT_local_floor"});
        BeginSession();
    }
    ~SessionTest() override {
        context_.reset();
        Renew(ContextManager::instance());
    }

    void EnableExtensions(std::set<std::string> names) {
        InstanceState instance;
        instance.valid = true;
        instance.instance = runtime_.instance();
        instance.enabledExtensions = std::move(names);
        ContextManager::instance().setInstanceState(instance);
    }

    // Another session becomes the current one, through the fake as an application would make it.
    void BeginSession() {
        DispatchHolder::instance().Slot (&NextDispatchTable::CreateSession)(runtime_.instance(), nullptr, &session_);
        ContextManager::instance().updateSessionState({true, session_, XR_SESSION_STATE_FOCUSED, 1});
        ContextManager::instance().createSessionContext(session_);
        context_ = ContextManager::instance().getSessionContext(session_);
        context_->RecordFrameTime(kFrameTime);
        runtime_.take_calls();
        runtime_.take_lookups();
        log_.take();
    }

    FakeRuntime runtime_;
    LogCapture log_;
    XrSession session_ = XR_NULL_HANDLE;
    std::shared_ptr<SessionContext> context_;
};

}  // namespace orvanic_xr
