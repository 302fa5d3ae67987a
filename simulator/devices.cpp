#include "simulator/devices.h"

#include <string>

namespace simulator {

XrVector2f Device::Vector(TopLevel top, std::size_t source) const {
    const std::string base(profile->sources[source].path);
    const auto axis = [&](const char* name) {
        const auto index = profile->Find(top, base + name);
        return index ? values[*index] : 0.0f;
    };
    return {axis("/x"), axis("/y")};
}

}  // namespace simulator
