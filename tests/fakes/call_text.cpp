#include "tests/fakes/call_text.h"

#include <initializer_list>

namespace orvanic_xr {
namespace {

std::string Number(float number) {
    char text[32];
    return std::string(text, std::to_chars(text, text + sizeof text, number).ptr);
}

std::string Numbers(std::initializer_list<float> numbers) {
    std::string text;
    for (const float number : numbers) text += (text.empty() ? "" : " ") + Number(number);
    return text;
}

// A list with ", " between its items; a count with nothing behind it is an empty one.
template <typename Item, typename TextOf>
std::string Joined(std::uint32_t count, const Item* items, const TextOf& text_of) {
    std::string text;
    for (std::uint32_t i = 0; items && i < count; ++i) text += (i == 0 ? "" : ", ") + text_of(items[i]);
    return text;
}

std::string PoseText(const XrPosef& pose) {
    const auto& [position, orientation] = std::pair(pose.position, pose.orientation);
    return "[" + Numbers({position.x, position.y, position.z}) + " | " +
           Numbers({orientation.x, orientation.y, orientation.z, orientation.w}) + "]";
}

bool IsIdentity(const XrPosef& pose) {
    return PoseText(pose) == "[0 0 0 | 0 0 0 1]";
}

std::string ReferenceSpaceName(XrReferenceSpaceType type) {
    switch (type) {
        case XR_REFERENCE_SPACE_TYPE_VIEW:
            return "VIEW";
        case XR_REFERENCE_SPACE_TYPE_LOCAL:
            return "LOCAL";
        case XR_REFERENCE_SPACE_TYPE_STAGE:
            return "STAGE";
        case XR_REFERENCE_SPACE_TYPE_LOCAL_FLOOR:
            return "LOCAL_FLOOR";
        default:
            return "reference space " + std::to_string(type);
    }
}

}  // namespace

std::string CallNames::handle(std::uint64_t value) const {
    if (value == 0) return "null";
    if (const auto found = handles.find(value); found != handles.end()) return found->second;
    char text[16];
    return "0x" + std::string(text, std::to_chars(text, text + sizeof text, value, 16).ptr);
}

std::string CallNames::path(XrPath path) const {
    const auto found = paths.find(path);
    return found != paths.end() ? found->second : std::to_string(path);
}

void CallText::put(const std::string& part) {
    if (!text_.empty()) text_ += ", ";
    text_ += part;
}

bool CallText::put_if_null(const void* pointer) {
    if (!pointer) put("null");
    return !pointer;
}

void CallText::add(float number) {
    put(Number(number));
}

void CallText::add(const XrPosef& pose) {
    put(PoseText(pose));
}

void CallText::add(const XrInstanceCreateInfo* info) {
    if (put_if_null(info)) return;
    std::string extensions;
    for (std::uint32_t i = 0; i < info->enabledExtensionCount; ++i) {
        const char* name = info->enabledExtensionNames[i];
        extensions += (i == 0 ? "" : " ") + std::string(name ? name : "null");
    }
    put(std::string(info->applicationInfo.applicationName) + ", [" + extensions + "]");
}

void CallText::add(const XrSessionCreateInfo* info) {
    if (!put_if_null(info)) put("systemId=" + std::to_string(info->systemId));
}

void CallText::add(const XrReferenceSpaceCreateInfo* info) {
    if (put_if_null(info)) return;
    put(ReferenceSpaceName(info->referenceSpaceType));
    if (!IsIdentity(info->poseInReferenceSpace)) put(PoseText(info->poseInReferenceSpace));
}

void CallText::add(const XrActionSpaceCreateInfo* info) {
    if (put_if_null(info)) return;
    add(info->action);
    if (info->subactionPath != XR_NULL_PATH) put(names_.path(info->subactionPath));
    if (!IsIdentity(info->poseInActionSpace)) put(PoseText(info->poseInActionSpace));
}

void CallText::add(const XrActionSetCreateInfo* info) {
    if (put_if_null(info)) return;
    put(std::string(info->actionSetName) + ", \"" + info->localizedActionSetName +
        "\", priority=" + std::to_string(info->priority));
}

void CallText::add(const XrActionCreateInfo* info) {
    if (put_if_null(info)) return;
    put(std::string(info->actionName) + ", \"" + info->localizedActionName +
        "\", type=" + std::to_string(info->actionType));
    if (info->countSubactionPaths != 0) put("subactions=" + std::to_string(info->countSubactionPaths));
}

void CallText::add(const XrFrameEndInfo* info) {
    if (put_if_null(info)) return;
    put("displayTime=" + std::to_string(info->displayTime) + ", layers=" + std::to_string(info->layerCount));
}

void CallText::add(const XrInteractionProfileSuggestedBinding* info) {
    if (put_if_null(info)) return;
    const auto text_of = [&](const XrActionSuggestedBinding& binding) {
        return names_.handle(HandleValue(binding.action)) + " " + names_.path(binding.binding);
    };
    put(names_.path(info->interactionProfile) + ", [" +
        Joined(info->countSuggestedBindings, info->suggestedBindings, text_of) + "]");
}

void CallText::add(const XrSessionActionSetsAttachInfo* info) {
    if (put_if_null(info)) return;
    put("[" +
        Joined(info->countActionSets, info->actionSets,
               [&](XrActionSet set) { return names_.handle(HandleValue(set)); }) +
        "]");
}

void CallText::add(const XrActionsSyncInfo* info) {
    if (put_if_null(info)) return;
    const auto text_of = [&](const XrActiveActionSet& active) {
        const std::string set = names_.handle(HandleValue(active.actionSet));
        return active.subactionPath == XR_NULL_PATH ? set : set + " " + names_.path(active.subactionPath);
    };
    put("[" + Joined(info->countActiveActionSets, info->activeActionSets, text_of) + "]");
}

void CallText::add(const XrActionStateGetInfo* info) {
    if (put_if_null(info)) return;
    add(info->action);
    if (info->subactionPath != XR_NULL_PATH) put(names_.path(info->subactionPath));
}

}  // namespace orvanic_xr
