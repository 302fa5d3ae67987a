// Where spaces are in world coordinates, simulated or not, and what one looks like from the other.
#pragma once

#include <openxr/openxr.h>

#include <optional>
#include <vector>

#include "automation/session.h"

namespace automation {

// A space as its handle leads to it: one that the layer has not seen made has no object.
struct NamedSpace {
    explicit NamedSpace(XrSpace space) : handle(space), object(Registry::instance().Find(space)) {}

    XrSpace handle;
    std::shared_ptr<const Space> object;
};

// Whether the layer, not the runtime, knows where the space is.
bool IsSimulated(const Session& session, const NamedSpace& space);

struct WorldLocation {
    MovingPose moving = {{{0, 0, 0, 1}, {0, 0, 0}}, {}};
    // Of which bits the pose consists; 0 for a space that is nowhere.
    XrSpaceLocationFlags flags = 0;
    XrSpaceVelocityFlags velocity_flags = 0;
};

// Needs the session's two spaces. Calls the layer below for what is not simulated. Throws nothing.
WorldLocation LocateInWorld(const Session& session, const NamedSpace& space, XrTime time, Moment moment);

// `target` as seen from `base`.
WorldLocation RelativeLocation(const WorldLocation& target, const WorldLocation& base);

// The eyes in world coordinates: those of the simulated head where it is simulated, the runtime's otherwise. Eye
// distance and field of view are the device's either way.
struct Eyes {
    std::vector<XrView> views;
    XrViewStateFlags flags = 0;
};

// Needs the session's two spaces. `count` is how many there is room for; none where the runtime refuses `asked`, whose
// space plays no part.
Eyes LocateEyes(const Session& session, const XrViewLocateInfo& asked, std::uint32_t count, Moment moment);

}  // namespace automation
