// The simulated input devices of a session. There are none until one is switched on through the conformance
// automation, and then it does what it is told and nothing by itself.
#pragma once

#include <openxr/openxr.h>

#include <array>
#include <cstddef>
#include <optional>
#include <vector>

#include "xr/input/profiles.h"

namespace xr_input {

struct Device {
    bool IsActive() const { return profile != nullptr; }
    // What applications see of it.
    const Profile* SeenProfile() const { return is_asleep ? nullptr : profile; }
    bool IsLocated() const { return SeenProfile() && !is_lost; }
    // Of a boolean source 0 or 1.
    float Value(std::size_t source) const { return values[source]; }
    // A two-axis source holds nothing of its own: it is what stands in its two axes.
    XrVector2f Vector(TopLevel top, std::size_t source) const;
    void SetVector(TopLevel top, std::size_t source, const XrVector2f& value);
    // In world coordinates. The surface of the palm is where the grip puts it, until it is placed itself.
    std::optional<XrPosef> Pose(TopLevel top, std::size_t source) const;
    // Becomes a device of this profile, at rest and without a pose.
    void SwitchOn(const Profile& new_profile);

    const Profile* profile = nullptr;
    bool is_asleep = false;
    // Its buttons work, and nobody knows where it is.
    bool is_lost = false;
    // One place for each source of the profile.
    std::vector<float> values;
    // None until a location was set.
    std::vector<std::optional<XrPosef>> poses;
};

struct Devices {
    Device& operator[](TopLevel top) { return by_top_level[static_cast<std::size_t>(top)]; }
    const Device& operator[](TopLevel top) const { return by_top_level[static_cast<std::size_t>(top)]; }

    std::array<Device, kTopLevelCount> by_top_level;
};

}  // namespace xr_input
