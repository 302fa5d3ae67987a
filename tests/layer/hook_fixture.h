// A session over FakeRuntime, with everything process-wide as new, for tests that call hooks.
#pragma once

#include <gmock/gmock.h>

#include <string>

#include "context/context_manager.h"
#include "context/session_context.h"
#include "external/external_tool_manager.h"
#include "layer/action_maps.h"
#include "layer/binding_mirror.h"
#include "layer/dispatch/dispatch.h"
#include "tests/fakes/fake_runtime.h"
#include "tests/fakes/log_capture.h"
#include "tests/fakes/renew.h"
#include "tools/simulation/pose_animation_manager.h"
#include "xr/handles.h"

namespace orvanic_xr {

class HookFixture : public testing::Test {
 protected:
    HookFixture() {
        Renew(ActionMaps::instance());
        Renew(BindingMirror::instance());
        Renew(ContextManager::instance());
        PoseAnimationManager::instance().Open();
        ExternalToolManager::instance().Open();
        InstanceState state;
        state.valid = true;
        state.instance = runtime_.instance();
        ContextManager::instance().setInstanceState(state);
    }
    // Contexts go while their runtime is still there.
    ~HookFixture() override { Renew(ContextManager::instance()); }

    // Makes a session current, with the layer's context of it, and forgets the calls and lines of doing so.
    XrSession OpenSession() {
        XrSession session = XR_NULL_HANDLE;
        Next (&NextDispatchTable::CreateSession)(runtime_.instance(), nullptr, &session);
        ContextManager::instance().createSessionContext(session);
        ContextManager::instance().updateSessionState({true, session, XR_SESSION_STATE_FOCUSED, 1});
        runtime_.take_calls();
        log_.take();
        return session;
    }

    static SessionContext& Context(XrSession session) { return *ContextManager::instance().getSessionContext(session); }

    template <typename Function>
    static Function Next(Function NextDispatchTable::*slot) {
        return DispatchHolder::instance().Slot(slot);
    }

    // Made by the application, straight at the runtime.
    XrAction MakeAction(const std::string& name) {
        XrActionCreateInfo info{};
        name.copy(info.actionName, sizeof info.actionName - 1);
        XrAction action = XR_NULL_HANDLE;
        Next (&NextDispatchTable::CreateAction)(XR_NULL_HANDLE, &info, &action);
        runtime_.take_calls();
        return action;
    }
    XrActionSet MakeActionSet(const std::string& name) {
        XrActionSetCreateInfo info{};
        name.copy(info.actionSetName, sizeof info.actionSetName - 1);
        XrActionSet set = XR_NULL_HANDLE;
        Next (&NextDispatchTable::CreateActionSet)(runtime_.instance(), &info, &set);
        runtime_.take_calls();
        return set;
    }

    FakeRuntime runtime_;
    LogCapture log_{kLogDebug};
};

}  // namespace orvanic_xr
