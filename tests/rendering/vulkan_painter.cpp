#include <dlfcn.h>
#include <vulkan/vulkan.h>

#define XR_USE_GRAPHICS_API_VULKAN
#include <openxr/openxr.h>
#include <openxr/openxr_platform.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <utility>

#include "tests/rendering/painter.h"

namespace rendering_test {
namespace {

constexpr char kValidation[] = "VK_LAYER_KHRONOS_validation";

VKAPI_ATTR VkBool32 VKAPI_CALL Note(VkDebugUtilsMessageSeverityFlagBitsEXT, VkDebugUtilsMessageTypeFlagsEXT,
                                    const VkDebugUtilsMessengerCallbackDataEXT* message, void* complaints) {
    *static_cast<std::string*>(complaints) += std::string(message->pMessage) + "\n";
    return VK_FALSE;
}

bool HasValidation() {
    std::uint32_t count = 0;
    vkEnumerateInstanceLayerProperties(&count, nullptr);
    std::vector<VkLayerProperties> layers(count);
    vkEnumerateInstanceLayerProperties(&count, layers.data());
    return std::any_of(layers.begin(), layers.end(),
                       [](const auto& layer) { return std::strcmp(layer.layerName, kValidation) == 0; });
}

VKAPI_ATTR VkResult VKAPI_CALL WaitForFences(VkDevice device, std::uint32_t count, const VkFence* fences, VkBool32 all,
                                             std::uint64_t timeout) {
    return TheDriver().hangs ? VK_TIMEOUT : vkWaitForFences(device, count, fences, all, timeout);
}

VKAPI_ATTR VkResult VKAPI_CALL GetFenceStatus(VkDevice device, VkFence fence) {
    return TheDriver().hangs ? VK_NOT_READY : vkGetFenceStatus(device, fence);
}

VKAPI_ATTR VkResult VKAPI_CALL AllocateMemory(VkDevice device, const VkMemoryAllocateInfo* info,
                                              const VkAllocationCallbacks* allocator, VkDeviceMemory* memory) {
    ++TheDriver().memories;
    return vkAllocateMemory(device, info, allocator, memory);
}

VKAPI_ATTR void VKAPI_CALL FreeMemory(VkDevice device, VkDeviceMemory memory, const VkAllocationCallbacks* allocator) {
    if (memory) --TheDriver().memories;
    if (memory && TheDriver().hangs) ++TheDriver().freed_in_use;
    vkFreeMemory(device, memory, allocator);
}

// The driver's one queue has siblings that no device is made with.
VKAPI_ATTR void VKAPI_CALL GetQueueFamilies(VkPhysicalDevice device, std::uint32_t* count,
                                            VkQueueFamilyProperties* families) {
    vkGetPhysicalDeviceQueueFamilyProperties(device, count, families);
    if (families) families[0].queueCount = 4;
}

template <auto function>
struct Told;
template <class Result, class... Arguments, Result(VKAPI_PTR* function)(Arguments...)>
struct Told<function> {
    static const char* name;
    static VKAPI_ATTR Result VKAPI_CALL Call(Arguments... arguments) {
        if (TheDriver().called) TheDriver().called(name);
        return function(arguments...);
    }
};
template <class Result, class... Arguments, Result(VKAPI_PTR* function)(Arguments...)>
const char* Told<function>::name = "";

template <auto function>
std::pair<const char*, PFN_vkVoidFunction> Tell(const char* name) {
    Told<function>::name = name;
    return {name, reinterpret_cast<PFN_vkVoidFunction>(Told<function>::Call)};
}

VKAPI_ATTR PFN_vkVoidFunction VKAPI_CALL LookUpOfDevice(VkDevice device, const char* name) {
    const std::pair<const char*, PFN_vkVoidFunction> own[] = {
        {"vkWaitForFences", reinterpret_cast<PFN_vkVoidFunction>(WaitForFences)},
        {"vkGetFenceStatus", reinterpret_cast<PFN_vkVoidFunction>(GetFenceStatus)},
        {"vkAllocateMemory", reinterpret_cast<PFN_vkVoidFunction>(AllocateMemory)},
        {"vkFreeMemory", reinterpret_cast<PFN_vkVoidFunction>(FreeMemory)},
        Tell<vkCreateFence>("vkCreateFence"),
        Tell<vkDestroyFence>("vkDestroyFence"),
        Tell<vkCreateImage>("vkCreateImage"),
        Tell<vkDestroyImage>("vkDestroyImage"),
        Tell<vkQueueSubmit>("vkQueueSubmit"),
    };
    for (const auto& [of, function] : own) {
        if (std::strcmp(name, of) == 0) return function;
    }
    return vkGetDeviceProcAddr(device, name);
}

VKAPI_ATTR PFN_vkVoidFunction VKAPI_CALL LookUp(VkInstance instance, const char* name) {
    const std::pair<const char*, PFN_vkVoidFunction> own[] = {
        {"vkGetDeviceProcAddr", reinterpret_cast<PFN_vkVoidFunction>(LookUpOfDevice)},
        {"vkGetPhysicalDeviceQueueFamilyProperties", reinterpret_cast<PFN_vkVoidFunction>(GetQueueFamilies)},
        Tell<vkCreateInstance>("vkCreateInstance"),
        Tell<vkCreateDevice>("vkCreateDevice"),
        Tell<vkEnumeratePhysicalDevices>("vkEnumeratePhysicalDevices"),
    };
    for (const auto& [of, function] : own) {
        if (std::strcmp(name, of) == 0) return function;
    }
    return vkGetInstanceProcAddr(instance, name);
}

class VulkanPainter : public Painter {
 public:
    explicit VulkanPainter(bool enable2) : enable2_(enable2) {
        // What the driver in software keeps for the whole process would count as leaked once it is unloaded.
        dlopen("libvulkan_lvp.so", RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    }

    ~VulkanPainter() override {
        if (device_) vkDestroyDevice(device_, nullptr);
        if (messenger_) {
            reinterpret_cast<PFN_vkDestroyDebugUtilsMessengerEXT>(
                vkGetInstanceProcAddr(instance_, "vkDestroyDebugUtilsMessengerEXT"))(instance_, messenger_, nullptr);
        }
        if (instance_) vkDestroyInstance(instance_, nullptr);
    }

    std::vector<const char*> Extensions() const override {
        return {enable2_ ? "XR_KHR_vulkan_enable2" : "XR_KHR_vulkan_enable"};
    }

    std::string Start(XrInstance instance, XrSystemId system) override {
        XrGraphicsRequirementsVulkanKHR requirements = {XR_TYPE_GRAPHICS_REQUIREMENTS_VULKAN_KHR, nullptr, 0, 0};
        Lookup<PFN_xrGetVulkanGraphicsRequirementsKHR>(
            instance, enable2_ ? "xrGetVulkanGraphicsRequirements2KHR" : "xrGetVulkanGraphicsRequirementsKHR")(
            instance, system, &requirements);
        MakeInstance(instance, system);
        if (!instance_) return "no instance of Vulkan can be made";
        ChooseDevice(instance, system);
        if (!physical_) return "Vulkan has no device";
        MakeDevice(instance, system);
        vkGetDeviceQueue(device_, 0, 0, &queue_);
        binding_ = {XR_TYPE_GRAPHICS_BINDING_VULKAN_KHR, nullptr, instance_, physical_, device_, 0, 0};
        return {};
    }

    void* Binding() override { return &binding_; }
    std::vector<void*> BadBindings() override {
        for (auto& bad : bad_) bad = binding_;
        bad_[0].queueIndex = 1;
        bad_[1].queueFamilyIndex = 7;
        bad_[2].device = VK_NULL_HANDLE;
        return {&bad_[0], &bad_[1], &bad_[2]};
    }
    std::int64_t LinearFormat() const override { return VK_FORMAT_R8G8B8A8_UNORM; }
    std::int64_t SrgbFormat() const override { return VK_FORMAT_B8G8R8A8_SRGB; }
    std::int64_t HalfFormat() const override { return VK_FORMAT_R16G16B16A16_SFLOAT; }
    std::int64_t DepthFormat() const override { return VK_FORMAT_D32_SFLOAT; }

    void Adopt(XrSwapchain swapchain) override {
        images_[swapchain] = ImagesOf<XrSwapchainImageVulkanKHR>(swapchain, XR_TYPE_SWAPCHAIN_IMAGE_VULKAN_KHR);
    }

    void Paint(XrSwapchain swapchain, std::uint32_t image, std::uint32_t layer, std::uint32_t width,
               std::uint32_t height, const std::vector<std::uint8_t>& pixels) override {
        const VkBufferCreateInfo info = {VK_STRUCTURE_TYPE_BUFFER_CREATE_INFO, nullptr, 0, pixels.size(),
                                         VK_BUFFER_USAGE_TRANSFER_SRC_BIT,     {},      0, nullptr};
        VkBuffer buffer;
        vkCreateBuffer(device_, &info, nullptr, &buffer);
        VkMemoryRequirements needed;
        vkGetBufferMemoryRequirements(device_, buffer, &needed);
        const VkMemoryAllocateInfo allocation = {VK_STRUCTURE_TYPE_MEMORY_ALLOCATE_INFO, nullptr, needed.size,
                                                 VisibleMemory(needed.memoryTypeBits)};
        VkDeviceMemory memory;
        vkAllocateMemory(device_, &allocation, nullptr, &memory);
        vkBindBufferMemory(device_, buffer, memory, 0);
        void* mapped = nullptr;
        vkMapMemory(device_, memory, 0, VK_WHOLE_SIZE, 0, &mapped);
        std::memcpy(mapped, pixels.data(), pixels.size());
        vkUnmapMemory(device_, memory);
        Change(images_[swapchain][image].image, layer, [&](VkCommandBuffer commands, VkImage target) {
            const VkBufferImageCopy region = {
                0, 0, 0, {VK_IMAGE_ASPECT_COLOR_BIT, 0, layer, 1}, {}, {width, height, 1}};
            vkCmdCopyBufferToImage(commands, buffer, target, VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL, 1, &region);
        });
        vkDestroyBuffer(device_, buffer, nullptr);
        vkFreeMemory(device_, memory, nullptr);
    }

    void Fill(XrSwapchain swapchain, std::uint32_t image, bool /*has_samples*/, const float (&colour)[4]) override {
        VkClearColorValue value;
        std::copy_n(colour, 4, value.float32);
        Change(images_[swapchain][image].image, 0, [&](VkCommandBuffer commands, VkImage target) {
            const VkImageSubresourceRange range = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 1, 0, 1};
            vkCmdClearColorImage(commands, target, VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL, &value, 1, &range);
        });
    }

