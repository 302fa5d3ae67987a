// Takes the head and both controllers over from the user, once a session, and writes every simulated pose to
// the runtime. A device that was taken over has no pose of its own, so what it showed last is written back as
// its first simulated pose. Devices are never handed back: automation ends with the session.
//
// Everything here runs on the thread of the tool that asks (a server thread or the caller of
// OrvanicXR_InvokeTool), except SetDeviceLocation, which the steps of an animation call on the frame thread.
#pragma once

#include <openxr/openxr.h>

#include <string>

#include "context/session_context.h"

namespace orvanic_xr {

struct OperationResult {
    bool ok = false;
    std::string error;  // empty when ok
};

inline OperationResult Succeeded() {
    return {true, {}};
}
inline OperationResult Failed(std::string error) {
    return {false, std::move(error)};
}

inline constexpr char kHeadTopLevelPath[] = "/user/head";
inline constexpr char kHeadPosePath[] = "/user/head/input/view_kest/pose";

// Whether the instance enabled XR_EXT_conformance_automation: the predicate of the tools that change devices.
bool conformance_automation_enabled();

// Activates once a session; after a failure the next call tries the whole sequence again. Of two first calls at
// the same time the second waits for what becomes of the first: its own snapshot would undo the first one's move.
OperationResult EnsureConformanceAutomationActive(SessionContext& context);
OperationResult ActivateConformanceAutomation(SessionContext& context);

// Locates `space` in `base_space` into `pose`; false, with `pose` as it was, if it has no valid position and
// orientation then. `label` is "head", "left controller" or "right controller" and only feeds log texts.
bool QueryDevicePose(const SessionContext& context, XrSpace space, XrSpace base_space, XrTime time,
                     const std::string& label, XrPosef& pose);

// Moves one input of a device of the session to `pose`, given in `base_space`, which is one of the session's. A
// controller's pose is mirrored in the context even if the runtime refuses it.
OperationResult SetDeviceLocation(SessionContext& context, const std::string& top_level_path,
                                  const std::string& input_source_path, XrSpace base_space, const XrPosef& pose);

}  // namespace orvanic_xr
