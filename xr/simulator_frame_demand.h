// The extension XR_KESTX1_simulator_frame_demand of a simulator whose frames may be held: whoever needs frames says so,
// and they go by until they are no longer needed.
#pragma once

#include <openxr/openxr.h>

#include <cstdint>

namespace orvanic_xr {

inline constexpr char kSimulatorFrameDemandExtension[] = "XR_KESTX1_simulator_frame_demand";

// `change` is 1 for one more that needs frames of the session, and -1 for one that does so no longer. 0 changes
// nothing: XR_TIMEOUT_EXPIRED while a frame goes by though none is needed, XR_SUCCESS once the next one is held, or if
// frames are not held at all. Any thread.
using PFN_xrChangeSimulatorFrameDemandKESTX1 = XrResult(XRAPI_PTR*)(XrSession session, std::int32_t change);

}  // namespace orvanic_xr
