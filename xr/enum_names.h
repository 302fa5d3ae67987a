// OpenXR's numbers by name, as the registry spells them in the headers that the layer was built with. All
// texts are static.
#pragma once

#include <openxr/openxr.h>

#include <string>

namespace orvanic_xr {

const char* xr_result_to_string(XrResult result);                      // or "Unknown"
std::string result_name_or_number(XrResult result);                    // or "XrResult -1234"
const char* session_state_name(XrSessionState state);                  // or "XR_SESSION_STATE_UNKNOWN"
const char* structure_type_name(XrStructureType type);                 // or "XR_TYPE_UNKNOWN"
const char* environment_blend_mode_name(XrEnvironmentBlendMode mode);  // or "XR_ENVIRONMENT_BLEND_MODE_UNKNOWN"

}  // namespace orvanic_xr
