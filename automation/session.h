// One session of the application: its simulated devices, what its actions say of them, and the two spaces by which the
// layer knows where everything is.
//
// World coordinates are those of the runtime's STAGE space, or of its LOCAL space where it has no stage.
#pragma once

#include <openxr/openxr.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "automation/objects.h"
#include "automation/pictures/session_pictures.h"
#include "automation/pose_history.h"

namespace automation {

// Which poses a caller gets. The threads that make the application's frames see those of their frame. Who moves the
// devices, on any other thread, sees what it did.
enum class Moment { kFrame, kNewest };

// Marks this thread as one that makes frames.
void NoteFrameThread();
Moment MomentOfThisThread();

// By which a head is placed. None for a device that is no head, or whose place is the real one's.
std::optional<std::size_t> HeadPoseSource(const xr_input::Device& head);

struct Session {
    // Any device is under automation. All hooks pass calls on while none is.
    bool Simulates() const { return simulated.load(std::memory_order_relaxed) != 0; }
    bool Simulates(TopLevel top) const { return (simulated.load() & xr_input::BitOf(top)) != 0; }

    // Whether a simulated device has, or takes away, anything of the action. The runtime knows all of others.
    bool Concerns(const Action& action) const { return (action.suggested_on & simulated) != 0; }
    // Whether a call's subaction path names a device, and that is a real one.
    bool IsReal(XrPath subaction_path) const {
        const auto top = instance->TopLevelOf(subaction_path);
        return subaction_path != XR_NULL_PATH && !(top && Simulates(*top));
    }

    bool HasChangedDevices() const {
        const std::lock_guard lock(mutex);
        return devices_changed;
    }

    // Makes the two spaces, the first time. Throws nothing; a code of OpenXR where the runtime refuses.
    XrResult MakeSpaces();
    // Before the session is destroyed.
    void DestroySpaces();
    // For the frame that was waited for: from now on it sees the devices as they are.
    void Latch();
    // With the mutex locked: what was placed before the world was centred anew, if that was before `time`, stays where
    // it is in the room.
    void FollowRecentresLocked(XrTime time);
    // The time of the newest frame, or now where there was none.
    XrTime LatestTime() const;

    // The pose that `pose_of(devices)` picks. Nothing while it has none.
    template <class PoseOf>
    std::optional<MovingPose> DevicePose(XrTime time, Moment moment, const PoseOf& pose_of) const {
        const std::lock_guard lock(mutex);
        if (moment == Moment::kFrame && history.Latest() != 0) return history.At(time, pose_of);
        const auto pose = pose_of(devices);
        if (!pose) return std::nullopt;
        return MovingPose{*pose, {}};
    }
    std::optional<MovingPose> HeadPose(XrTime time, Moment moment) const;

    std::shared_ptr<Instance> instance;
    XrSession handle = XR_NULL_HANDLE;
    XrSystemId system = XR_NULL_SYSTEM_ID;
    // Null where there are none of this session.
    std::unique_ptr<SessionPictures> pictures;
    // Between xrBeginSession and xrEndSession.
    std::atomic<bool> running = false;
    // What is under automation.
    std::atomic<TopLevels> simulated = 0;
    // Of the head more than its buttons: where it is.
    std::atomic<bool> simulates_head = false;
    // When the frame is displayed that was waited for last. 0 before the first one.
    std::atomic<XrTime> waited = 0;
    // As the application began the session.
    std::atomic<XrViewConfigurationType> view_configuration = XR_VIEW_CONFIGURATION_TYPE_PRIMARY_STEREO;
    // Of the world's coordinates.
    std::atomic<XrReferenceSpaceType> world_type = XR_REFERENCE_SPACE_TYPE_STAGE;

    // Guards all below.
    mutable std::mutex mutex;
    xr_input::Devices devices;
    xr_input::Input input;
    PoseHistory history;
    // A device was switched on or off, of which the application is to be told.
    bool devices_changed = false;
    XrSpace world_space = XR_NULL_HANDLE;
    XrSpace view_space = XR_NULL_HANDLE;
    // The runtime will centre the world anew, at each of these times.
    struct Recentre {
        XrTime at = 0;
        XrPosef old_world_in_new = {{0, 0, 0, 1}, {0, 0, 0}};
    };
    std::vector<Recentre> recentres;
};

}  // namespace automation
