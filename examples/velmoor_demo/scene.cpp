#include "examples/velmoor_demo/scene.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "xr/pose_math.h"

namespace demo {
namespace {

constexpr XrQuaternionf kUpright = {0, 0, 0, 1};
constexpr XrVector3f kWhite = {0.9f, 0.9f, 0.9f};
constexpr XrVector3f kLit = {1.0f, 0.75f, 0.1f};
constexpr XrVector3f kUnlit = {0.12f, 0.1f, 0.08f};
// In front of the wall ahead.
constexpr float kBoard = -1.9f;

using Boxes = std::vector<Box>;

// Of a thing with that pose, an offset part.
Box Part(const XrPosef& thing, const XrVector3f& offset, const XrVector3f& size, const XrVector3f& colour,
         float glow = 0.0f) {
    const XrPosef pose = orvanic_xr::Compose(thing, {kUpright, offset});
    return {pose.position, pose.orientation, size, colour, glow};
}

XrVector3f ColourOf(const std::string& name) {
    constexpr struct {
        const char* name;
        XrVector3f colour;
    } kRows[] = {
        {"red", {0.8f, 0.03f, 0.03f}},    {"green", {0.05f, 0.5f, 0.06f}},  {"blue", {0.04f, 0.1f, 0.8f}},
        {"yellow", {0.9f, 0.7f, 0.03f}},  {"orange", {0.9f, 0.25f, 0.02f}}, {"purple", {0.3f, 0.04f, 0.5f}},
        {"pink", {0.9f, 0.3f, 0.5f}},     {"cyan", {0.05f, 0.7f, 0.8f}},    {"grey", {0.2f, 0.2f, 0.2f}},
        {"black", {0.01f, 0.01f, 0.01f}},
    };
    for (const auto& row : kRows) {
        if (name == row.name) return row.colour;
    }
    return kWhite;
}

void AddCubes(const std::vector<Cube>& cubes, Boxes& boxes) {
    for (const Cube& cube : cubes) {
        const auto& [x, y, z] = cube.position;
        boxes.push_back({{x, y, z}, kUpright, {cube.size, cube.size, cube.size}, ColourOf(cube.color), 0.0f});
    }
}

// As a clock shows it. Bits from the lowest: top, upper left, upper right, middle, lower left, lower right, bottom.
void AddDigit(char digit, float x, float y, Boxes& boxes) {
    constexpr unsigned kSegments[] = {0x77, 0x24, 0x5d, 0x6d, 0x2e, 0x6b, 0x7b, 0x25, 0x7f, 0x6f};
    constexpr float kBar = 0.12f;
    constexpr float kThick = 0.03f;
    constexpr struct {
        float x, y;
        bool stands;
    } kBars[] = {{0, 1, false},        {-0.5f, 0.5f, true}, {0.5f, 0.5f, true}, {0, 0, false},
                 {-0.5f, -0.5f, true}, {0.5f, -0.5f, true}, {0, -1, false}};
    const unsigned segments = digit == '-' ? 0x08 : kSegments[digit - '0'];
    for (unsigned i = 0; i < 7; ++i) {
        if ((segments >> i & 1) == 0) continue;
        const XrVector3f size = kBars[i].stands ? XrVector3f{kThick, kBar, kThick} : XrVector3f{kBar, kThick, kThick};
        boxes.push_back({{x + kBars[i].x * kBar, y + kBars[i].y * kBar, kBoard}, kUpright, size, kWhite, 1.0f});
    }
}

void AddScore(int score, Boxes& boxes) {
    const std::string text = std::to_string(score);
    float x = -0.1f * static_cast<float>(text.size() - 1);
    for (const char digit : text) {
        AddDigit(digit, x, 1.95f, boxes);
        x += 0.2f;
    }
}

// The same number for the same `n`, from 0 to 1.
float Scattered(int n) {
    const double wave = std::sin(n * 12.9898) * 43758.5453;
    return static_cast<float>(wave - std::floor(wave));
}

void AddFalling(int count, float metres_per_second, const XrVector3f& size, const XrVector3f& colour, double seconds,
                Boxes& boxes) {
    constexpr float kTop = 2.5f;
    for (int i = 0; i < count; ++i) {
        const double fallen = seconds * metres_per_second + kTop * Scattered(3 * i);
        const float y = kTop - static_cast<float>(std::fmod(fallen, kTop));
        const float x = 4.0f * Scattered(3 * i + 1) - 2.0f;
        const float z = 1.4f * Scattered(3 * i + 2) - 1.85f;
        boxes.push_back({{x, y, z}, kUpright, size, colour, 0.5f});
    }
}

void AddWeather(const std::string& weather, double seconds, Boxes& boxes) {
    if (weather == "rain") AddFalling(120, 4.0f, {0.006f, 0.14f, 0.006f}, {0.1f, 0.25f, 0.7f}, seconds, boxes);
    if (weather == "snow") AddFalling(120, 0.5f, {0.025f, 0.025f, 0.025f}, kWhite, seconds, boxes);
    if (weather != "sun") return;
    // A star of two squares.
    for (const float angle : {0.0f, 0.3927f}) {
        const XrQuaternionf turn = {0, 0, std::sin(angle), std::cos(angle)};
        boxes.push_back({{-1.2f, 2.05f, kBoard}, turn, {0.26f, 0.26f, 0.03f}, kLit, 1.0f});
    }
}

bool IsPressing(const HandState& hand) {
    return hand.trigger > 0.5f || hand.squeeze > 0.5f || !hand.pressed.empty();
}

// The controller with its button and stick, and a pointer.
void AddHand(const HandState& hand, const XrVector3f& colour, Boxes& boxes) {
    const bool is_pressing = IsPressing(hand);
    if (hand.grip) {
        boxes.push_back(Part(*hand.grip, {0, 0, 0}, {0.05f, 0.05f, 0.13f}, colour));
        boxes.push_back(Part(*hand.grip, {0, 0.035f, -0.02f}, {0.022f, 0.02f, 0.022f}, is_pressing ? kLit : kUnlit,
                             is_pressing ? 1.0f : 0.0f));
        const XrVector3f tilted = {0.02f * hand.thumbstick.x, 0.045f, 0.03f - 0.02f * hand.thumbstick.y};
        boxes.push_back(Part(*hand.grip, tilted, {0.012f, 0.04f, 0.012f}, kUnlit));
    }
    if (hand.aim) {
        const bool is_pulled = hand.trigger > 0.5f;
        boxes.push_back(Part(*hand.aim, {0, 0, -0.6f}, {0.008f, 0.008f, 1.1f}, is_pulled ? kLit : colour, 1.0f));
    }
}

// On the wall, for all to see.
void AddButton(bool is_lit, Boxes& boxes) {
    boxes.push_back({{1.1f, 1.95f, kBoard - 0.02f}, kUpright, {0.34f, 0.34f, 0.04f}, {0.2f, 0.2f, 0.22f}, 0.0f});
    boxes.push_back({{1.1f, 1.95f, kBoard + (is_lit ? 0.01f : 0.04f)},
                     kUpright,
                     {0.22f, 0.22f, 0.06f},
                     is_lit ? kLit : kUnlit,
                     is_lit ? 1.0f : 0.0f});
}

}  // namespace

std::vector<Box> MakeScene(const Game::Standing& standing, const std::vector<Cube>& cubes,
                           const std::array<HandState, 2>& hands, double seconds) {
    Boxes boxes;
    AddCubes(cubes, boxes);
    AddScore(standing.score, boxes);
    AddWeather(standing.weather, seconds, boxes);
    AddButton(IsPressing(hands[0]) || IsPressing(hands[1]), boxes);
    AddHand(hands[0], {0.05f, 0.2f, 0.6f}, boxes);
    AddHand(hands[1], {0.6f, 0.12f, 0.08f}, boxes);
    return boxes;
}

}  // namespace demo
