// Which sources feed an action, and what they are called: the runtime tells it of real devices, the layer of simulated
// ones.
#include <algorithm>
#include <string>
#include <vector>

#include "automation/guard.h"
#include "automation/hooks.h"
#include "automation/session.h"

namespace automation {
namespace {

// The simulated source that a path names, for who asks for its name. Null where it is none.
const xr_input::Profile* SimulatedProfile(const Session& session, const std::string& path) {
    const auto split = xr_input::SplitTopLevel(path);
    if (!split || !session.Simulates(split->top)) return nullptr;
    const std::lock_guard lock(session.mutex);
    const auto* const profile = session.input.profiles[static_cast<std::size_t>(split->top)];
    const bool is_there = profile && Offers(*profile, session.instance->offer.api_version, split->top, split->rest);
    return is_there ? profile : nullptr;
}

// The two-call idiom, for elements that are there.
template <class Element>
XrResult WriteAll(const Element* elements, std::size_t size, std::uint32_t capacity, std::uint32_t* count,
                  Element* buffer) {
    if (!count || (!buffer && capacity != 0)) return XR_ERROR_VALIDATION_FAILURE;
    *count = static_cast<std::uint32_t>(size);
    if (capacity == 0) return XR_SUCCESS;
    if (capacity < size) return XR_ERROR_SIZE_INSUFFICIENT;
    std::copy_n(elements, size, buffer);
    return XR_SUCCESS;
}

}  // namespace

XrResult EnumerateBoundSourcesForAction(XrSession session, const XrBoundSourcesForActionEnumerateInfo* info,
                                        std::uint32_t capacity, std::uint32_t* count, XrPath* sources) {
    return Guarded([&] {
        const auto owner = Registry::instance().Find(session);
        if (!owner) return XR_ERROR_HANDLE_INVALID;
        const Instance& instance = *owner->instance;
        const auto next = instance.next.EnumerateBoundSourcesForAction;
        const auto action = info && owner->Simulates() ? Registry::instance().Find(info->action) : nullptr;
        if (!action) return next(session, info, capacity, count, sources);
        std::uint32_t real_count = 0;
        XrResult result = next(session, info, 0, &real_count, nullptr);
        std::vector<XrPath> bound(real_count);
        if (XR_SUCCEEDED(result) && real_count > 0) result = next(session, info, real_count, &real_count, bound.data());
        if (XR_FAILED(result)) return result;
        // There may be fewer by now.
        bound.resize(std::min<std::size_t>(bound.size(), real_count));
        std::erase_if(bound, [&](XrPath path) {
            const auto text = instance.PathText(path);
            const auto split = xr_input::SplitTopLevel(text);
            return split && owner->Simulates(split->top);
        });
        std::vector<std::string> simulated;
        {
            const std::lock_guard lock(owner->mutex);
            simulated = owner->input.BoundSources(*action);
        }
        for (const std::string& source : simulated) bound.push_back(instance.PathOf(source));
        return WriteAll(bound.data(), bound.size(), capacity, count, sources);
    });
}

XrResult GetInputSourceLocalizedName(XrSession session, const XrInputSourceLocalizedNameGetInfo* info,
                                     std::uint32_t capacity, std::uint32_t* count, char* buffer) {
    return Guarded([&] {
        const auto owner = Registry::instance().Find(session);
        if (!owner) return XR_ERROR_HANDLE_INVALID;
        const std::string path = info && owner->Simulates() ? owner->instance->PathText(info->sourcePath) : "";
        const auto* const profile = SimulatedProfile(*owner, path);
        if (!profile) {
            return owner->instance->next.GetInputSourceLocalizedName(session, info, capacity, count, buffer);
        }
        constexpr XrInputSourceLocalizedNameFlags kKnown = XR_INPUT_SOURCE_LOCALIZED_NAME_USER_PATH_BIT |
                                                           XR_INPUT_SOURCE_LOCALIZED_NAME_INTERACTION_PROFILE_BIT |
                                                           XR_INPUT_SOURCE_LOCALIZED_NAME_COMPONENT_BIT;
        const bool is_known = info->whichComponents != 0 && (info->whichComponents & ~kKnown) == 0;
        if (!is_known) return XR_ERROR_VALIDATION_FAILURE;
        const auto split = xr_input::SplitTopLevel(path);
        const std::string name = LocalizedName(*profile, split->top, split->rest, info->whichComponents);
        return WriteAll(name.c_str(), name.size() + 1, capacity, count, buffer);
    });
}

}  // namespace automation
