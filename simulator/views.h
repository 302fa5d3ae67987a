// The two eyes: view configurations, and where each eye is.
#pragma once

#include <openxr/openxr.h>

#include <array>
#include <cstdint>
#include <optional>

#include "simulator/renderer/eye_view.h"

namespace simulator {

struct Session;

// Where the head is, simulated or swaying, in world coordinates. None where it was placed in relation to something that
// is nowhere.
std::optional<XrPosef> HeadPose(const Session& session, XrTime time);

// Left and right, for a head at `head`.
std::array<EyeView, 2> EyesOf(const XrPosef& head);

bool IsOffered(XrEnvironmentBlendMode mode);
// Throws XR_ERROR_VIEW_CONFIGURATION_TYPE_UNSUPPORTED.
void CheckConfiguration(XrViewConfigurationType type);

XRAPI_ATTR XrResult XRAPI_CALL EnumerateViewConfigurations(XrInstance instance, XrSystemId system,
                                                           std::uint32_t capacity, std::uint32_t* count,
                                                           XrViewConfigurationType* types);
XRAPI_ATTR XrResult XRAPI_CALL GetViewConfigurationProperties(XrInstance instance, XrSystemId system,
                                                              XrViewConfigurationType type,
                                                              XrViewConfigurationProperties* properties);
XRAPI_ATTR XrResult XRAPI_CALL EnumerateViewConfigurationViews(XrInstance instance, XrSystemId system,
                                                               XrViewConfigurationType type, std::uint32_t capacity,
                                                               std::uint32_t* count, XrViewConfigurationView* views);
XRAPI_ATTR XrResult XRAPI_CALL EnumerateEnvironmentBlendModes(XrInstance instance, XrSystemId system,
                                                              XrViewConfigurationType type, std::uint32_t capacity,
                                                              std::uint32_t* count, XrEnvironmentBlendMode* modes);
XRAPI_ATTR XrResult XRAPI_CALL LocateViews(XrSession session, const XrViewLocateInfo* info, XrViewState* state,
                                           std::uint32_t capacity, std::uint32_t* count, XrView* views);

}  // namespace simulator
