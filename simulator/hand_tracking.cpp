#include "simulator/hand_tracking.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>

#include "simulator/runtime.h"
#include "simulator/session.h"
#include "simulator/spaces.h"
#include "xr/location.h"
#include "xr/pose_math.h"

namespace simulator {
namespace {

struct Joint {
    XrPosef pose;
    float radius;
};
using Hand = std::array<Joint, XR_HAND_JOINT_COUNT_EXT>;

// Of a right hand, in the palm's axes: -z towards the fingers, y out of the back of the hand, x towards the little
// finger. Metres and degrees; bones without length are not there.
struct Finger {
    XrHandJointEXT first;
    XrVector3f base;
    // Away from the little finger, and towards the palm.
    float spread;
    float bend;
    std::array<float, 4> bones;
    // By which each bone is bent more than the one before it.
    float curl;
};
constexpr Finger kFingers[] = {
    {XR_HAND_JOINT_THUMB_METACARPAL_EXT, {-0.020f, -0.010f, 0.035f}, 40, 20, {0.045f, 0.032f, 0.025f, 0}, 10},
    {XR_HAND_JOINT_INDEX_METACARPAL_EXT, {-0.015f, 0, 0.035f}, 6, 0, {0.066f, 0.040f, 0.023f, 0.022f}, 18},
    {XR_HAND_JOINT_MIDDLE_METACARPAL_EXT, {-0.002f, 0, 0.035f}, 0, 0, {0.064f, 0.044f, 0.027f, 0.023f}, 20},
    {XR_HAND_JOINT_RING_METACARPAL_EXT, {0.010f, 0, 0.035f}, -6, 0, {0.058f, 0.041f, 0.026f, 0.023f}, 22},
    {XR_HAND_JOINT_LITTLE_METACARPAL_EXT, {0.020f, 0, 0.033f}, -12, 0, {0.053f, 0.032f, 0.019f, 0.021f}, 24},
};
constexpr float kWristBehindPalm = 0.055f;
constexpr float kPalmRadius = 0.020f;
// From the first joint of a finger to its tip.
constexpr float kFingerRadii[] = {0.013f, 0.011f, 0.009f, 0.008f, 0.007f};

XrQuaternionf Turn(float degrees, const XrVector3f& axis) {
    const float half = degrees * 0.00872664626f;
    const float sine = std::sin(half);
    return {axis.x * sine, axis.y * sine, axis.z * sine, std::cos(half)};
}

void PutFinger(const Finger& finger, Hand& hand) {
    using orvanic_xr::Multiply;
    std::size_t joint = finger.first;
    XrPosef at = {Multiply(Turn(finger.spread, {0, 1, 0}), Turn(-finger.bend, {1, 0, 0})), finger.base};
    const float* radius = kFingerRadii;
    for (const float bone : finger.bones) {
        if (bone == 0.0f) break;
        hand[joint++] = {at, *radius++};
        at = orvanic_xr::Compose(at, {Turn(-finger.curl, {1, 0, 0}), {0, 0, -bone}});
    }
    // The tip points where the last bone does.
    hand[joint] = {{hand[joint - 1].pose.orientation, at.position}, std::end(kFingerRadii)[-1]};
}

Hand RightHand() {
    Hand hand = {};
    hand[XR_HAND_JOINT_PALM_EXT] = {orvanic_xr::kIdentityPose, kPalmRadius};
    hand[XR_HAND_JOINT_WRIST_EXT] = {{{0, 0, 0, 1}, {0, 0, kWristBehindPalm}}, kPalmRadius};
    for (const Finger& finger : kFingers) PutFinger(finger, hand);
    return hand;
}

// What is right becomes left.
XrPosef Mirrored(const XrPosef& pose) {
    const auto& [q, p] = pose;
    return {{q.x, -q.y, -q.z, q.w}, {-p.x, p.y, p.z}};
}

// Where the palm is that closes around a grip, in the grip's axes: its x axis runs along the palm's y, out of the right
// hand's back and into the left one's, and its y axis away from the fingers.
constexpr float kGripToPalm = 0.03f;
constexpr XrPosef kRightPalm = {{-0.5f, -0.5f, -0.5f, 0.5f}, {kGripToPalm, 0, 0}};
constexpr XrPosef kLeftPalm = {{-0.5f, 0.5f, 0.5f, 0.5f}, {-kGripToPalm, 0, 0}};

std::optional<XrPosef> GripOf(const Device& device, TopLevel hand) {
    if (!device.IsLocated()) return std::nullopt;
    for (const char* path : {"input/grip/pose", "input/aim/pose"}) {
        const auto source = device.profile->Find(hand, path);
        if (source && device.poses[*source]) return device.poses[*source];
    }
    return std::nullopt;
}

// There is nothing in the simulated world that tells how fast it moves. Throws when their count is not right.
void LeaveVelocitiesUnknown(const XrHandJointLocationsEXT& locations) {
    for (auto* link = static_cast<XrBaseOutStructure*>(locations.next); link; link = link->next) {
        if (link->type != XR_TYPE_HAND_JOINT_VELOCITIES_EXT) continue;
        const auto& velocities = *reinterpret_cast<const XrHandJointVelocitiesEXT*>(link);
        Require(velocities.jointCount == XR_HAND_JOINT_COUNT_EXT && velocities.jointVelocities);
        for (std::size_t i = 0; i < XR_HAND_JOINT_COUNT_EXT; ++i) velocities.jointVelocities[i].velocityFlags = 0;
    }
}

void WriteHand(TopLevel hand, const XrPosef& grip, XrHandJointLocationEXT* locations) {
    static const Hand right = RightHand();
    const bool is_left = hand == TopLevel::kLeftHand;
    const XrPosef palm = orvanic_xr::Compose(grip, is_left ? kLeftPalm : kRightPalm);
    for (const Joint& joint : right) {
        const XrPosef pose = orvanic_xr::Compose(palm, is_left ? Mirrored(joint.pose) : joint.pose);
        *locations++ = {orvanic_xr::kPoseValidAndTracked, pose, joint.radius};
    }
}

}  // namespace

XrResult CreateHandTrackerEXT(XrSession session, const XrHandTrackerCreateInfoEXT* info, XrHandTrackerEXT* tracker) {
    return Guarded([&](Runtime& runtime) {
        auto owner = runtime.Get(session);
        RequireType(info, XR_TYPE_HAND_TRACKER_CREATE_INFO_EXT);
        Require(tracker && (info->hand == XR_HAND_LEFT_EXT || info->hand == XR_HAND_RIGHT_EXT));
        Require(info->handJointSet == XR_HAND_JOINT_SET_DEFAULT_EXT);
        auto created = std::make_shared<HandTracker>();
        created->session = std::move(owner);
        created->hand = info->hand == XR_HAND_LEFT_EXT ? TopLevel::kLeftHand : TopLevel::kRightHand;
        *tracker = runtime.Add<XrHandTrackerEXT>(std::move(created));
        return XR_SUCCESS;
    });
}

XrResult DestroyHandTrackerEXT(XrHandTrackerEXT tracker) {
    return Guarded([&](Runtime& runtime) {
        runtime.Get(tracker);
        runtime.Remove<HandTracker>(tracker);
        return XR_SUCCESS;
    });
}

XrResult LocateHandJointsEXT(XrHandTrackerEXT tracker, const XrHandJointsLocateInfoEXT* info,
                             XrHandJointLocationsEXT* locations) {
    return Guarded([&](Runtime& runtime) {
        const auto asked = runtime.Get(tracker);
        RequireType(info, XR_TYPE_HAND_JOINTS_LOCATE_INFO_EXT);
        RequireType(locations, XR_TYPE_HAND_JOINT_LOCATIONS_EXT);
        Require(locations->jointCount == XR_HAND_JOINT_COUNT_EXT && locations->jointLocations);
        const auto base = runtime.Get(info->baseSpace);
        Require(base->session == asked->session);
        if (info->time <= 0) Refuse(XR_ERROR_TIME_INVALID);
        LeaveVelocitiesUnknown(*locations);
        const auto grip = GripOf(asked->session->devices[asked->hand], asked->hand);
        const auto base_pose = WorldPose(*base, info->time);
        locations->isActive = grip && base_pose;
        if (locations->isActive) {
            WriteHand(asked->hand, RelativePose(*grip, *base_pose), locations->jointLocations);
        } else {
            std::fill_n(locations->jointLocations, XR_HAND_JOINT_COUNT_EXT, XrHandJointLocationEXT{});
        }
        return XR_SUCCESS;
    });
}

}  // namespace simulator
