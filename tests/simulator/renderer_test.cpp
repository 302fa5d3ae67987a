// Pictures of the simulated world: what is where in them, and the extension that hands them out.
#include "simulator/renderer/picture.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "tests/simulator/simulator_fixture.h"
#include "xr/pose_math.h"
#include "xr/simulator_capture_records.h"

namespace simulator_test {
namespace {

using orvanic_xr::Compose;
using orvanic_xr::Multiply;
using orvanic_xr::SimulatorCompositorCaptureInfo;
using simulator::EyeView;
using simulator::LitRoom;
using simulator::SceneMode;
using simulator::WorldView;
using testing::Each;

constexpr float kQuarterTurn = 0.7853982f;
constexpr XrFovf kFieldOfView = {-kQuarterTurn, kQuarterTurn, kQuarterTurn, -kQuarterTurn};

XrQuaternionf Turned(float yaw, float pitch = 0, float roll = 0) {
    const XrQuaternionf around_y = {0, std::sin(yaw / 2), 0, std::cos(yaw / 2)};
    const XrQuaternionf around_x = {std::sin(pitch / 2), 0, 0, std::cos(pitch / 2)};
    const XrQuaternionf around_z = {0, 0, std::sin(roll / 2), std::cos(roll / 2)};
    return Multiply(Multiply(around_y, around_x), around_z);
}

WorldView RoomSeenFrom(const XrPosef& head) {
    WorldView world;
    for (const simulator::Thing& thing : simulator::Furnish(SceneMode::kFurnished)) {
        if (thing.surface || thing.body) world.things.push_back(thing);
    }
    world.eyes = {EyeView{Compose(head, {{0, 0, 0, 1}, {-0.03f, 0, 0}}), kFieldOfView},
                  EyeView{Compose(head, {{0, 0, 0, 1}, {0.03f, 0, 0}}), kFieldOfView}};
    return world;
}

const LitRoom& FurnishedRoom() {
    static const LitRoom room(RoomSeenFrom({}).things);
    return room;
}

struct Picture {
    Picture(const WorldView& world, std::size_t eye, std::uint32_t picture_width, std::uint32_t picture_height)
        : width(picture_width), bytes(std::size_t{picture_width} * picture_height * 4) {
        simulator::DrawPicture(world, FurnishedRoom(), eye, picture_width, picture_height, bytes.data());
    }

    struct Pixel {
        int red, green, blue;
    };
    Pixel At(std::size_t x, std::size_t y) const {
        const std::uint8_t* pixel = &bytes[(y * width + x) * 4];
        return {pixel[0], pixel[1], pixel[2]};
    }

