// Action sets and actions: what the application declares before it meets a session.
#pragma once

#include <openxr/openxr.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "simulator/paths.h"
#include "xr/input/actions.h"

namespace simulator {

struct Instance;

struct ActionSet : xr_input::ActionSet {
    const Instance* instance = nullptr;
    std::string name;
    std::string localized_name;
    // Was ever attached to a session; nothing about it can change from then on.
    bool attached = false;
};

struct Action : xr_input::Action {
    // What `path` selects: nothing for XR_NULL_PATH. Throws XR_ERROR_PATH_INVALID, and XR_ERROR_PATH_UNSUPPORTED
    // for what the action was not created with.
    std::optional<TopLevel> CheckedSubaction(const Instance& instance, XrPath path) const;
    const ActionSet& Set() const { return static_cast<const ActionSet&>(*set); }

    std::string name;
    std::string localized_name;
};

XRAPI_ATTR XrResult XRAPI_CALL CreateActionSet(XrInstance instance, const XrActionSetCreateInfo* info,
                                               XrActionSet* action_set);
XRAPI_ATTR XrResult XRAPI_CALL DestroyActionSet(XrActionSet action_set);
XRAPI_ATTR XrResult XRAPI_CALL CreateAction(XrActionSet action_set, const XrActionCreateInfo* info, XrAction* action);
XRAPI_ATTR XrResult XRAPI_CALL DestroyAction(XrAction action);

}  // namespace simulator
