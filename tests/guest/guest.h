// An application under the real loader, with the built layer, on the simulator at its strictest.
#pragma once

#include <gtest/gtest.h>
#include <openxr/openxr.h>

#include <initializer_list>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

namespace guest_test {

inline constexpr char kLeft[] = "/user/hand/left";
inline constexpr XrPosef kIdentity = {{0, 0, 0, 1}, {0, 0, 0}};

class Guest : public testing::Test {
 protected:
    using Bindings = std::initializer_list<std::pair<XrAction, const char*>>;

    void SetUp() override { CreateInstance(); }
    void TearDown() override { DestroyInstance(); }

    void CreateInstance(XrVersion version = XR_MAKE_VERSION(1, 0, 0));
    void DestroyInstance();
    // Has the focus and had a frame when it is there.
    void CreateSession();
    // Ends it first, as one should.
    void DestroySession();
    // With a sync of `sets` in it, unless there are none.
    void RunFrame(const std::vector<XrActionSet>& sets = {});

    XrPath Path(const std::string& text);
    XrActionSet MakeActionSet(const std::string& name);
    XrAction MakeAction(XrActionSet set, const std::string& name, XrActionType type,
                        const std::vector<const char*>& subactions = {kLeft});
    XrSpace MakeActionSpace(XrAction action, const char* hand, const XrPosef& pose = kIdentity);
    XrSpace MakeSpace(XrReferenceSpaceType type);
    // The profile without "/interaction_profiles/".
    XrResult Suggest(const std::string& profile, Bindings bindings);
    XrResult Attach(const std::vector<XrActionSet>& sets);
    XrResult Sync(const std::vector<XrActionSet>& sets);
    XrPosef Locate(XrSpace space, XrSpace base);
    float Float(XrAction action, const char* hand);

    // The text of the tool's answer, or what of it is JSON.
    static std::string Call(const std::string& tool, const nlohmann::json& arguments);
    static nlohmann::json Ask(const std::string& tool, const nlohmann::json& arguments) {
        return nlohmann::json::parse(Call(tool, arguments));
    }

    XrInstance instance_ = XR_NULL_HANDLE;
    XrSession session_ = XR_NULL_HANDLE;
    XrTime time_ = 0;  // of the last frame
};

}  // namespace guest_test
