// Instance and system: what the runtime offers, and what belongs to the instance as a whole.
#pragma once

#include <openxr/openxr.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "simulator/events.h"
#include "simulator/graphics/graphics.h"
#include "simulator/paths.h"
#include "simulator/settings.h"
#include "xr/input/actions.h"

namespace simulator {

// That the application asked for: what came later than its version, it does not get.
struct Instance : xr_input::Offer {
    bool HasExtension(std::string_view name) const { return extensions.find(name) != extensions.end(); }
    // Throws XR_ERROR_SYSTEM_INVALID, also for the right one that was not asked for yet.
    void CheckSystem(XrSystemId system) const;
    // Throws XR_ERROR_PATH_INVALID.
    const std::string& PathText(XrPath path) const;

    XrInstance handle = XR_NULL_HANDLE;
    // By xrGetSystem.
    bool system_is_known = false;
    Settings settings;
    PathTable paths;
    EventQueue events;
    GraphicsEntry graphics;
    xr_input::Suggestions suggestions;
};

inline constexpr XrSystemId kSystemId = 0x51;

XRAPI_ATTR XrResult XRAPI_CALL EnumerateInstanceExtensionProperties(const char* layer_name, std::uint32_t capacity,
                                                                    std::uint32_t* count,
                                                                    XrExtensionProperties* properties);
XRAPI_ATTR XrResult XRAPI_CALL CreateInstance(const XrInstanceCreateInfo* info, XrInstance* instance);
XRAPI_ATTR XrResult XRAPI_CALL DestroyInstance(XrInstance instance);
XRAPI_ATTR XrResult XRAPI_CALL GetInstanceProperties(XrInstance instance, XrInstanceProperties* properties);
XRAPI_ATTR XrResult XRAPI_CALL ResultToString(XrInstance instance, XrResult value,
                                              char buffer[XR_MAX_RESULT_STRING_SIZE]);
XRAPI_ATTR XrResult XRAPI_CALL StructureTypeToString(XrInstance instance, XrStructureType value,
                                                     char buffer[XR_MAX_STRUCTURE_NAME_SIZE]);

XRAPI_ATTR XrResult XRAPI_CALL GetSystem(XrInstance instance, const XrSystemGetInfo* info, XrSystemId* system);
XRAPI_ATTR XrResult XRAPI_CALL GetSystemProperties(XrInstance instance, XrSystemId system,
                                                   XrSystemProperties* properties);

}  // namespace simulator
