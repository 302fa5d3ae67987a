// What the layer keeps for one XrSession: the reference spaces through which it locates things, its own action
// set with the hands' pose actions and their spaces, the predicted display times of the frames in flight, and
// the simulated controller poses. Made inside xrCreateSession and held by shared pointer. What it made in the runtime
// goes inside xrDestroySession, or with the instance, also where a tool holds the context for longer: that tool's
// calls are refused from then on. A context for a null session is empty: it makes and destroys nothing, and is ended
// from the beginning.
//
// The fields without a lock are fixed after construction. Who is not called by the application with the session
// itself uses the handles within EnterRuntime or Call.
#pragma once

#include <openxr/openxr.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <vector>

#include "context/ring_queue.h"
#include "context/session_fence.h"
#include "layer/dispatch/dispatch.h"

namespace orvanic_xr {

inline constexpr int kLeftHand = 0;
inline constexpr int kRightHand = 1;
inline constexpr int kGripKind = 0;
inline constexpr int kAimKind = 1;

// Poses are in STAGE space wherever they could be transformed into it.
struct SimulatedPoseSlot {
    XrPosef pose{};
    bool valid = false;  // recorded at least once
};

// What the runtime makes of the layer's action set in xrSyncActions.
enum class OwnSet : std::uint8_t { kUntried, kAttached, kRefused };

class SessionContext {
 public:
    explicit SessionContext(XrSession session);
    ~SessionContext();
    SessionContext(const SessionContext&) = delete;
    SessionContext& operator=(const SessionContext&) = delete;

    // Permission to call the runtime with the session's handles: for the call alone, and across no wait, since the
    // end of the session waits for it. Empty once the session has ended. Any thread.
    SessionFence::Pass EnterRuntime() const { return fence_.Enter(); }
    // One such call. After the end it answers as a runtime would that no longer knows the handles.
    template <typename... Parameters, typename... Arguments>
    XrResult Call(XrResult (XRAPI_PTR* NextDispatchTable::*slot)(Parameters...), Arguments... arguments) const {
        const auto pass = EnterRuntime();
        return pass ? DispatchHolder::instance().Call(slot, arguments...) : XR_ERROR_HANDLE_INVALID;
    }
    XrResult Locate(XrSpace space, XrSpace base_space, XrTime time, XrSpaceLocation* location) const {
        return Call(&NextDispatchTable::LocateSpace, space, base_space, time, location);
    }
    bool ended() const { return fence_.closed(); }

    // Ends the session for all but the application: calls that run are waited for, and no other begins. What was
    // made stays.
    void Close() { fence_.Close(); }
    // The same, and what was made goes, while the runtime still has the session. Once, by who took the context out.
    void End();
    // Within EnterRuntime: `space` is destroyed at the end too.
    void AdoptSpace(XrSpace space);

    XrInstance instance() const { return instance_; }

    // Frame thread: a frame was promised for `time`; the oldest promised frame ended; the frame that was promised for
    // `time` will never be shown.
    void RecordFrameTime(XrTime time);
    void ConsumeFrameTime();
    void DropFrameTime(XrTime time);
    // The time for a tool to locate at: the oldest frame in flight, else one period behind the newest frame,
    // else 0, which means that no time is known yet. Any thread.
    XrTime CurrentLocateTime() const;

    // `hand` is kLeftHand or kRightHand, `kind` kGripKind or kAimKind. A slot is never unmarked. Any thread.
    void SetSimulatedControllerPose(int hand, int kind, const XrPosef& pose);
    SimulatedPoseSlot GetSimulatedControllerPose(int hand, int kind) const;

    // The layer's four bindings, left grip, left aim, right grip, right aim; one whose path can't be made is
    // left out.
    std::vector<XrActionSuggestedBinding> SuggestedBindings() const;

    XrSession session = XR_NULL_HANDLE;
    // A space that could not be made is null.
    XrSpace viewSpace = XR_NULL_HANDLE;
    XrSpace localSpace = XR_NULL_HANDLE;
    XrSpace stageSpace = XR_NULL_HANDLE;
    XrSpace localFloorSpace = XR_NULL_HANDLE;

    XrAction leftGripAction = XR_NULL_HANDLE;
    XrAction leftAimAction = XR_NULL_HANDLE;
    XrAction rightGripAction = XR_NULL_HANDLE;
    XrAction rightAimAction = XR_NULL_HANDLE;
    XrSpace leftGripSpace = XR_NULL_HANDLE;
    XrSpace leftAimSpace = XR_NULL_HANDLE;
    XrSpace rightGripSpace = XR_NULL_HANDLE;
    XrSpace rightAimSpace = XR_NULL_HANDLE;
    XrActionSet actionSet = XR_NULL_HANDLE;  // null if it could not be made; then there are no actions

    // Set once the head and the controllers follow the simulation.
    std::atomic<bool> conformance_automation_active = false;
    // Set while a tool is at that.
    std::atomic_flag automation_activating;

    std::atomic<OwnSet> own_set = OwnSet::kUntried;

 private:
    SessionContext() = default;
    void CreateReferenceSpaces();
    void CreateActionsAndSpaces();
    void DestroyHandles() const;

    mutable SessionFence fence_;
    XrInstance instance_ = XR_NULL_HANDLE;

    // Guards adopted_spaces_.
    std::mutex adopted_spaces_mutex_;
    std::vector<XrSpace> adopted_spaces_;

    // Guards pendingDisplayTimes, lastDisplayTime and displayPeriod.
    mutable std::mutex frameTimeMutex;
    RingQueue<XrTime> pendingDisplayTimes;
    XrTime lastDisplayTime = 0;
    XrDuration displayPeriod = 0;

    // Guards simulatedPoses: [hand][kind].
    mutable std::mutex simulatedPoseMutex;
    std::array<std::array<SimulatedPoseSlot, 2>, 2> simulatedPoses{};
};

}  // namespace orvanic_xr
