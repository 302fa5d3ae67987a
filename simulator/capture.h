// XR_KESTX1_simulator_compositor_output_capture: a picture of what an eye sees at this moment, drawn when it is asked
// for. Where an application renders, that is the frame that it begins next, and the call waits for it. Checks are
// strict, in this order: handle, session running, record, capture started.
#pragma once

#include <openxr/openxr.h>

#include <cstdint>
#include <memory>

#include "simulator/renderer/capture_rules.h"
#include "xr/simulator_capture_records.h"

namespace simulator {

using orvanic_xr::PFN_xrCaptureSimulatorCompositorOutputKESTX1;
using orvanic_xr::PFN_xrStartSimulatorCompositorOutputCaptureKESTX1;
using orvanic_xr::PFN_xrStopSimulatorCompositorOutputCaptureKESTX1;
using orvanic_xr::SimulatorCompositorCaptureInfo;

struct RoomToDraw;

// A session's.
struct Capture {
    CaptureRules rules;
    // Shared with the calls that draw.
    std::shared_ptr<RoomToDraw> room;
};

XRAPI_ATTR XrResult XRAPI_CALL StartSimulatorCompositorOutputCaptureKESTX1(XrSession session, std::uint32_t eyes);
XRAPI_ATTR XrResult XRAPI_CALL StopSimulatorCompositorOutputCaptureKESTX1(XrSession session);
// The drawing is done with the runtime's mutex open.
XRAPI_ATTR XrResult XRAPI_CALL CaptureSimulatorCompositorOutputKESTX1(XrSession session,
                                                                      SimulatorCompositorCaptureInfo* info);

}  // namespace simulator
