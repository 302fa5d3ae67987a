#include "simulator/graphics/vulkan_functions.h"

#include <dlfcn.h>

#include "simulator/refusal.h"

namespace simulator {
namespace {

template <class Function, class Lookup, class Owner>
void Load(Function& function, Lookup lookup, Owner owner, const char* name) {
    function = reinterpret_cast<Function>(lookup(owner, name));
    if (!function) Refuse(XR_ERROR_RUNTIME_FAILURE);
}

}  // namespace

PFN_vkGetInstanceProcAddr VulkanLookup() {
    // Never closed: drivers don't like to be loaded twice.
    static void* const library = dlopen("libvulkan.so.1", RTLD_NOW | RTLD_LOCAL);
    if (!library) return nullptr;
    return reinterpret_cast<PFN_vkGetInstanceProcAddr>(dlsym(library, "vkGetInstanceProcAddr"));
}

#define VELMOOR_LOAD(name) Load(name, lookup, owner, "vk" #name);

VulkanInstanceFunctions::VulkanInstanceFunctions(PFN_vkGetInstanceProcAddr lookup, VkInstance owner) {
    if (!lookup) Refuse(XR_ERROR_RUNTIME_FAILURE);
    VELMOOR_VULKAN_INSTANCE_FUNCTIONS(VELMOOR_LOAD)
}

VulkanDeviceFunctions::VulkanDeviceFunctions(PFN_vkGetDeviceProcAddr lookup, VkDevice owner) {
    VELMOOR_VULKAN_DEVICE_FUNCTIONS(VELMOOR_LOAD)
}

#undef VELMOOR_LOAD

void CheckVulkan(VkResult result) {
    switch (result) {
        case VK_SUCCESS:
            return;
        case VK_ERROR_OUT_OF_HOST_MEMORY:
        case VK_ERROR_OUT_OF_DEVICE_MEMORY:
            Refuse(XR_ERROR_OUT_OF_MEMORY);
        case VK_ERROR_DEVICE_LOST:
            Refuse(XR_ERROR_SESSION_LOST);
        default:
            Refuse(XR_ERROR_RUNTIME_FAILURE);
    }
}

}  // namespace simulator
