// The controllers of the conformance automation present themselves under one interaction profile. An application
// that suggested bindings for others would get no input from them, so what it suggested is mirrored into that
// profile, once, just before its action sets are attached.
#pragma once

#include <openxr/openxr.h>

#include <map>
#include <mutex>
#include <span>
#include <string>
#include <vector>

namespace orvanic_xr {

using SuggestedBindingsByProfile = std::map<std::string, std::vector<XrActionSuggestedBinding>>;

// What the application suggested, across sessions. Any thread.
class BindingMirror {
 public:
    static BindingMirror& instance();

    // Replaces what was noted for `profile`. The mirrored profile itself is only noted as suggested.
    void Note(const std::string& profile, std::span<const XrActionSuggestedBinding> bindings);

    // What there is to mirror: nothing if the application suggested for the mirrored profile itself.
    SuggestedBindingsByProfile ToMirror() const;

    // The actions are gone with their instance, and must not be handed to the runtime of another.
    void ForgetBindings();

 private:
    // Guards both.
    mutable std::mutex mutex_;
    SuggestedBindingsByProfile suggestedBindingsByProfile;
    bool appSuggestedProntoBindings = false;
};

// Suggests the mirrored bindings to the next layer. A failure is logged and changes nothing for the application.
void EnsureProntoControllerPlusBindingsSuggested();

}  // namespace orvanic_xr
