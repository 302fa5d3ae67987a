// OpenXR handles as numbers: they are pointers on 64-bit machines, and pass through tools as integers.
#pragma once

#include <openxr/openxr.h>

#include <cstdint>

namespace orvanic_xr {

template <typename Handle>
std::uint64_t HandleValue(Handle handle) {
    return reinterpret_cast<std::uint64_t>(handle);
}

template <typename Handle>
Handle HandleFromValue(std::uint64_t value) {
    return reinterpret_cast<Handle>(value);
}

}  // namespace orvanic_xr
