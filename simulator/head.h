// Where the wearer's head is while nobody simulates it: it stands at eye height and sways slowly, the same
// way in every run with the same seed.
#pragma once

#include <openxr/openxr.h>

#include <array>
#include <cstdint>

namespace simulator {

inline constexpr float kEyeHeight = 1.6f;
// Where the wearer stood when the session began, in world coordinates, looking along -z: the LOCAL space.
inline constexpr XrVector3f kStartingPoint = {0.0f, kEyeHeight, 0.5f};

class HeadSway {
 public:
    explicit HeadSway(std::uint32_t seed = 0);

    // The sway begins at `epoch`; before that, the head keeps still.
    void Start(XrTime epoch) { epoch_ = epoch; }

    // In world coordinates.
    XrPosef At(XrTime time) const;

 private:
    static constexpr std::size_t kMotions = 5;

    std::array<double, kMotions> phases_;
    XrTime epoch_ = 0;
};

}  // namespace simulator
