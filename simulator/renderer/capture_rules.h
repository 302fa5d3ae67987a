// In which order the calls of XR_KESTX1_simulator_compositor_output_capture have to come, and what they refuse, for
// whoever draws the pictures. All throw a Refusal.
#pragma once

#include <cstddef>
#include <cstdint>

#include "simulator/refusal.h"
#include "xr/simulator_capture_records.h"

namespace simulator {

// A session's.
class CaptureRules {
 public:
    static void Check(const orvanic_xr::SimulatorCompositorCaptureInfo* info) {
        Require(info && info->type == orvanic_xr::kSimulatorCompositorCaptureInfoType && !info->next);
        Require(info->eye == 1 || info->eye == 2);
        Require(info->width_output && info->height_output);
    }

    // XR_ERROR_CALL_ORDER_INVALID when it was started already, for the other two when it was not.
    void Start(std::uint32_t eyes) {
        Require(eyes != 0 && (eyes & ~kBothEyes) == 0);
        if (eyes_ != 0) Refuse(XR_ERROR_CALL_ORDER_INVALID);
        eyes_ = eyes;
        measured_ = 0;
    }

    void Stop() {
        if (eyes_ == 0) Refuse(XR_ERROR_CALL_ORDER_INVALID);
        eyes_ = 0;
    }

    // Of a checked record, the eye: 0 left, 1 right. Also refuses pixels of one whose size was not asked for.
    std::size_t Take(const orvanic_xr::SimulatorCompositorCaptureInfo& info) {
        const auto eye = static_cast<std::uint32_t>(info.eye);
        if ((eyes_ & eye) == 0) Refuse(XR_ERROR_CALL_ORDER_INVALID);
        if (info.pixels && (measured_ & eye) == 0) Refuse(XR_ERROR_CALL_ORDER_INVALID);
        measured_ |= eye;
        return eye - 1;
    }

 private:
    static constexpr std::uint32_t kBothEyes = 3;

    // Bits: 1 left, 2 right. None while it is not started.
    std::uint32_t eyes_ = 0;
    // Those whose size was asked for since the start, as it must be before the pixels are.
    std::uint32_t measured_ = 0;
};

}  // namespace simulator
