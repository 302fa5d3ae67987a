// One session: its life from IDLE to EXITING, and what belongs to it.
//
//   create            IDLE, READY
//   xrBeginSession    SYNCHRONIZED, VISIBLE, FOCUSED   (with no display, nothing has to be shown first)
//   xrRequestExitSession   VISIBLE, SYNCHRONIZED, STOPPING
//   xrEndSession      IDLE, and EXITING if an exit was asked for, else READY again
//
// A session that renders takes the same way, by one state for each frame that it ends.
#pragma once

#include <openxr/openxr.h>

#include <array>
#include <memory>
#include <vector>

#include "simulator/capture.h"
#include "simulator/frames.h"
#include "simulator/graphics/graphics.h"
#include "simulator/head.h"
#include "simulator/input.h"
#include "simulator/scene.h"
#include "simulator/submitted_frame.h"
#include "xr/input/devices.h"

namespace simulator {

struct Instance;
class Runtime;

// What a session leaves to its graphics driver. To be destroyed with the runtime's mutex open.
struct Remains {
    std::shared_ptr<GraphicsDevice> graphics;
    // Before the device.
    std::vector<std::shared_ptr<ImageSet>> images;
};

// Where the LOCAL space is, in world coordinates: it moves when the wearer has it centred anew.
struct LocalOrigin {
    XrPosef At(XrTime time) const { return time >= since ? after : before; }

    XrPosef before = {{0, 0, 0, 1}, kStartingPoint};
    XrPosef after = before;
    XrTime since = 0;
};

struct Session {
    // Moves to `next` and tells the application.
    void Enter(XrSessionState next);
    // One state nearer to where it has to go, if it is not there yet: up to FOCUSED, as far as it has focus and wearer,
    // or to STOPPING.
    void Step();
    // All the way there at once: nothing of a headless session has to be shown first.
    void Settle();
    // It runs no more: whoever waits for a frame is told.
    void Stop();
    // What is left to do before its handle goes.
    [[nodiscard]] Remains Close(Runtime& runtime);

    std::shared_ptr<Instance> instance;
    XrSession handle = XR_NULL_HANDLE;
    XrSessionState state = XR_SESSION_STATE_UNKNOWN;
    // Between xrBeginSession and xrEndSession.
    bool running = false;
    bool exit_requested = false;
    // Another application may have it; the headset may lie on a table.
    bool has_focus = true;
    bool is_worn = true;
    LocalOrigin local;
    FrameLoop frames;
    HeadSway head;
    Devices devices;
    Input input;
    Scene scene;
    Capture capture;
    // Null in a headless session. Its destruction belongs to xrDestroySession, on the application's thread. Shared
    // with the call that makes a swapchain.
    std::shared_ptr<GraphicsDevice> graphics;
    ToldViews told_views;
    FrameRequests requests;
    // What each eye sees while the application is held. Null where nothing was drawn since, or nobody holds it.
    std::array<std::shared_ptr<FrameRequest>, 2> held_frame;
};

XRAPI_ATTR XrResult XRAPI_CALL CreateSession(XrInstance instance, const XrSessionCreateInfo* info, XrSession* session);
XRAPI_ATTR XrResult XRAPI_CALL DestroySession(XrSession session);
XRAPI_ATTR XrResult XRAPI_CALL BeginSession(XrSession session, const XrSessionBeginInfo* info);
XRAPI_ATTR XrResult XRAPI_CALL EndSession(XrSession session);
XRAPI_ATTR XrResult XRAPI_CALL RequestExitSession(XrSession session);

}  // namespace simulator
