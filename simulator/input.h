// The entry points that read a session's actions; what they say is xr/input's affair.
#pragma once

#include <openxr/openxr.h>

#include "simulator/actions.h"
#include "xr/input/input.h"

namespace simulator {

using xr_input::ActiveSets;
using xr_input::Binding;
using xr_input::Device;
using xr_input::Devices;
using xr_input::FindProfile;
using xr_input::Input;
using xr_input::Profile;
using xr_input::SubactionState;
using xr_input::SuggestedBinding;

XRAPI_ATTR XrResult XRAPI_CALL SyncActions(XrSession session, const XrActionsSyncInfo* info);
XRAPI_ATTR XrResult XRAPI_CALL GetActionStateBoolean(XrSession session, const XrActionStateGetInfo* info,
                                                     XrActionStateBoolean* state);
XRAPI_ATTR XrResult XRAPI_CALL GetActionStateFloat(XrSession session, const XrActionStateGetInfo* info,
                                                   XrActionStateFloat* state);
XRAPI_ATTR XrResult XRAPI_CALL GetActionStateVector2f(XrSession session, const XrActionStateGetInfo* info,
                                                      XrActionStateVector2f* state);
XRAPI_ATTR XrResult XRAPI_CALL GetActionStatePose(XrSession session, const XrActionStateGetInfo* info,
                                                  XrActionStatePose* state);
XRAPI_ATTR XrResult XRAPI_CALL ApplyHapticFeedback(XrSession session, const XrHapticActionInfo* info,
                                                   const XrHapticBaseHeader* feedback);
XRAPI_ATTR XrResult XRAPI_CALL StopHapticFeedback(XrSession session, const XrHapticActionInfo* info);

}  // namespace simulator
