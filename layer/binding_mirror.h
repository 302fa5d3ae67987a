// The controllers of the conformance automation present themselves under one interaction profile. An application
// that suggested bindings for others would get no input from them, so what it suggested is mirrored into that
// profile, once, just before its action sets are attached.
#pragma once

#include <openxr/openxr.h>

#include <map>
#include <mutex>
#include <set>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

namespace orvanic_xr {

class SessionContext;

using SuggestedBindingsByProfile = std::map<std::string, std::vector<XrActionSuggestedBinding>>;

// What the application suggested, across sessions. Any thread.
class BindingMirror {
 public:
    static BindingMirror& instance();

    // Replaces what was noted for `profile`. `alone` is said of bindings to which none of the layer's are added, for
    // want of a session. The first time after the end of a session everything older goes: an application that suggests
    // anew has made its actions anew.
    void Note(const std::string& profile, std::span<const XrActionSuggestedBinding> bindings, bool alone);
    void NoteSessionEnd();

    // Whether this is the first suggestion for `profile` that was refused with the layer's bindings in it.
    bool NoteRefusal(const std::string& profile);

    // An action that was destroyed, by itself or with its set, is not handed to the runtime again.
    void NoteAction(XrAction action, XrActionSet set);
    void ForgetAction(XrAction action);
    std::vector<XrAction> ForgetActionsOf(XrActionSet set);  // which those were

    // What there is to mirror: nothing if the application suggested for the mirrored profile itself.
    SuggestedBindingsByProfile ToMirror() const;
    // What the application suggested for that profile alone; a suggestion replaces the one before.
    std::vector<XrActionSuggestedBinding> ToSuggestAgain() const;

    // The instance is gone, with its actions and all that was suggested to it.
    void ForgetBindings();

 private:
    void ForgetActionLocked(XrAction action);

    // Guards all of them.
    mutable std::mutex mutex_;
    SuggestedBindingsByProfile suggestedBindingsByProfile;
    bool appSuggestedProntoBindings = false;
    std::vector<XrActionSuggestedBinding> pronto_alone_;
    bool session_ended_ = false;  // since the last suggestion
    std::set<std::string> refused_profiles_;
    std::unordered_map<XrAction, XrActionSet> sets_of_actions_;
};

// The layer's bindings, behind those that are there. An action that could not be made is left out: the next layer
// would refuse the application's bindings with it.
void AppendOwnBindings(const SessionContext& context, std::vector<XrActionSuggestedBinding>& bindings);

// Suggests the mirrored bindings to the next layer, and with them those of `context`, whose session is about to have
// its action sets attached. A failure is logged and changes nothing for the application.
void EnsureProntoControllerPlusBindingsSuggested(const SessionContext& context);

}  // namespace orvanic_xr
