#include "automation/objects.h"

#include <algorithm>

#include "automation/session.h"

namespace automation {

std::string Instance::PathText(XrPath path) const {
    char text[XR_MAX_PATH_LENGTH];
    std::uint32_t size = 0;
    if (path == XR_NULL_PATH || !next.PathToString) return {};
    if (XR_FAILED(next.PathToString(handle, path, sizeof text, &size, text)) || size == 0) return {};
    return std::string(text, size - 1);
}

XrPath Instance::PathOf(std::string_view text) const {
    XrPath path = XR_NULL_PATH;
    const std::string terminated(text);
    if (!next.StringToPath || XR_FAILED(next.StringToPath(handle, terminated.c_str(), &path))) return XR_NULL_PATH;
    return path;
}

std::optional<TopLevel> Instance::TopLevelOf(XrPath path) const {
    if (path == XR_NULL_PATH) return std::nullopt;
    const auto found = std::ranges::find(top_level_paths, path);
    if (found == top_level_paths.end()) return std::nullopt;
    return static_cast<TopLevel>(found - top_level_paths.begin());
}

XrTime Instance::Now() const {
    timespec now = {};
    XrTime time = 0;
    clock_gettime(CLOCK_MONOTONIC, &now);
    if (!next.ConvertTimespecTimeToTimeKHR || XR_FAILED(next.ConvertTimespecTimeToTimeKHR(handle, &now, &time))) {
        return 0;
    }
    return time;
}

void Instance::ForgetSuggestions() {
    const std::lock_guard lock(mutex);
    suggestions.clear();
}

Registry& Registry::instance() {
    static Registry& registry = *new Registry;
    return registry;
}

void Registry::Remove(XrActionSet handle, const std::shared_ptr<ActionSet>& object) {
    const std::unique_lock lock(mutex_);
    EraseLocked(action_sets_, handle, object);
    std::erase_if(actions_, [&](const auto& entry) { return entry.second->set == object; });
}

void Registry::Remove(XrSession handle, const std::shared_ptr<Session>& object) {
    const std::unique_lock lock(mutex_);
    RemoveLocked(handle, object);
}

void Registry::RemoveLocked(XrSession handle, const std::shared_ptr<Session>& object) {
    EraseLocked(sessions_, handle, object);
    std::erase_if(spaces_, [&](const auto& entry) { return entry.second->session == object; });
    std::erase_if(swapchains_, [&](const auto& entry) { return entry.second == object; });
}

void Registry::Remove(XrInstance handle, const std::shared_ptr<Instance>& object) {
    // Lets go of them with the lock open.
    Map<XrSession, Session> sessions;
    const std::unique_lock lock(mutex_);
    EraseLocked(instances_, handle, object);
    sessions = sessions_;
    for (const auto& [session, owned] : sessions) {
        if (owned->instance == object) RemoveLocked(session, owned);
    }
    std::erase_if(action_sets_, [&](const auto& entry) { return entry.second->instance == object; });
    std::erase_if(actions_, [&](const auto& entry) { return entry.second->instance == object; });
}

std::shared_ptr<Instance> Registry::OnlyInstance() const {
    const std::shared_lock lock(mutex_);
    return instances_.size() == 1 ? instances_.begin()->second : nullptr;
}

std::vector<std::shared_ptr<Session>> Registry::SessionsOf(const std::shared_ptr<Instance>& instance) const {
    std::vector<std::shared_ptr<Session>> found;
    const std::shared_lock lock(mutex_);
    for (const auto& [handle, session] : sessions_) {
        if (session->instance == instance) found.push_back(session);
    }
    return found;
}

bool Registry::HasInstances() const {
    const std::shared_lock lock(mutex_);
    return !instances_.empty();
}

}  // namespace automation
