#include "layer/binding_mirror.h"

#include <cstdint>
#include <optional>
#include <set>
#include <utility>

#include "context/context_manager.h"
#include "context/session_context.h"
#include "diagnostics/logger.h"
#include "layer/dispatch/dispatch.h"
#include "layer/dispatch/paths.h"
#include "layer/path_translation.h"

namespace orvanic_xr {
namespace {

// `bindings` in terms of the mirrored profile, each pair of action and path once. `seen` holds those of the
// profiles before.
void AppendTranslated(XrInstance instance, const std::vector<XrActionSuggestedBinding>& bindings,
                      std::set<std::pair<XrAction, std::string>>& seen,
                      std::vector<XrActionSuggestedBinding>& mirrored) {
    for (const XrActionSuggestedBinding& binding : bindings) {
        const std::string path = TextFromPath(instance, binding.binding);
        if (path.empty()) continue;
        const std::optional<std::string> translated = ProntoControllerPlusPath(path);
        if (!translated) {
            LogInfo("Mirror: dropping path with no pronto_controller_plus equivalent: ", path);
            continue;
        }
        if (!seen.emplace(binding.action, *translated).second) continue;
        XrPath translated_path = XR_NULL_PATH;
        if (XR_FAILED(StringToPath(instance, *translated, translated_path))) {
            LogWarning("Mirror: xrStringToPath failed for ", *translated);
            continue;
        }
        mirrored.push_back({binding.action, translated_path});
    }
}

std::string Joined(const SuggestedBindingsByProfile& by_profile) {
    std::string names;
    for (const auto& [profile, bindings] : by_profile) names.append(names.empty() ? "" : ", ").append(profile);
    return names;
}

std::vector<XrActionSuggestedBinding> Mirrored(XrInstance instance, const SuggestedBindingsByProfile& by_profile) {
    std::set<std::pair<XrAction, std::string>> seen;
    std::vector<XrActionSuggestedBinding> mirrored;
    for (const auto& [name, bindings] : by_profile) AppendTranslated(instance, bindings, seen, mirrored);
    if (mirrored.empty()) {
        LogWarning("EnsureProntoControllerPlusBindingsSuggested: no translatable bindings found");
    } else {
        LogInfo(
            "EnsureProntoControllerPlusBindingsSuggested: App did not suggest bindings for pronto_controller_plus; "
            "mirroring ",
            mirrored.size(), " translated bindings from {", Joined(by_profile),
            "} so ZAMS conformance automation mock devices can bind app actions");
    }
    return mirrored;
}

}  // namespace

BindingMirror& BindingMirror::instance() {
    static BindingMirror& mirror = *new BindingMirror;
    return mirror;
}

void BindingMirror::Note(const std::string& profile, std::span<const XrActionSuggestedBinding> bindings, bool alone) {
    const bool is_mirrored = profile == kProntoControllerPlusProfile;
    if (is_mirrored) LogInfo("App suggested bindings for pronto_controller_plus");
    std::lock_guard lock(mutex_);
    if (std::exchange(session_ended_, false)) {
        suggestedBindingsByProfile.clear();
        appSuggestedProntoBindings = false;
        pronto_alone_.clear();
    }
    if (is_mirrored) {
        appSuggestedProntoBindings = true;
        pronto_alone_.clear();
        if (alone) pronto_alone_.assign(bindings.begin(), bindings.end());
    } else if (!bindings.empty()) {
        suggestedBindingsByProfile[profile].assign(bindings.begin(), bindings.end());
    }
}

SuggestedBindingsByProfile BindingMirror::ToMirror() const {
    std::lock_guard lock(mutex_);
    return appSuggestedProntoBindings ? SuggestedBindingsByProfile() : suggestedBindingsByProfile;
}

std::vector<XrActionSuggestedBinding> BindingMirror::ToSuggestAgain() const {
    std::lock_guard lock(mutex_);
    return pronto_alone_;
}

void BindingMirror::NoteSessionEnd() {
    std::lock_guard lock(mutex_);
    session_ended_ = true;
}

bool BindingMirror::NoteRefusal(const std::string& profile) {
    std::lock_guard lock(mutex_);
    return refused_profiles_.insert(profile).second;
}

void BindingMirror::NoteAction(XrAction action, XrActionSet set) {
    std::lock_guard lock(mutex_);
    sets_of_actions_[action] = set;
}

void BindingMirror::ForgetAction(XrAction action) {
    std::lock_guard lock(mutex_);
    ForgetActionLocked(action);
}

std::vector<XrAction> BindingMirror::ForgetActionsOf(XrActionSet set) {
    std::lock_guard lock(mutex_);
    std::vector<XrAction> actions;
    for (const auto& [action, its_set] : sets_of_actions_) {
        if (its_set == set) actions.push_back(action);
    }
    for (const XrAction action : actions) ForgetActionLocked(action);
    return actions;
}

void BindingMirror::ForgetActionLocked(XrAction action) {
    sets_of_actions_.erase(action);
    const auto is_of_action = [&](const XrActionSuggestedBinding& binding) { return binding.action == action; };
    for (auto& [profile, bindings] : suggestedBindingsByProfile) std::erase_if(bindings, is_of_action);
    std::erase_if(pronto_alone_, is_of_action);
    std::erase_if(suggestedBindingsByProfile, [](const auto& entry) { return entry.second.empty(); });
}

void BindingMirror::ForgetBindings() {
    std::lock_guard lock(mutex_);
    suggestedBindingsByProfile.clear();
    appSuggestedProntoBindings = false;
    pronto_alone_.clear();
    session_ended_ = false;
    refused_profiles_.clear();
    sets_of_actions_.clear();
}

void AppendOwnBindings(const SessionContext& context, std::vector<XrActionSuggestedBinding>& bindings) {
    if (context.ended()) return;
    for (const XrActionSuggestedBinding& own : context.SuggestedBindings()) {
        if (own.action) bindings.push_back(own);
    }
}

void EnsureProntoControllerPlusBindingsSuggested(const SessionContext& context) {
    const SuggestedBindingsByProfile by_profile = BindingMirror::instance().ToMirror();
    std::vector<XrActionSuggestedBinding> bindings;
    if (by_profile.empty()) bindings = BindingMirror::instance().ToSuggestAgain();
    if (by_profile.empty() && bindings.empty()) {
        LogInfo("EnsureProntoControllerPlusBindingsSuggested: nothing to do");
        return;
    }
    const DispatchHolder& holder = DispatchHolder::instance();
    const XrInstance instance = ContextManager::instance().getInstanceHandle();
    const auto suggest = holder.Slot(&NextDispatchTable::SuggestInteractionProfileBindings);
    if (!instance || !suggest || !holder.Slot(&NextDispatchTable::StringToPath)) return;

    XrPath profile = XR_NULL_PATH;
    if (XR_FAILED(StringToPath(instance, kProntoControllerPlusProfile, profile))) {
        LogWarning("Failed to resolve /interaction_profiles/kest/pronto_controller_plus; skipping mirror");
        return;
    }
    if (!by_profile.empty()) bindings = Mirrored(instance, by_profile);
    // The mock devices feed the layer's own actions as well, which no other suggestion binds to this profile.
    AppendOwnBindings(context, bindings);
    if (bindings.empty()) return;
    const XrInteractionProfileSuggestedBinding suggestion = {XR_TYPE_INTERACTION_PROFILE_SUGGESTED_BINDING, nullptr,
                                                             profile, static_cast<std::uint32_t>(bindings.size()),
                                                             bindings.data()};
    const XrResult result = suggest(instance, &suggestion);
    if (XR_FAILED(result)) {
        LogWarning("Failed to suggest mirrored pronto_controller_plus bindings, XrResult=", result);
    }
}

}  // namespace orvanic_xr
