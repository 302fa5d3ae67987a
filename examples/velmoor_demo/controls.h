// What the player holds: the demo's actions for both hands, and what they say in this frame.
#pragma once

#include <openxr/openxr.h>

#include <array>
#include <optional>
#include <string>
#include <vector>

namespace demo {

inline constexpr std::array<const char*, 2> kHandNames = {"left", "right"};

struct HandState {
    // In the base space of Update; empty while the hand is not tracked.
    std::optional<XrPosef> grip;
    std::optional<XrPosef> aim;
    float trigger = 0.0f;
    float squeeze = 0.0f;
    XrVector2f thumbstick = {0.0f, 0.0f};
    // Names of the buttons that are down.
    std::vector<std::string> pressed;
};

class Controls {
 public:
    // Creates the actions, suggests their bindings and attaches them. Once in the life of a session.
    Controls(XrInstance instance, XrSession session);
    ~Controls();
    Controls(const Controls&) = delete;
    Controls& operator=(const Controls&) = delete;

    // Reads everything for a frame that is shown at `time`.
    std::array<HandState, 2> Update(XrSpace base, XrTime time);

    // The interaction profile that feeds a hand; "none" while there is none.
    std::string ProfileOf(std::size_t hand) const;

 private:
    XrPath Path(const std::string& text) const;
    XrAction MakeAction(const char* name, const char* shown_name, XrActionType type);
    void MakeActions();
    void SuggestBindings();
    void MakePoseSpaces();
    XrActionStateGetInfo Ask(XrAction action, std::size_t hand) const;
    std::optional<XrPosef> Locate(XrSpace space, XrSpace base, XrTime time) const;
    float ReadFloat(XrAction action, std::size_t hand) const;
    XrVector2f ReadVector(XrAction action, std::size_t hand) const;
    std::vector<std::string> ReadButtons(std::size_t hand) const;

    XrInstance instance_;
    XrSession session_;
    std::array<XrPath, 2> hand_paths_ = {};
    XrActionSet set_ = XR_NULL_HANDLE;
    XrAction grip_ = XR_NULL_HANDLE;
    XrAction aim_ = XR_NULL_HANDLE;
    XrAction trigger_ = XR_NULL_HANDLE;
    XrAction squeeze_ = XR_NULL_HANDLE;
    XrAction thumbstick_ = XR_NULL_HANDLE;
    // One for each row of kButtons.
    std::vector<XrAction> buttons_;
    std::array<XrSpace, 2> grip_spaces_ = {};
    std::array<XrSpace, 2> aim_spaces_ = {};
};

}  // namespace demo
