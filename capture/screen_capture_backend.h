// How the layer gets at the picture that the compositor showed: one small interface, so that another platform's
// way to capture can take its place.
#pragma once

#include <openxr/openxr.h>

#include <cstdint>
#include <string>
#include <vector>

namespace orvanic_xr {

// No operation throws; each failure is logged and told by the boolean. start and stop come from the
// application's threads, the others from the tools', and nothing but atomics stands between them.
class ScreenCaptureBackend {
 public:
    virtual ~ScreenCaptureBackend() = default;
    virtual bool start(XrSession session) = 0;
    virtual void stop() = 0;
    // The session that it was started for, or null.
    virtual XrSession session() const = 0;
    // Whether a capture can be made now.
    virtual bool is_ready() = 0;
    // Asks for whatever is_ready needs.
    virtual bool request_permission() = 0;
    // One image of the "left" or the right eye: 4 channels of 8 bits, rows packed, first row at the top.
    virtual bool capture(std::vector<std::uint8_t>& pixels, std::uint32_t& width, std::uint32_t& height,
                         const std::string& eye) = 0;
    virtual void shutdown() = 0;
};

}  // namespace orvanic_xr