    std::string Complaints() override { return complaints_; }

 private:
    void MakeInstance(XrInstance instance, XrSystemId system) {
        VkDebugUtilsMessengerCreateInfoEXT messenger = {};
        messenger.sType = VK_STRUCTURE_TYPE_DEBUG_UTILS_MESSENGER_CREATE_INFO_EXT;
        messenger.messageSeverity =
            VK_DEBUG_UTILS_MESSAGE_SEVERITY_WARNING_BIT_EXT | VK_DEBUG_UTILS_MESSAGE_SEVERITY_ERROR_BIT_EXT;
        messenger.messageType = VK_DEBUG_UTILS_MESSAGE_TYPE_VALIDATION_BIT_EXT;
        messenger.pfnUserCallback = Note;
        messenger.pUserData = &complaints_;
        VkApplicationInfo application = {};
        application.sType = VK_STRUCTURE_TYPE_APPLICATION_INFO;
        application.apiVersion = VK_API_VERSION_1_1;
        const char* const layers[] = {kValidation};
        const char* const extensions[] = {VK_EXT_DEBUG_UTILS_EXTENSION_NAME};
        VkInstanceCreateInfo info = {};
        info.sType = VK_STRUCTURE_TYPE_INSTANCE_CREATE_INFO;
        info.pApplicationInfo = &application;
        const bool is_checked = HasValidation();
        if (is_checked) {
            info.enabledLayerCount = info.enabledExtensionCount = 1;
            info.ppEnabledLayerNames = layers;
            info.ppEnabledExtensionNames = extensions;
        }
        VkResult result = VK_SUCCESS;
        if (enable2_) {
            const XrVulkanInstanceCreateInfoKHR request = {
                XR_TYPE_VULKAN_INSTANCE_CREATE_INFO_KHR, nullptr, system, 0, LookUp, &info, nullptr};
            Lookup<PFN_xrCreateVulkanInstanceKHR>(instance, "xrCreateVulkanInstanceKHR")(instance, &request, &instance_,
                                                                                         &result);
        } else {
            vkCreateInstance(&info, nullptr, &instance_);
        }
        if (!instance_ || !is_checked) return;
        const auto create = reinterpret_cast<PFN_vkCreateDebugUtilsMessengerEXT>(
            vkGetInstanceProcAddr(instance_, "vkCreateDebugUtilsMessengerEXT"));
        create(instance_, &messenger, nullptr, &messenger_);
    }

