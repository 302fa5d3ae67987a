// Where simulated devices were in the latest frames. A frame of the application's sees its devices stand still:
// whatever moves them while it is made is seen by the next one.
#pragma once

#include <openxr/openxr.h>

#include <array>
#include <cstddef>
#include <optional>

#include "xr/input/devices.h"

namespace automation {

// World coordinates; metres, radians and seconds.
struct Motion {
    XrVector3f linear = {0, 0, 0};
    XrVector3f angular = {0, 0, 0};
};

struct MovingPose {
    XrPosef pose;
    Motion motion;
};

class PoseHistory {
 public:
    // The devices as the frame that is displayed at `time` sees them. A time that is not later than the last one
    // changes nothing.
    void Add(XrTime time, const xr_input::Devices& devices);
    // 0 where nothing was added.
    XrTime Latest() const { return count_ == 0 ? 0 : Row(count_ - 1).time; }
    void Clear() { count_ = 0; }
    // Changes every pose of every device, for a world that was centred anew.
    void Rebase(const XrPosef& old_world_in_new);

    // `pose_of(devices)` is a pose of some device, or nothing. Between two frames it is where a straight way between
    // them leads; outside of all it is that of the nearest. It moves as from the frame before to the next one.
    template <class PoseOf>
    std::optional<MovingPose> At(XrTime time, const PoseOf& pose_of) const {
        if (count_ == 0) return std::nullopt;
        // The first that is not before `time`, or the last of all.
        std::size_t after = 0;
        while (after + 1 < count_ && Row(after).time < time) ++after;
        const auto later = pose_of(Row(after).devices);
        const auto earlier = after > 0 ? pose_of(Row(after - 1).devices) : std::nullopt;
        if (!later) return std::nullopt;
        if (!earlier) return MovingPose{*later, {}};
        return Between(*earlier, Row(after - 1).time, *later, Row(after).time, time);
    }

 private:
    static constexpr std::size_t kRows = 8;
    struct Snapshot {
        XrTime time = 0;
        xr_input::Devices devices;
    };

    static MovingPose Between(const XrPosef& earlier, XrTime earlier_time, const XrPosef& later, XrTime later_time,
                              XrTime time);
    // The oldest is 0.
    const Snapshot& Row(std::size_t i) const { return rows_[(newest_ + kRows + 1 - count_ + i) % kRows]; }

    std::array<Snapshot, kRows> rows_;
    std::size_t newest_ = kRows - 1;
    std::size_t count_ = 0;
};

// Every pose of the devices in a world in which the old one's origin stands at `old_world_in_new`.
void RebaseDevices(xr_input::Devices& devices, const XrPosef& old_world_in_new);

// What `target` does as seen from `base`, with the velocities of both.
MovingPose RelativeMotion(const MovingPose& target, const MovingPose& base);
// A point that is fixed to `moving`.
MovingPose WithOffset(const MovingPose& moving, const XrPosef& offset);

}  // namespace automation
