// The extension XR_KESTX1_simulator_compositor_output_capture, which a simulator runtime offers. Its header is not
// part of the system, so what is needed of it stands here, for the layer and for the simulator.
#pragma once

#include <openxr/openxr.h>

#include <cstddef>
#include <cstdint>

namespace orvanic_xr {

inline constexpr char kSimulatorCompositorCaptureExtension[] = "XR_KESTX1_simulator_compositor_output_capture";

// Argument of xrCaptureSimulatorCompositorOutputKESTX1. Called twice: with null `pixels` for the size, then
// with a buffer of width times height times 4 bytes: RGBA, 8 bits each, rows packed, first row at the top.
struct SimulatorCompositorCaptureInfo {
    std::uint32_t type;
    const void* next;
    std::uint64_t eye;  // 1 left, 2 right
    std::uint32_t* width_output;
    std::uint32_t* height_output;
    std::uint8_t* pixels;
};
static_assert(sizeof(SimulatorCompositorCaptureInfo) == 48 && offsetof(SimulatorCompositorCaptureInfo, next) == 8 &&
              offsetof(SimulatorCompositorCaptureInfo, eye) == 16 &&
              offsetof(SimulatorCompositorCaptureInfo, width_output) == 24 &&
              offsetof(SimulatorCompositorCaptureInfo, height_output) == 32 &&
              offsetof(SimulatorCompositorCaptureInfo, pixels) == 40);

inline constexpr std::uint32_t kSimulatorCompositorCaptureInfoType = 1000680000;

// `eyes`: 1 left, 2 right, 3 both.
using PFN_xrStartSimulatorCompositorOutputCaptureKESTX1 = XrResult(XRAPI_PTR*)(XrSession session, std::uint32_t eyes);
using PFN_xrStopSimulatorCompositorOutputCaptureKESTX1 = XrResult(XRAPI_PTR*)(XrSession session);
using PFN_xrCaptureSimulatorCompositorOutputKESTX1 = XrResult(XRAPI_PTR*)(XrSession session,
                                                                          SimulatorCompositorCaptureInfo* info);

}  // namespace orvanic_xr
