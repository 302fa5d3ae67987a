#include "layer/path_translation.h"

#include <gmock/gmock.h>

#include <string>

namespace orvanic_xr {
namespace {

// Behind the hand's "input/": a text is the target, an empty one a dropped path.
struct Row {
    std::string source, left, right;
};

TEST(PathTranslation, FindsTheSimulatedControllersOwnPath) {
    const Row kRows[] = {
        {"grip/pose", "grip/pose", "grip/pose"},
        {"aim/pose", "aim/pose", "aim/pose"},
        {"palm_ext/pose", "", ""},
        {"palm/pose", "", ""},
        {"squeeze/value", "squeeze/value", "squeeze/value"},
        {"squeeze/click", "squeeze/value", "squeeze/value"},
        {"squeeze/force", "squeeze/value", "squeeze/value"},
        {"trigger/value", "trigger/value", "trigger/value"},
        {"trigger/click", "trigger/value", "trigger/value"},
        {"trigger/touch", "trigger/touch", "trigger/touch"},
        {"trigger/proximity", "trigger/proximity", "trigger/proximity"},
        {"trigger/force", "trigger/force", "trigger/force"},
        {"trigger/curl_kest", "trigger/curl_kest", "trigger/curl_kest"},
        {"trigger/slide_kest", "trigger/slide_kest", "trigger/slide_kest"},
        {"thumbstick", "thumbstick", "thumbstick"},
        {"thumbstick/x", "thumbstick/x", "thumbstick/x"},
        {"thumbstick/y", "thumbstick/y", "thumbstick/y"},
        {"thumbstick/click", "thumbstick/click", "thumbstick/click"},
        {"thumbstick/touch", "thumbstick/touch", "thumbstick/touch"},
        {"thumbrest/touch", "thumbrest/touch", "thumbrest/touch"},
        {"thumbrest/force", "", ""},
        {"select/click", "x/click", "a/click"},
        {"menu/click", "menu/click", "system/click"},
        {"system/click", "", "system/click"},
        {"x/click", "x/click", ""},
        {"x/touch", "x/touch", ""},
        {"y/click", "y/click", ""},
        {"y/touch", "y/touch", ""},
        {"a/click", "", "a/click"},
        {"a/touch", "", "a/touch"},
        {"b/click", "", "b/click"},
        {"b/touch", "", "b/touch"},
        {"trackpad/x", "", ""},
        {"grip/pose/", "", ""},
        {"", "", ""},
    };
    const auto expect = [](const std::string& hand, const std::string& source, const std::string& target) {
        const auto found = ProntoControllerPlusPath(hand + "input/" + source);
        EXPECT_EQ(found.value_or(""), target.empty() ? "" : hand + "input/" + target) << hand << source;
    };
    for (const Row& row : kRows) {
        expect("/user/hand/left/", row.source, row.left);
        expect("/user/hand/right/", row.source, row.right);
    }
}

TEST(PathTranslation, KeepsHapticsAndDropsWhatIsNoHandsInput) {
    EXPECT_EQ(ProntoControllerPlusPath("/user/hand/left/output/haptic"), "/user/hand/left/output/haptic");
    EXPECT_EQ(ProntoControllerPlusPath("/user/hand/right/output/haptic"), "/user/hand/right/output/haptic");
    for (const char* path : {"/user/head/input/trigger/value", "/user/hand/left", "/user/hand/left/trigger/value",
                             "/user/hand/left/input/output/haptic", "user/hand/left/input/trigger/value", ""}) {
        EXPECT_EQ(ProntoControllerPlusPath(path), std::nullopt) << path;
    }
}

}  // namespace
}  // namespace orvanic_xr
