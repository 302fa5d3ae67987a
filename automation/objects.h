// What the layer knows of the application's OpenXR objects, and by which handle. Everything is found by its handle, any
// thread may ask, and what was found lives on while it is used.
//
// Locks: the registry's mutex and a session's are taken for a few copies, never both at a time but in the order
// registry, then session, and never across a call of the layer below.
#pragma once

#include <openxr/openxr.h>

#include <array>
#include <atomic>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "automation/next_functions.h"
#include "automation/pose_history.h"
#include "simulator/graphics/foreign_images.h"
#include "xr/input/actions.h"
#include "xr/input/input.h"

namespace automation {

using xr_input::TopLevel;
using xr_input::TopLevels;

// Devices that are never simulated, on paths that are none of the known ones: trackers, the eyes.
inline constexpr TopLevels kElsewhere = 1u << xr_input::kTopLevelCount;

// Which of its parts the layer plays for an instance. What the runtime or a lower layer has itself is left to it, and
// what nobody enabled is not there.
struct Parts {
    bool input = false;
    bool pictures = false;
    // The profile of the simulated controllers, which then is not passed down.
    bool controller_profile = false;
};

struct Session;

struct Instance {
    // Empty for what is no path.
    std::string PathText(XrPath path) const;
    // XR_NULL_PATH where the runtime has no room for it.
    XrPath PathOf(std::string_view text) const;
    // None for what is no top level path.
    std::optional<TopLevel> TopLevelOf(XrPath path) const;
    // By the machine's clock; 0 where the runtime can't tell.
    XrTime Now() const;
    // When it is destroyed: their actions hold the instance.
    void ForgetSuggestions();

    XrInstance handle = XR_NULL_HANDLE;
    NextFunctions next;
    Parts parts;
    xr_input::Offer offer;
    std::array<XrPath, xr_input::kTopLevelCount> top_level_paths = {};
    // As the application told last, which may have a loader of its own. Null for that of the system.
    std::atomic<simulator::VulkanInstanceLookup> vulkan_lookup = nullptr;

    // Guards all below.
    mutable std::mutex mutex;
    xr_input::Suggestions suggestions;
    // Whose profiles have changed, and whose application does not know yet.
    std::deque<XrSession> profile_events;
};

struct ActionSet : xr_input::ActionSet {
    XrActionSet handle = XR_NULL_HANDLE;
    std::shared_ptr<Instance> instance;
    std::atomic<bool> attached = false;
};

struct Action : xr_input::Action {
    std::shared_ptr<Instance> instance;
    // In full: of the bits in `subactions`, one stands for all that are elsewhere.
    std::vector<XrPath> subaction_paths;
    // On which any suggestion, of whatever profile, has placed it.
    std::atomic<TopLevels> suggested_on = 0;
};

struct Space {
    enum class Kind : std::uint8_t { kReference, kAction };

    Kind kind = Kind::kReference;
    std::shared_ptr<Session> session;
    // Of the space in what it hangs on.
    XrPosef offset = {{0, 0, 0, 1}, {0, 0, 0}};
    XrReferenceSpaceType reference = XR_REFERENCE_SPACE_TYPE_STAGE;
    std::shared_ptr<const Action> action;
    // None stands for whichever hand the action is bound to.
    std::optional<TopLevel> top;
};

class Registry {
 public:
    // Lives for ever: threads that nobody joined may still call while the process exits.
    static Registry& instance();

    std::shared_ptr<Instance> Find(XrInstance handle) const { return FindIn(instances_, handle); }
    std::shared_ptr<Session> Find(XrSession handle) const { return FindIn(sessions_, handle); }
    std::shared_ptr<Space> Find(XrSpace handle) const { return FindIn(spaces_, handle); }
    std::shared_ptr<ActionSet> Find(XrActionSet handle) const { return FindIn(action_sets_, handle); }
    std::shared_ptr<Action> Find(XrAction handle) const { return FindIn(actions_, handle); }
    // The session that a swapchain belongs to.
    std::shared_ptr<Session> Find(XrSwapchain handle) const { return FindIn(swapchains_, handle); }

    void Add(XrInstance handle, std::shared_ptr<Instance> object) { AddTo(instances_, handle, std::move(object)); }
    void Add(XrSession handle, std::shared_ptr<Session> object) { AddTo(sessions_, handle, std::move(object)); }
    void Add(XrSpace handle, std::shared_ptr<Space> object) { AddTo(spaces_, handle, std::move(object)); }
    void Add(XrActionSet handle, std::shared_ptr<ActionSet> object) { AddTo(action_sets_, handle, std::move(object)); }
    void Add(XrAction handle, std::shared_ptr<Action> object) { AddTo(actions_, handle, std::move(object)); }
    void Add(XrSwapchain handle, std::shared_ptr<Session> owner) { AddTo(swapchains_, handle, std::move(owner)); }

    // Each after the call below succeeded, but for swapchains: these before. By then the handle may stand for another
    // object, which stays.
    void Remove(XrSpace handle, const std::shared_ptr<Space>& object) { RemoveFrom(spaces_, handle, object); }
    void Remove(XrAction handle, const std::shared_ptr<Action>& object) { RemoveFrom(actions_, handle, object); }
    void Remove(XrSwapchain handle, const std::shared_ptr<Session>& owner) { RemoveFrom(swapchains_, handle, owner); }
    // With its actions.
    void Remove(XrActionSet handle, const std::shared_ptr<ActionSet>& object);
    // With its spaces and swapchains.
    void Remove(XrSession handle, const std::shared_ptr<Session>& object);
    // With all that belongs to it.
    void Remove(XrInstance handle, const std::shared_ptr<Instance>& object);

    // The one instance that there is, for handles that nobody knows; null where there are several.
    std::shared_ptr<Instance> OnlyInstance() const;
    bool HasInstances() const;
    std::vector<std::shared_ptr<Session>> SessionsOf(const std::shared_ptr<Instance>& instance) const;

 private:
    template <class Handle, class Object>
    using Map = std::unordered_map<Handle, std::shared_ptr<Object>>;

    template <class Handle, class Object>
    std::shared_ptr<Object> FindIn(const Map<Handle, Object>& map, Handle handle) const {
        const std::shared_lock lock(mutex_);
        const auto found = map.find(handle);
        return found == map.end() ? nullptr : found->second;
    }
    template <class Handle, class Object>
    void AddTo(Map<Handle, Object>& map, Handle handle, std::shared_ptr<Object> object) {
        const std::unique_lock lock(mutex_);
        map.insert_or_assign(handle, std::move(object));
    }
    template <class Handle, class Object>
    void RemoveFrom(Map<Handle, Object>& map, Handle handle, const std::shared_ptr<Object>& object) {
        const std::unique_lock lock(mutex_);
        EraseLocked(map, handle, object);
    }
    template <class Handle, class Object>
    static void EraseLocked(Map<Handle, Object>& map, Handle handle, const std::shared_ptr<Object>& object) {
        const auto found = map.find(handle);
        if (found != map.end() && found->second == object) map.erase(found);
    }
    void RemoveLocked(XrSession handle, const std::shared_ptr<Session>& object);

    // Guards all below.
    mutable std::shared_mutex mutex_;
    Map<XrInstance, Instance> instances_;
    Map<XrSession, Session> sessions_;
    Map<XrSpace, Space> spaces_;
    Map<XrActionSet, ActionSet> action_sets_;
    Map<XrAction, Action> actions_;
    Map<XrSwapchain, Session> swapchains_;
};

}  // namespace automation
