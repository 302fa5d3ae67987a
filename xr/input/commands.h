// What XR_EXT_conformance_automation does to devices, without handles: arguments are the texts of paths, in full.
// Codes are those of the extension's functions. What is refused changes nothing.
#pragma once

#include <openxr/openxr.h>

#include <optional>
#include <string_view>

#include "xr/input/devices.h"

namespace xr_input {

// XR_ERROR_PATH_UNSUPPORTED for a profile that is not offered, and for a top level path that it does not have.
XrResult SetDeviceActive(Devices& devices, const Offer& offer, std::string_view profile, std::string_view top_level,
                         XrBool32 is_active);

// A source of a device that is switched on.
struct SourceName {
    std::string_view top_level;
    std::string_view source;
    // What came after it is not there.
    XrVersion api_version = 0;
};

// XR_ERROR_PATH_UNSUPPORTED for a source of another type, or one that the device does not have.
XrResult SetBoolean(Devices& devices, const SourceName& name, XrBool32 state);
// Axes go both ways from their rest, everything else from 0 to 1: XR_ERROR_VALIDATION_FAILURE otherwise.
XrResult SetFloat(Devices& devices, const SourceName& name, float state);
XrResult SetVector(Devices& devices, const SourceName& name, const XrVector2f& state);
// Where the pose of such a source stands; null for what is refused with XR_ERROR_PATH_UNSUPPORTED.
std::optional<XrPosef>* FindPose(Devices& devices, const SourceName& name);

}  // namespace xr_input
