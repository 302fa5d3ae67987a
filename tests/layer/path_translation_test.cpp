#include "layer/path_translation.h"

#include <gmock/gmock.h>

#include <string>

namespace orvanic_xr {
namespace {

TEST(PathTranslation, FindsTheSimulatedControllersOwnPath) {
    // Behind the hand's "input/"; an empty text is a dropped path.
    const struct {
        std::string source, left, right;
    } kRows[] = {
        {"palm/pose", "", ""},
        {"thumbstick/x", "thumbstick/x", "thumbstick/x"},
        {"squeeze/click", "squeeze/value", "squeeze/value"},
        {"select/click", "x/click", "a/click"},
        {"menu/click", "menu/click", "system/click"},
        {"x/click", "x/click", ""},
        {"trackpad/x", "", ""},
        {"grip/pose/", "", ""},
    };
    const auto expect = [](const std::string& hand, const std::string& source, const std::string& target) {
        const auto found = ProntoControllerPlusPath(hand + "input/" + source);
        EXPECT_EQ(found.value_or(""), target.empty() ? "" : hand + "input/" + target) << hand << source;
    };
    for (const auto& row : kRows) {
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
