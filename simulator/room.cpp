#include "simulator/room.h"

#include <utility>

namespace simulator {
namespace {

constexpr float kHalf = 0.70710678f;
constexpr XrQuaternionf kFacingAhead = {0, 0, 0, 1};
constexpr XrQuaternionf kFacingBack = {0, 1, 0, 0};
constexpr XrQuaternionf kFacingRight = {0, kHalf, 0, kHalf};
constexpr XrQuaternionf kFacingLeft = {0, -kHalf, 0, kHalf};
constexpr XrQuaternionf kFacingUp = {-kHalf, 0, 0, kHalf};
constexpr XrQuaternionf kFacingDown = {kHalf, 0, 0, kHalf};

constexpr Colour kWood = {170, 112, 62};
constexpr Colour kWall = {226, 212, 178};

XrUuidEXT UuidOf(std::size_t number) {
    XrUuidEXT uuid = {{0x51, 0x3a, 0x00, 0x7d, 0x90, 0x2c, 0x4e, 0x10, 0x8b, 0x6f, 0x00, 0x00, 0x00, 0x00}};
    uuid.data[14] = static_cast<std::uint8_t>(number >> 8);
    uuid.data[15] = static_cast<std::uint8_t>(number);
    return uuid;
}

XrRect2Df Centred(float width, float height) {
    return {{-width / 2, -height / 2}, {width, height}};
}

Thing Surface(const char* label, const XrQuaternionf& facing, const XrVector3f& middle, float width, float height,
              Colour colour) {
    Thing thing;
    thing.label = label;
    thing.pose = {facing, middle};
    thing.surface = Centred(width, height);
    thing.colour = colour;
    return thing;
}

// Stands on the floor; its pose is the middle of its top.
Thing Furniture(const char* label, float x, float z, const XrExtent3DfKS& size, Colour colour) {
    Thing thing;
    thing.label = label;
    thing.pose = {kFacingUp, {x, size.depth, z}};
    thing.body = XrRect3DfKS{{-size.width / 2, -size.height / 2, -size.depth}, size};
    thing.colour = colour;
    return thing;
}

Thing WithTop(Thing thing) {
    thing.surface = Centred(thing.body->extent.width, thing.body->extent.height);
    return thing;
}

// Sizes of furniture are width, depth along the floor, and height.
std::vector<Thing> Furnishings() {
    constexpr float kX = kRoomWidth / 2;
    constexpr float kZ = kRoomDepth / 2;
    constexpr float kMid = kRoomHeight / 2;
    return {
        Surface("FLOOR", kFacingUp, {0, 0, 0}, kRoomWidth, kRoomDepth, {164, 146, 124}),
        Surface("CEILING", kFacingDown, {0, kRoomHeight, 0}, kRoomWidth, kRoomDepth, {235, 235, 230}),
        Surface("WALL", kFacingAhead, {0, kMid, -kZ}, kRoomWidth, kRoomHeight, kWall),
        Surface("WALL", kFacingBack, {0, kMid, kZ}, kRoomWidth, kRoomHeight, {146, 182, 208}),
        Surface("WALL", kFacingRight, {-kX, kMid, 0}, kRoomDepth, kRoomHeight, {214, 150, 128}),
        Surface("WALL", kFacingLeft, {kX, kMid, 0}, kRoomDepth, kRoomHeight, {150, 198, 152}),
        WithTop(Furniture("TABLE", -1.3f, -1.2f, {1.2f, 0.8f, 0.75f}, kWood)),
        WithTop(Furniture("TABLE", 1.5f, -0.4f, {0.6f, 0.6f, 0.45f}, kWood)),
        Furniture("COUCH", 0.2f, 1.5f, {2.0f, 0.9f, 0.8f}, {62, 92, 160}),
        Furniture("LAMP", 2.1f, -1.6f, {0.3f, 0.3f, 1.6f}, {250, 196, 104}),
        Furniture("", -2.0f, 1.2f, {0.5f, 0.5f, 0.6f}, {122, 84, 158}),
    };
}

Thing Container(std::size_t number, std::vector<XrUuidEXT> contents) {
    Thing thing;
    thing.uuid = UuidOf(number);
    thing.contents = std::move(contents);
    return thing;
}

}  // namespace

std::vector<Thing> Furnish(SceneMode mode) {
    std::vector<Thing> things = Furnishings();
    std::vector<XrUuidEXT> uuids;
    for (std::size_t i = 0; i < things.size(); ++i) {
        things[i].uuid = UuidOf(i + 1);
        uuids.push_back(things[i].uuid);
    }
    if (mode != SceneMode::kNone) things.push_back(Container(0x2000, std::move(uuids)));
    return things;
}

}  // namespace simulator
