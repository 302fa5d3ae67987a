// What the layer keeps for one XrSession: the reference spaces through which it locates things, its own action
// set with the hands' pose actions and their spaces, the predicted display times of the frames in flight, and
// the simulated controller poses. Made inside xrCreateSession, held by shared pointer, destroyed at the last
// release after xrDestroySession. A context for a null session is empty: it makes and destroys nothing. One that
// a tool holds past the end of the instance destroys nothing either: the runtime has taken all of it along.
//
// The fields without a lock are fixed after construction.
#pragma once

#include <openxr/openxr.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <vector>

#include "context/ring_queue.h"

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

class SessionContext {
 public:
    explicit SessionContext(XrSession session);
    ~SessionContext();
    SessionContext(const SessionContext&) = delete;
    SessionContext& operator=(const SessionContext&) = delete;

    // Frame thread: a frame was promised for `time`; the oldest promised frame ended.
    void RecordFrameTime(XrTime time);
    void ConsumeFrameTime();
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

 private:
    SessionContext() = default;
    void CreateReferenceSpaces();
    void CreateActionsAndSpaces();
    void DestroyReferenceSpaces();
    void DestroyActionsAndSpaces();

    // DispatchHolder's number of the runtime in which the handles live.
    std::uint64_t runtime_number_ = 0;

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
