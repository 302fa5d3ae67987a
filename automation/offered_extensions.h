// The instance extensions that the layer offers to the one above it.
#pragma once

#include <openxr/openxr.h>

#include <cstdint>
#include <span>
#include <string_view>

#include "automation/objects.h"

namespace automation {

struct OfferedExtension {
    const char* name;
    std::uint32_t version;
    // Which part it switches on.
    bool Parts::*part;
};

std::span<const OfferedExtension> OfferedExtensions();
// Null for one that is not offered.
const OfferedExtension* FindOffered(std::string_view name);

// Tells of these alone: what lies below the layer is not known when it is asked.
XRAPI_ATTR XrResult XRAPI_CALL EnumerateInstanceExtensionProperties(const char* layer_name, std::uint32_t capacity,
                                                                    std::uint32_t* count,
                                                                    XrExtensionProperties* properties);

}  // namespace automation
