#include "simulator/actions.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "simulator/instance.h"
#include "simulator/runtime.h"

namespace simulator {
namespace {

struct Names {
    std::string_view name;
    std::string_view localized_name;
};

template <std::size_t kSize>
std::string_view TextOr(const char (&field)[kSize], XrResult refusal) {
    const std::size_t length = strnlen(field, kSize);
    if (length == 0 || length == kSize) Refuse(refusal);
    return {field, length};
}

template <std::size_t kNameSize, std::size_t kLocalizedSize>
Names CheckedNames(const char (&name)[kNameSize], const char (&localized_name)[kLocalizedSize]) {
    const Names names = {TextOr(name, XR_ERROR_NAME_INVALID), TextOr(localized_name, XR_ERROR_LOCALIZED_NAME_INVALID)};
    if (!IsPathLevel(names.name)) Refuse(XR_ERROR_PATH_FORMAT_INVALID);
    return names;
}

// `is_sibling` picks the living objects that share one name space with the new one.
template <class Object, class Predicate>
void CheckUnique(const Runtime& runtime, const Names& names, Predicate is_sibling) {
    const auto count = [&](auto has_name) {
        return runtime.handles.CountIf<Object>(
            [&](const Object& other) { return is_sibling(other) && has_name(other); });
    };
    if (count([&](const Object& other) { return other.name == names.name; }) > 0) Refuse(XR_ERROR_NAME_DUPLICATED);
    if (count([&](const Object& other) { return other.localized_name == names.localized_name; }) > 0) {
        Refuse(XR_ERROR_LOCALIZED_NAME_DUPLICATED);
    }
}

void CheckActionType(XrActionType type) {
    switch (type) {
        case XR_ACTION_TYPE_BOOLEAN_INPUT:
        case XR_ACTION_TYPE_FLOAT_INPUT:
        case XR_ACTION_TYPE_VECTOR2F_INPUT:
        case XR_ACTION_TYPE_POSE_INPUT:
        case XR_ACTION_TYPE_VIBRATION_OUTPUT:
            return;
        default:
            Refuse(XR_ERROR_VALIDATION_FAILURE);
    }
}

TopLevels CheckedSubactions(const Instance& instance, const XrActionCreateInfo& info) {
    Require(info.countSubactionPaths == 0 || info.subactionPaths);
    TopLevels tops = 0;
    for (std::uint32_t i = 0; i < info.countSubactionPaths; ++i) {
        const auto split = SplitTopLevel(instance.PathText(info.subactionPaths[i]));
        if (!split || !split->rest.empty() || (tops & BitOf(split->top))) Refuse(XR_ERROR_PATH_UNSUPPORTED);
        tops = static_cast<TopLevels>(tops | BitOf(split->top));
    }
    return tops;
}

}  // namespace

std::optional<TopLevel> Action::CheckedSubaction(const Instance& instance, XrPath path) const {
    if (path == XR_NULL_PATH) return std::nullopt;
    const auto split = SplitTopLevel(instance.PathText(path));
    if (!split || !split->rest.empty() || !(subactions & BitOf(split->top))) Refuse(XR_ERROR_PATH_UNSUPPORTED);
    return split->top;
}

XrResult CreateActionSet(XrInstance instance, const XrActionSetCreateInfo* info, XrActionSet* action_set) {
    return Guarded([&](Runtime& runtime) {
        const auto owner = runtime.Get(instance);
        RequireType(info, XR_TYPE_ACTION_SET_CREATE_INFO);
        Require(action_set);
        const Names names = CheckedNames(info->actionSetName, info->localizedActionSetName);
        CheckUnique<ActionSet>(runtime, names, [&](const ActionSet& other) { return other.instance == owner.get(); });
        auto created = std::make_shared<ActionSet>();
        created->instance = owner.get();
        created->name = names.name;
        created->localized_name = names.localized_name;
        created->priority = info->priority;
        *action_set = runtime.Add<XrActionSet>(std::move(created));
        return XR_SUCCESS;
    });
}

XrResult DestroyActionSet(XrActionSet action_set) {
    return Guarded([&](Runtime& runtime) {
        const auto destroyed = runtime.Get(action_set);
        runtime.handles.RemoveIf<Action>([&](const Action& action) { return action.set == destroyed; });
        runtime.Remove<ActionSet>(action_set);
        return XR_SUCCESS;
    });
}

XrResult CreateAction(XrActionSet action_set, const XrActionCreateInfo* info, XrAction* action) {
    return Guarded([&](Runtime& runtime) {
        const auto set = runtime.Get(action_set);
        RequireType(info, XR_TYPE_ACTION_CREATE_INFO);
        Require(action);
        if (set->attached) Refuse(XR_ERROR_ACTIONSETS_ALREADY_ATTACHED);
        const Names names = CheckedNames(info->actionName, info->localizedActionName);
        CheckUnique<Action>(runtime, names, [&](const Action& other) { return other.set == set; });
        CheckActionType(info->actionType);
        auto created = std::make_shared<Action>();
        created->set = set;
        created->name = names.name;
        created->localized_name = names.localized_name;
        created->type = info->actionType;
        created->subactions = CheckedSubactions(*set->instance, *info);
        set->subactions = static_cast<TopLevels>(set->subactions | created->subactions);
        *action = runtime.Add<XrAction>(std::move(created));
        return XR_SUCCESS;
    });
}

XrResult DestroyAction(XrAction action) {
    return Guarded([&](Runtime& runtime) {
        runtime.Get(action);
        runtime.Remove<Action>(action);
        return XR_SUCCESS;
    });
}

}  // namespace simulator
