// XR_EXT_conformance_automation: devices that somebody switches on and works by calls instead of by hand.
//
// A device that is switched on has no pose until one is set; what is set stays until it is set anew, also
// when the device is switched on once more. A path that the active profile of the device does not have, or
// that is of another type, is XR_ERROR_PATH_UNSUPPORTED, and so is every path of a device that is not on.
#pragma once

#include <openxr/openxr.h>

namespace simulator {

XRAPI_ATTR XrResult XRAPI_CALL SetInputDeviceActiveEXT(XrSession session, XrPath interaction_profile,
                                                       XrPath top_level_path, XrBool32 is_active);
XRAPI_ATTR XrResult XRAPI_CALL SetInputDeviceStateBoolEXT(XrSession session, XrPath top_level_path,
                                                          XrPath input_source_path, XrBool32 state);
XRAPI_ATTR XrResult XRAPI_CALL SetInputDeviceStateFloatEXT(XrSession session, XrPath top_level_path,
                                                           XrPath input_source_path, float state);
XRAPI_ATTR XrResult XRAPI_CALL SetInputDeviceStateVector2fEXT(XrSession session, XrPath top_level_path,
                                                              XrPath input_source_path, XrVector2f state);
XRAPI_ATTR XrResult XRAPI_CALL SetInputDeviceLocationEXT(XrSession session, XrPath top_level_path,
                                                         XrPath input_source_path, XrSpace space, XrPosef pose);

}  // namespace simulator
