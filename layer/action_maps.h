// Which pose actions and action spaces the application uses, for the hooks that let its controllers follow the
// simulation. The layer's own actions and spaces never enter.
#pragma once

#include <openxr/openxr.h>

#include <cstdint>
#include <mutex>
#include <optional>
#include <unordered_map>
#include <unordered_set>

namespace orvanic_xr {

inline constexpr std::int32_t kUnknownHand = -1;  // beside kLeftHand and kRightHand

struct PoseKinds {
    bool isGrip = false;
    bool isAim = false;
};

struct ActionSpace {
    XrAction action = XR_NULL_HANDLE;
    std::int32_t hand = kUnknownHand;
    bool has_offset = false;  // its poseInActionSpace is not the identity
};

// Any thread. The mutex is held for the lookups alone, never across a runtime call or a log line.
class ActionMaps {
 public:
    struct FoundSpace : ActionSpace {
        bool isGrip = false;
        bool first_time = false;  // in this process, and only when asked for
    };

    static ActionMaps& instance();

    // Kinds only ever come to an action; one that is bound to both has both.
    void AddPoseKinds(XrAction action, PoseKinds kinds);
    void AddSpace(XrSpace space, const ActionSpace& entry, const XrPosef& offset = {});

    // On the hot path: one lookup for a space that is not the application's action space, and no allocation
    // unless `note_first_time`.
    std::optional<FoundSpace> FindSpace(XrSpace space, bool note_first_time);
    XrPosef OffsetOf(XrSpace space) const;   // the identity for a space that is not known any more
    bool HadSpaceOf(XrAction action) const;  // recorded at any time, also when the space is gone

    void ForgetSpace(XrSpace space);
    void ForgetAction(XrAction action);
    void Clear();

 private:
    // Guards all four.
    mutable std::mutex mutex_;
    std::unordered_map<XrAction, PoseKinds> actionPoseKinds;
    struct KnownSpace {
        ActionSpace space;
        XrPosef offset;  // not looked at by most, so not copied with the rest
    };
    std::unordered_map<XrSpace, KnownSpace> actionSpaces;
    std::unordered_set<XrAction> poseActions;  // those with a recorded space
    std::unordered_set<XrSpace> seenLocateSpaces;
};

}  // namespace orvanic_xr