    void ChooseDevice(XrInstance instance, XrSystemId system) {
        if (enable2_) {
            const XrVulkanGraphicsDeviceGetInfoKHR request = {XR_TYPE_VULKAN_GRAPHICS_DEVICE_GET_INFO_KHR, nullptr,
                                                              system, instance_};
            Lookup<PFN_xrGetVulkanGraphicsDevice2KHR>(instance, "xrGetVulkanGraphicsDevice2KHR")(instance, &request,
                                                                                                 &physical_);
        } else {
            Lookup<PFN_xrGetVulkanGraphicsDeviceKHR>(instance, "xrGetVulkanGraphicsDeviceKHR")(instance, system,
                                                                                               instance_, &physical_);
        }
    }

    void MakeDevice(XrInstance instance, XrSystemId system) {
        const float priority = 1.0f;
        const VkDeviceQueueCreateInfo queue = {VK_STRUCTURE_TYPE_DEVICE_QUEUE_CREATE_INFO, nullptr, 0, 0, 1, &priority};
        VkDeviceCreateInfo info = {};
        info.sType = VK_STRUCTURE_TYPE_DEVICE_CREATE_INFO;
        info.queueCreateInfoCount = 1;
        info.pQueueCreateInfos = &queue;
        VkResult result = VK_SUCCESS;
        if (enable2_) {
            const XrVulkanDeviceCreateInfoKHR request = {
                XR_TYPE_VULKAN_DEVICE_CREATE_INFO_KHR, nullptr, system, 0, LookUp, physical_, &info, nullptr};
            Lookup<PFN_xrCreateVulkanDeviceKHR>(instance, "xrCreateVulkanDeviceKHR")(instance, &request, &device_,
                                                                                     &result);
        } else {
            vkCreateDevice(physical_, &info, nullptr, &device_);
        }
    }

