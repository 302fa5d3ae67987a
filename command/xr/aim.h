// Where somebody looks and points to: poses and rays in a space whose y points up. Metres, radians, unit quaternions
// and unit directions. Pure.
#pragma once

#include <openxr/openxr.h>

#include <optional>

namespace velmoor {

// Along the horizon: 0 looks to -z, and it rises to the left. Straight up or down, by where the top of the head is.
float heading_of(const XrQuaternionf& orientation);

// Looks along `direction`, upright. Straight up or down it takes `heading`.
XrQuaternionf facing(const XrVector3f& direction, float heading);

struct step {
    float ahead = 0;  // and so on: level, by where `from` looks
    float right = 0;
    float up = 0;
    float turn_left = 0;
    float look_up = 0;  // after the turn
};
XrPosef moved(const XrPosef& from, const step& by);

// What is held at `held` while its holder goes from one pose to another.
XrPosef carried(const XrPosef& held, const XrPosef& from, const XrPosef& to);

// `pose` where `space` is the pose of the space that it is to be given in.
XrPosef seen_from(const XrPosef& space, const XrPosef& pose);

struct ray {
    XrVector3f origin;
    XrVector3f direction;
};
// Through a place in what an eye sees: from 0, 0 at the left top to 1, 1.
ray ray_through(const XrPosef& eye, const XrFovf& fov, float x, float y);

// How far along it a box is met, from outside or from inside; any of its sizes may be 0.
std::optional<float> distance_to_box(const ray& along, const XrPosef& center, const XrVector3f& size);

}  // namespace velmoor
