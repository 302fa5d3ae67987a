// What applications ask about a display, of one that hides nothing and has one rate: XR_KHR_visibility_mask and
// XR_FB_display_refresh_rate. And how its clock goes with CLOCK_MONOTONIC: XR_KHR_convert_timespec_time.
#pragma once

#include <openxr/openxr.h>

#include <cstdint>
#include <ctime>

namespace simulator {

XRAPI_ATTR XrResult XRAPI_CALL GetVisibilityMaskKHR(XrSession session, XrViewConfigurationType type, std::uint32_t view,
                                                    XrVisibilityMaskTypeKHR mask_type, XrVisibilityMaskKHR* mask);

XRAPI_ATTR XrResult XRAPI_CALL EnumerateDisplayRefreshRatesFB(XrSession session, std::uint32_t capacity,
                                                              std::uint32_t* count, float* rates);
XRAPI_ATTR XrResult XRAPI_CALL GetDisplayRefreshRateFB(XrSession session, float* rate);
XRAPI_ATTR XrResult XRAPI_CALL RequestDisplayRefreshRateFB(XrSession session, float rate);

XRAPI_ATTR XrResult XRAPI_CALL ConvertTimespecTimeToTimeKHR(XrInstance instance, const timespec* timespec_time,
                                                            XrTime* time);
XRAPI_ATTR XrResult XRAPI_CALL ConvertTimeToTimespecTimeKHR(XrInstance instance, XrTime time, timespec* timespec_time);

}  // namespace simulator
