// What the tools of the bridge's own are made of.
#include <gtest/gtest.h>

#include "command/bridge/held_inputs.h"
#include "command/xr/image.h"

namespace velmoor {
namespace {

image grey(int width, int height, const std::vector<int>& values) {
    image made{width, height, {}};
    for (const int each : values) {
        const auto value = static_cast<std::uint8_t>(each);
        made.pixels.insert(made.pixels.end(), {value, value, value, 255});
    }
    return made;
}

TEST(Image, IsCutAndMadeSmallerByTheMeanOfWhatAPixelCovers) {
    const image whole = grey(6, 2, {0, 90, 30, 200, 0, 0, 0, 90, 30, 200, 0, 3});
    EXPECT_EQ(with_largest_edge(whole, 2).pixels, grey(2, 1, {40, 67}).pixels);
    EXPECT_EQ(with_largest_edge(whole, 4).pixels, grey(4, 1, {30, 50, 133, 1}).pixels);
    EXPECT_EQ(with_largest_edge(whole, 7).pixels, whole.pixels);
    const image part = cut(whole, {2, 1, 3, 1});
    EXPECT_EQ(part.pixels, grey(3, 1, {30, 200, 0}).pixels);
    const std::string file = write_png(part);
    EXPECT_EQ(read_png(file).pixels, part.pixels);
    EXPECT_THROW(read_png(file.substr(0, file.size() / 2)), std::runtime_error);
    EXPECT_THROW(read_png(write_jpeg(part, 85)), std::runtime_error);
}

TEST(HeldInputs, AreThoseThatWereSetAndNotSetBack) {
    held_inputs held;
    const auto set = [&](const char* component, double value, bool auto_release = false) {
        held.note(7, "openxr_set_controller_input",
                  {{"hand", "left"}, {"component", component}, {"value", value}, {"auto_release", auto_release}});
    };
    set("X", 1);
    set("Trigger", 0.5);
    set("Trigger", 0.7);
    set("X", 0);
    set("Y", 1, true);
    held.note(7, "openxr_set_controller_pose", {{"hand", "left"}});
    const auto all = held.all().at(7);
    EXPECT_EQ(all.releases, (std::vector<json>{{{"hand", "left"}, {"component", "Trigger"}, {"value", 0}}}));
    EXPECT_EQ(all.posed, std::set<std::string>{"left grip"});
}

}  // namespace
}  // namespace velmoor
