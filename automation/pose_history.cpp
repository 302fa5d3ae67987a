#include "automation/pose_history.h"

#include <algorithm>
#include <cmath>

#include "xr/pose_math.h"

namespace automation {
namespace {

using namespace orvanic_xr;

XrVector3f Scaled(const XrVector3f& v, float factor) {
    return {v.x * factor, v.y * factor, v.z * factor};
}

XrVector3f Difference(const XrVector3f& a, const XrVector3f& b) {
    return Add(a, Negate(b));
}

// The turn as an axis times an angle of at most half a turn.
XrVector3f RotationVector(XrQuaternionf turn) {
    if (turn.w < 0) turn = {-turn.x, -turn.y, -turn.z, -turn.w};
    const XrVector3f axis = {turn.x, turn.y, turn.z};
    const float sine = Length(axis);
    if (sine < 1e-7f) return Scaled(axis, 2.0f);
    return Scaled(axis, 2.0f * std::atan2(sine, turn.w) / sine);
}

XrQuaternionf Mixed(const XrQuaternionf& a, const XrQuaternionf& b, float share) {
    const float of_b = Dot(a, b) < 0 ? -share : share;
    const float of_a = 1 - share;
    return safe_normalize(XrQuaternionf{a.x * of_a + b.x * of_b, a.y * of_a + b.y * of_b, a.z * of_a + b.z * of_b,
                                        a.w * of_a + b.w * of_b});
}

}  // namespace

void PoseHistory::Add(XrTime time, const xr_input::Devices& devices) {
    if (time <= Latest()) return;
    newest_ = (newest_ + 1) % kRows;
    count_ = std::min(count_ + 1, kRows);
    rows_[newest_].time = time;
    rows_[newest_].devices = devices;
}

void PoseHistory::Rebase(const XrPosef& old_world_in_new) {
    for (Snapshot& row : rows_) RebaseDevices(row.devices, old_world_in_new);
}

MovingPose PoseHistory::Between(const XrPosef& earlier, XrTime earlier_time, const XrPosef& later, XrTime later_time,
                                XrTime time) {
    const auto span = static_cast<float>(later_time - earlier_time);
    const float seconds = span / 1e9f;
    const XrQuaternionf turn = Multiply(later.orientation, Conjugate(earlier.orientation));
    MovingPose moving;
    moving.motion.linear = Scaled(Difference(later.position, earlier.position), 1 / seconds);
    moving.motion.angular = Scaled(RotationVector(turn), 1 / seconds);
    moving.pose = later;
    if (time >= later_time) return moving;
    const float share = std::clamp(static_cast<float>(time - earlier_time) / span, 0.0f, 1.0f);
    moving.pose = {
        Mixed(earlier.orientation, later.orientation, share),
        orvanic_xr::Add(earlier.position, Scaled(Difference(later.position, earlier.position), share)),
    };
    return moving;
}

void RebaseDevices(xr_input::Devices& devices, const XrPosef& old_world_in_new) {
    for (xr_input::Device& device : devices.by_top_level) {
        for (auto& pose : device.poses) {
            if (pose) pose = Compose(old_world_in_new, *pose);
        }
    }
}

MovingPose RelativeMotion(const MovingPose& target, const MovingPose& base) {
    const XrQuaternionf inverse = Conjugate(base.pose.orientation);
    const XrVector3f arm = Difference(target.pose.position, base.pose.position);
    const XrVector3f carried = Cross(base.motion.angular, arm);
    const XrVector3f linear = Difference(Difference(target.motion.linear, base.motion.linear), carried);
    return {RelativePose(target.pose, base.pose),
            {Rotate(inverse, linear), Rotate(inverse, Difference(target.motion.angular, base.motion.angular))}};
}

MovingPose WithOffset(const MovingPose& moving, const XrPosef& offset) {
    const XrVector3f arm = Rotate(moving.pose.orientation, offset.position);
    return {Compose(moving.pose, offset),
            {Add(moving.motion.linear, Cross(moving.motion.angular, arm)), moving.motion.angular}};
}

}  // namespace automation
