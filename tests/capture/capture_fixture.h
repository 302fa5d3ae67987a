// A running session over the scripted next layer, which offers the capture extension and has a small picture to show.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include "capture/screen_capture_manager.h"
#include "tests/tools/session_fixture.h"
#include "xr/simulator_capture_records.h"

namespace orvanic_xr {

inline constexpr char kStart[] = "xrStartSimulatorCompositorOutputCaptureKESTX1";
inline constexpr char kStop[] = "xrStopSimulatorCompositorOutputCaptureKESTX1";
inline constexpr char kCapture[] = "xrCaptureSimulatorCompositorOutputKESTX1";

class CaptureTest : public SessionTest {
 protected:
    struct Size {
        std::uint32_t width, height;
    };

    CaptureTest() {
        EnableExtensions({kSimulatorCompositorCaptureExtension});
        Show({2, 2}, {2, 2});
    }
    ~CaptureTest() override { ScreenCaptureManager::instance().shutdown(); }

    // What the call for the size tells, and the one for the pixels, which fills the smaller of both with bytes that
    // count up from the eye's number times 16.
    void Show(Size first, Size then) {
        runtime_.on(kCapture, [this, first, then](XrSession session, SimulatorCompositorCaptureInfo* info) {
            records_.push_back(*info);
            sessions_.push_back(session);
            const Size told = info->pixels ? then : first;
            *info->width_output = told.width;
            *info->height_output = told.height;
            if (!info->pixels) return XR_SUCCESS;
            const std::size_t size =
                std::min(std::size_t{first.width} * first.height * 4, std::size_t{then.width} * then.height * 4);
            for (std::size_t i = 0; i < size; ++i) info->pixels[i] = static_cast<std::uint8_t>(info->eye * 16 + i);
            return XR_SUCCESS;
        });
    }

    static XrSession Session(std::uint64_t number = 0x2001) { return reinterpret_cast<XrSession>(number); }

    std::vector<SimulatorCompositorCaptureInfo> records_;
    std::vector<XrSession> sessions_;
};

}  // namespace orvanic_xr
