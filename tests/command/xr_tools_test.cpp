// What the tools of the bridge's own are made of.
#include <gtest/gtest.h>

#include <cmath>

#include "command/bridge/held_inputs.h"
#include "command/xr/aim.h"
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

constexpr float kRightAngle = 1.57079633f;
constexpr float kHalf = 0.70710678f;
constexpr XrQuaternionf kTurnedLeft = {0, kHalf, 0, kHalf};  // looks to -x
constexpr XrQuaternionf kLooksUp = {kHalf, 0, 0, kHalf};

void expect_near(const XrVector3f& is, const XrVector3f& wanted) {
    EXPECT_LT(std::hypot(is.x - wanted.x, is.y - wanted.y, is.z - wanted.z), 1e-5f)
        << is.x << ", " << is.y << ", " << is.z;
}

void expect_near(const XrQuaternionf& is, const XrQuaternionf& wanted) {
    expect_near(XrVector3f{is.x, is.y, is.z}, {wanted.x, wanted.y, wanted.z});
    EXPECT_NEAR(is.w, wanted.w, 1e-5f);
}

TEST(Aim, FacesADirectionUprightAndKeepsTheHeadingStraightUp) {
    expect_near(facing({-3, 0, 0}, 0), kTurnedLeft);
    expect_near(facing({0, 2, -2}, 0), {0.38268343f, 0, 0, 0.92387953f});
    expect_near(facing({0, 5, 0}, 0), kLooksUp);
    expect_near(facing({0, -5, 0}, kRightAngle), {-0.5f, 0.5f, 0.5f, 0.5f});
    EXPECT_NEAR(heading_of(kTurnedLeft), kRightAngle, 1e-6f);
    EXPECT_NEAR(heading_of({-0.5f, 0.5f, 0.5f, 0.5f}), kRightAngle, 1e-5f);  // straight down, its top to -x
    EXPECT_NEAR(heading_of({0.5f, 0.5f, -0.5f, 0.5f}), kRightAngle, 1e-5f);  // straight up
}

TEST(Aim, MovesAlongTheLevelWhereverTheHeadLooksAndCarriesWhatIsHeld) {
    const XrPosef up_there = {kLooksUp, {1, 2, 3}};
    expect_near(moved(up_there, {.ahead = 2, .right = 1, .up = 0.5f}).position, {2, 2.5f, 1});
    const XrPosef from = {{0, 0, 0, 1}, {1, 2, 3}};
    const XrPosef to = moved(from, {.ahead = 1, .turn_left = kRightAngle, .look_up = kRightAngle});
    expect_near(to.position, {1, 2, 2});
    expect_near(to.orientation, {0.5f, 0.5f, -0.5f, 0.5f});
    const XrPosef held = carried({{0, 0, 0, 1}, {1, 2, 2}}, from, {kTurnedLeft, {5, 5, 5}});
    expect_near(held.position, {4, 5, 5});
    expect_near(held.orientation, kTurnedLeft);
}

TEST(Aim, FollowsARayThroughAPictureToABox) {
    const XrFovf fov = {-0.4636476f, 0.7853982f, 0.7853982f, -0.4636476f};  // tangents -0.5, 1, 1, -0.5
    const ray middle = ray_through({kTurnedLeft, {0, 1, 0}}, fov, 1.0f / 3, 2.0f / 3);
    expect_near(middle.direction, {-1, 0, 0});
    expect_near(ray_through({{0, 0, 0, 1}, {}}, fov, 1, 1.0f / 3).direction, {2.0f / 3, 1.0f / 3, -2.0f / 3});
    const XrPosef box = {kTurnedLeft, {-5, 1, 0}};
    EXPECT_NEAR(distance_to_box(middle, box, {1, 1, 4}).value_or(0), 3, 1e-5f);  // its depth lies along x
    EXPECT_NEAR(distance_to_box({{-5, 1, 0}, {-1, 0, 0}}, box, {1, 1, 4}).value_or(0), 2, 1e-5f);
    EXPECT_NEAR(distance_to_box(middle, box, {0.5f, 0.5f, 0}).value_or(0), 5, 1e-5f);
    EXPECT_FALSE(distance_to_box({{0, 2, 0}, {-1, 0, 0}}, box, {1, 1, 4}));
    EXPECT_FALSE(distance_to_box({{0, 1, 0}, {1, 0, 0}}, box, {1, 1, 4}));
}

}  // namespace
}  // namespace velmoor