    std::uint32_t width;
    std::vector<std::uint8_t> bytes;
};

TEST(Renderer, EachWallIsSeenWhereItStands) {
    const struct {
        const char* name;
        float yaw;
        float pitch;
        bool (*is_it)(Picture::Pixel);
    } rows[] = {
        {"ahead, sand", 0, 0.2f, [](Picture::Pixel p) { return p.red > p.green && p.green > p.blue + 15; }},
        {"to the left, red", 2 * kQuarterTurn, 0.2f, [](Picture::Pixel p) { return p.red > p.green + 30; }},
        {"behind, blue", 4 * kQuarterTurn, 0.2f, [](Picture::Pixel p) { return p.blue > p.red + 30; }},
        {"to the right, green", -2 * kQuarterTurn, 0.2f,
         [](Picture::Pixel p) { return p.green > p.red + 20 && p.green > p.blue + 20; }},
        {"below, the grey floor", 0.4f, -1.2f, [](Picture::Pixel p) { return p.red > p.blue + 15; }},
        {"above, the bright panel", 0, 2 * kQuarterTurn, [](Picture::Pixel p) { return p.blue > 220; }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const Picture picture(RoomSeenFrom({Turned(row.yaw, row.pitch), {0.2f, 1.6f, 0.1f}}), 0, 65, 65);
        const Picture::Pixel pixel = picture.At(32, 32);
        EXPECT_TRUE(row.is_it(pixel)) << pixel.red << " " << pixel.green << " " << pixel.blue;
    }
}

struct Spot {
    float x = 0;
    float y = 0;
    int pixels = 0;
};

// The middle of what is as blue as the left controller's head and as nothing else.
Spot BlueSpot(const Picture& picture) {
    Spot spot;
    for (std::size_t i = 0; i < picture.bytes.size() / 4; ++i) {
        const std::uint8_t* pixel = &picture.bytes[i * 4];
        if (pixel[2] < 120 || pixel[0] * 3 > pixel[1]) continue;
        spot.x += static_cast<float>(i % picture.width);
        spot.y += static_cast<float>(i / picture.width);
        ++spot.pixels;
    }
    spot.x /= static_cast<float>(std::max(spot.pixels, 1));
    spot.y /= static_cast<float>(std::max(spot.pixels, 1));
    return spot;
}

TEST(Renderer, ControllerStandsWherePerspectivePutsItForEachEyeHoweverTheHeadIsTurned) {
    // The head of the controller is 4 cm ahead of the grip and 1.4 cm above it: 0.3 to the right, 0.2 up, 1 ahead of
    // the wearer. So it lies 0.3 +- 0.03 and 0.2 of half a picture from the middle.
    const XrPosef grip = {{0, 0, 0, 1}, {0.3f, 0.186f, -0.96f}};
    const XrPosef heads[] = {
        {{0, 0, 0, 1}, {0, 1.6f, 0.5f}},
        {Turned(2.2f, -0.3f, 0.5f), {0.6f, 1.4f, -0.2f}},
        {Turned(0.1f, -0.9f, 3.0f), {-0.4f, 1.9f, 0.3f}},
    };
    for (const XrPosef& head : heads) {
        WorldView world = RoomSeenFrom(head);
        world.controllers[0].grip = Compose(head, grip);
        const Spot left = BlueSpot(Picture(world, 0, 500, 400));
        const Spot right = BlueSpot(Picture(world, 1, 500, 400));
        EXPECT_GT(left.pixels, 50);
        EXPECT_NEAR(left.x, 250 + 0.33f * 250, 8);
        EXPECT_NEAR(left.x - right.x, 0.06f * 250, 3);
        EXPECT_NEAR(left.y, 200 - 0.2f * 200, 8);
        EXPECT_NEAR(left.y, right.y, 1);
    }
}

TEST(Renderer, WhatIsBehindAWallOrBehindTheWearerIsHidden) {
    WorldView world = RoomSeenFrom({{0, 0, 0, 1}, {0, 1.6f, 0.5f}});
    for (const float z : {-2.2f, 1.0f}) {
        world.controllers[0].grip = XrPosef{{0, 0, 0, 1}, {0, 1.6f, z}};
        EXPECT_EQ(BlueSpot(Picture(world, 0, 400, 400)).pixels, 0) << z;
    }
    world.controllers[0].grip = XrPosef{{0, 0, 0, 1}, {0, 1.6f, -0.5f}};
    EXPECT_GT(BlueSpot(Picture(world, 0, 400, 400)).pixels, 20);
}

TEST(Renderer, AnySizeIsFilledWholeAndNoFurther) {
    const WorldView world = RoomSeenFrom({Turned(0.7f, -0.2f), {0, 1.6f, 0.5f}});
    const struct { std::uint32_t width, height; } sizes[] = {{1, 1}, {3, 1}, {1, 70}, {33, 67}, {64, 32}};
    for (const auto [width, height] : sizes) {
        SCOPED_TRACE(std::to_string(width) + "x" + std::to_string(height));
        const std::size_t size = std::size_t{width} * height * 4;
        std::vector<std::uint8_t> pixels(size + 16, 0x5A);
        simulator::DrawPicture(world, FurnishedRoom(), 0, width, height, pixels.data());
        EXPECT_THAT(std::vector(pixels.begin() + static_cast<std::ptrdiff_t>(size), pixels.end()), Each(0x5A));
        for (std::size_t i = 3; i < size; i += 4) ASSERT_EQ(pixels[i], 255);
    }
}

TEST(Renderer, PosesBeyondAllBoundsAreDrawnSomehow) {
    constexpr float kHuge = std::numeric_limits<float>::max();
    constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
    for (const float x : {1e6f, -1e20f, kHuge, std::numeric_limits<float>::infinity(), kNan}) {
        WorldView world = RoomSeenFrom({{0, 0, 0, 1}, {x, 1.6f, 0.5f}});
        world.controllers[1].aim = XrPosef{{0, 0, 0, 1}, {0, x, -x}};
        world.controllers[1].trigger = x;
        const Picture picture(world, 1, 40, 40);
        EXPECT_EQ(picture.bytes[3], 255);
    }
}

class SimulatorCapture : public SimulatorTest {
 protected:
    void SetUp() override {
        setenv("VELMOOR_SIM_EYE_SIZE", "64x48", 1);
        SimulatorTest::SetUp();
        Load("xrStartSimulatorCompositorOutputCaptureKESTX1", start_);
        Load("xrStopSimulatorCompositorOutputCaptureKESTX1", stop_);
        Load("xrCaptureSimulatorCompositorOutputKESTX1", capture_);
    }
    void TearDown() override {
        SimulatorTest::TearDown();
        unsetenv("VELMOOR_SIM_EYE_SIZE");
    }
    std::vector<const char*> Extensions() const override {
        return {"XR_MND_headless", "XR_EXT_conformance_automation", orvanic_xr::kSimulatorCompositorCaptureExtension};
    }
    template <class Function>
    void Load(const char* name, Function& function) {
        EXPECT_EQ(RuntimeLookup()(instance_, name, reinterpret_cast<PFN_xrVoidFunction*>(&function)), XR_SUCCESS);
    }

    XrSession CapturingSession() {
        const XrSession session = MakeFocusedSession();
        EXPECT_EQ(start_(session, 3), XR_SUCCESS);
        return session;
    }
    SimulatorCompositorCaptureInfo Info(std::uint64_t eye = 1, std::uint8_t* pixels = nullptr) {
        return {orvanic_xr::kSimulatorCompositorCaptureInfoType, nullptr, eye, &width_, &height_, pixels};
    }
    std::vector<std::uint8_t> Capture(XrSession session, std::uint64_t eye) {
        auto info = Info(eye);
        EXPECT_EQ(capture_(session, &info), XR_SUCCESS);
        std::vector<std::uint8_t> pixels(std::size_t{width_} * height_ * 4);
        info.pixels = pixels.data();
        EXPECT_EQ(capture_(session, &info), XR_SUCCESS);
        return pixels;
    }

    orvanic_xr::PFN_xrStartSimulatorCompositorOutputCaptureKESTX1 start_ = nullptr;
    orvanic_xr::PFN_xrStopSimulatorCompositorOutputCaptureKESTX1 stop_ = nullptr;
    orvanic_xr::PFN_xrCaptureSimulatorCompositorOutputKESTX1 capture_ = nullptr;
    std::uint32_t width_ = 0;
    std::uint32_t height_ = 0;
};

TEST_F(SimulatorCapture, PictureFollowsTheSimulatedHeadAndTheEye) {
    const XrSession session = CapturingSession();
    const XrPath head = Path("/user/head");
    SetInputDeviceActiveEXT(session, Path("/interaction_profiles/kest/head_kestx2"), head, XR_TRUE);
    const XrSpace stage = MakeSpace(session, XR_REFERENCE_SPACE_TYPE_STAGE);
    const auto seen = [&](float yaw, std::uint64_t eye) {
        EXPECT_EQ(SetInputDeviceLocationEXT(session, head, Path("/user/head/input/view_kest/pose"), stage,
                                            {Turned(yaw), {0, 1.6f, 0}}),
                  XR_SUCCESS);
        return Capture(session, eye);
    };
    const auto ahead = seen(0, 1);
    EXPECT_EQ(std::pair(width_, height_), std::pair(64u, 48u));
    EXPECT_NE(seen(0, 2), ahead);
    EXPECT_NE(seen(1, 1), ahead);
    EXPECT_EQ(seen(0, 1), ahead);
}

TEST_F(SimulatorCapture, CallsOutOfOrderAreRefused) {
    const XrSession session = MakeSession();
    auto info = Info();
    std::vector<std::uint8_t> pixels(64 * 48 * 4);
    auto for_pixels = Info(1, pixels.data());
    EXPECT_EQ(start_(session, 3), XR_ERROR_SESSION_NOT_RUNNING);
    Begin(session);
    EXPECT_EQ(capture_(session, &info), XR_ERROR_CALL_ORDER_INVALID);
    EXPECT_EQ(stop_(session), XR_ERROR_CALL_ORDER_INVALID);
    EXPECT_EQ(start_(session, 1), XR_SUCCESS);
    EXPECT_EQ(start_(session, 1), XR_ERROR_CALL_ORDER_INVALID);
    EXPECT_EQ(capture_(session, &for_pixels), XR_ERROR_CALL_ORDER_INVALID) << "nobody asked for the size";
    auto other_eye = Info(2);
    EXPECT_EQ(capture_(session, &other_eye), XR_ERROR_CALL_ORDER_INVALID);
    EXPECT_EQ(stop_(session), XR_SUCCESS);
    EXPECT_EQ(capture_(session, &info), XR_ERROR_CALL_ORDER_INVALID);
    EXPECT_EQ(start_(session, 1), XR_SUCCESS);
    EXPECT_EQ(RequestExitSession(session), XR_SUCCESS);
    EXPECT_EQ(EndSession(session), XR_SUCCESS);
    EXPECT_EQ(capture_(session, &info), XR_ERROR_SESSION_NOT_RUNNING);
}

}  // namespace
}  // namespace simulator_test
