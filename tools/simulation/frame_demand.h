// A tool that waits for frames says so to a simulator that may hold them.
#pragma once

#include <openxr/openxr.h>

#include <functional>

namespace orvanic_xr {

// Frames of the session are needed until what comes back is called: any thread, any number of times, and it throws
// nothing. Does nothing where moves do not go by frames, or the runtime holds none.
std::function<void()> NeedFrames(XrSession session);

}  // namespace orvanic_xr
