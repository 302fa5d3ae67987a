#include "simulator/world.h"

#include <algorithm>
#include <iterator>

#include "simulator/session.h"

namespace simulator {
namespace {

ControllerView LookAtController(const Device& device, TopLevel hand) {
    ControllerView view;
    if (!device.IsLocated()) return view;
    if (const auto grip = device.profile->Find(hand, "input/grip/pose")) view.grip = device.poses[*grip];
    if (const auto aim = device.profile->Find(hand, "input/aim/pose")) view.aim = device.poses[*aim];
    if (const auto trigger = device.profile->Find(hand, "input/trigger/value")) view.trigger = device.values[*trigger];
    return view;
}

}  // namespace

WorldView LookAtWorld(const Session& session, XrTime time) {
    WorldView view;
    if (const auto head = HeadPose(session, time)) view.eyes = EyesOf(*head);
    for (const TopLevel hand : {TopLevel::kLeftHand, TopLevel::kRightHand}) {
        view.controllers[static_cast<std::size_t>(hand)] = LookAtController(session.devices[hand], hand);
    }
    std::copy_if(session.scene.things.begin(), session.scene.things.end(), std::back_inserter(view.things),
                 [](const Thing& thing) { return thing.surface || thing.body; });
    return view;
}

}  // namespace simulator