    std::uint32_t VisibleMemory(std::uint32_t allowed) const {
        constexpr VkMemoryPropertyFlags kWanted =
            VK_MEMORY_PROPERTY_HOST_VISIBLE_BIT | VK_MEMORY_PROPERTY_HOST_COHERENT_BIT;
        VkPhysicalDeviceMemoryProperties memory;
        vkGetPhysicalDeviceMemoryProperties(physical_, &memory);
        std::uint32_t type = 0;
        while ((allowed >> type & 1) == 0 || (memory.memoryTypes[type].propertyFlags & kWanted) != kWanted) ++type;
        return type;
    }

    // The image comes and goes as an attachment of colour.
    template <class Record>
    void Change(VkImage image, std::uint32_t layer, Record record) {
        const VkCommandPoolCreateInfo pool_info = {VK_STRUCTURE_TYPE_COMMAND_POOL_CREATE_INFO, nullptr, 0, 0};
        VkCommandPool pool;
        vkCreateCommandPool(device_, &pool_info, nullptr, &pool);
        const VkCommandBufferAllocateInfo allocation = {VK_STRUCTURE_TYPE_COMMAND_BUFFER_ALLOCATE_INFO, nullptr, pool,
                                                        VK_COMMAND_BUFFER_LEVEL_PRIMARY, 1};
        VkCommandBuffer commands;
        vkAllocateCommandBuffers(device_, &allocation, &commands);
        const VkCommandBufferBeginInfo begin = {VK_STRUCTURE_TYPE_COMMAND_BUFFER_BEGIN_INFO, nullptr, 0, nullptr};
        vkBeginCommandBuffer(commands, &begin);
        VkImageMemoryBarrier barrier = {};
        barrier.sType = VK_STRUCTURE_TYPE_IMAGE_MEMORY_BARRIER;
        barrier.srcAccessMask = barrier.dstAccessMask = VK_ACCESS_MEMORY_READ_BIT | VK_ACCESS_MEMORY_WRITE_BIT;
        barrier.oldLayout = VK_IMAGE_LAYOUT_COLOR_ATTACHMENT_OPTIMAL;
        barrier.newLayout = VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL;
        barrier.srcQueueFamilyIndex = barrier.dstQueueFamilyIndex = VK_QUEUE_FAMILY_IGNORED;
        barrier.image = image;
        barrier.subresourceRange = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 1, layer, 1};
        const auto put = [&] {
            vkCmdPipelineBarrier(commands, VK_PIPELINE_STAGE_ALL_COMMANDS_BIT, VK_PIPELINE_STAGE_ALL_COMMANDS_BIT, 0, 0,
                                 nullptr, 0, nullptr, 1, &barrier);
        };
        put();
        record(commands, image);
        std::swap(barrier.oldLayout, barrier.newLayout);
        put();
        vkEndCommandBuffer(commands);
        VkSubmitInfo submit = {};
        submit.sType = VK_STRUCTURE_TYPE_SUBMIT_INFO;
        submit.commandBufferCount = 1;
        submit.pCommandBuffers = &commands;
        vkQueueSubmit(queue_, 1, &submit, VK_NULL_HANDLE);
        vkQueueWaitIdle(queue_);
        vkDestroyCommandPool(device_, pool, nullptr);
    }

    const bool enable2_;
    std::string complaints_;
    VkInstance instance_ = VK_NULL_HANDLE;
    VkDebugUtilsMessengerEXT messenger_ = VK_NULL_HANDLE;
    VkPhysicalDevice physical_ = VK_NULL_HANDLE;
    VkDevice device_ = VK_NULL_HANDLE;
    VkQueue queue_ = VK_NULL_HANDLE;
    XrGraphicsBindingVulkanKHR binding_ = {};
    XrGraphicsBindingVulkanKHR bad_[3] = {};
    std::map<XrSwapchain, std::vector<XrSwapchainImageVulkanKHR>> images_;
};

}  // namespace

Driver& TheDriver() {
    static Driver driver;
    return driver;
}

std::unique_ptr<Painter> MakeVulkan2Painter() {
    return std::make_unique<VulkanPainter>(true);
}

std::unique_ptr<Painter> MakeVulkanPainter() {
    return std::make_unique<VulkanPainter>(false);
}

}  // namespace rendering_test
