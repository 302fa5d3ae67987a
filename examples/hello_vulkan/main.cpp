// The smallest application that renders with Vulkan and offers a tool to agents: it shows one colour, and the tool
// next_colour shows another one. Without the layer it runs just the same, and nobody lists the tool.
//
//   hello_vulkan [SECONDS]      runs for so long, or until its session is asked to end
//
// The exit code is 77 where there is no Vulkan, 1 where something else fails.
#include <vulkan/vulkan.h>

#define XR_USE_GRAPHICS_API_VULKAN
#include <openxr/openxr.h>
#include <openxr/openxr_platform.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "velmoor/external_tool.h"

namespace {

constexpr struct {
    const char* name;
    VkClearColorValue value;
} kColours[] = {{"red", {{1, 0, 0, 1}}}, {"green", {{0, 1, 0, 1}}}, {"blue", {{0, 0, 1, 1}}}};

struct NoVulkan : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Of OpenXR and Vulkan: what is below zero has failed.
void Check(int result, const char* call) {
    if (result < 0) throw std::runtime_error(std::string(call) + " failed with " + std::to_string(result));
}

// The first field of every record says what it is: `type` in OpenXR, `sType` in Vulkan.
template <class Record, class Type>
Record Typed(Type type) {
    Record record = {};
    std::memcpy(&record, &type, sizeof type);
    return record;
}

bool IsOffered(const char* extension) {
    std::uint32_t count = 0;
    xrEnumerateInstanceExtensionProperties(nullptr, 0, &count, nullptr);
    std::vector<XrExtensionProperties> offered(count, Typed<XrExtensionProperties>(XR_TYPE_EXTENSION_PROPERTIES));
    xrEnumerateInstanceExtensionProperties(nullptr, count, &count, offered.data());
    const auto is_it = [&](const auto& row) { return std::strcmp(row.extensionName, extension) == 0; };
    return std::any_of(offered.begin(), offered.end(), is_it);
}

// Runs inside xrBeginFrame, on the thread that draws: it may touch what that thread owns.
XrResult XRAPI_CALL NextColour(char* buffer, std::uint32_t capacity, std::uint32_t* size, const char* /*arguments*/,
                               void* colour) {
    std::size_t& shown = *static_cast<std::size_t*>(colour);
    const std::size_t next = (shown + 1) % std::size(kColours);
    *size = static_cast<std::uint32_t>(std::snprintf(buffer, capacity, R"({"colour": "%s"})", kColours[next].name));
    // It is called again with a larger buffer, so nothing has changed yet.
    if (*size >= capacity) return XR_ERROR_SIZE_INSUFFICIENT;
    shown = next;
    return XR_SUCCESS;
}

class Application {
 public:
    Application() {
        MakeInstance();
        OfferTool();
        MakeDevice();
        MakeSession();
    }
    Application(const Application&) = delete;
    Application& operator=(const Application&) = delete;
    ~Application() {
        if (device_) vkDeviceWaitIdle(device_);
        if (session_) xrDestroySession(session_);
        if (instance_) xrDestroyInstance(instance_);
        if (pool_) vkDestroyCommandPool(device_, pool_, nullptr);
        if (device_) vkDestroyDevice(device_, nullptr);
        if (vulkan_) vkDestroyInstance(vulkan_, nullptr);
    }

    void Run(double seconds) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
        while (state_ != XR_SESSION_STATE_EXITING && state_ != XR_SESSION_STATE_LOSS_PENDING) {
            PollEvents();
            if (!running_) continue;
            if (std::chrono::steady_clock::now() > end) xrRequestExitSession(session_);
            RunFrame();
        }
    }

 private:
    template <class Function>
    Function Find(const char* name) const {
        PFN_xrVoidFunction function = nullptr;
        xrGetInstanceProcAddr(instance_, name, &function);
        return reinterpret_cast<Function>(function);
    }

    void MakeInstance() {
        const char* const extensions[] = {"XR_KHR_vulkan_enable2", "XR_KESTX1_orvanic_external_tool"};
        auto info = Typed<XrInstanceCreateInfo>(XR_TYPE_INSTANCE_CREATE_INFO);
        std::strcpy(info.applicationInfo.applicationName, "hello_vulkan");
        info.applicationInfo.apiVersion = XR_MAKE_VERSION(1, 0, 0);
        info.enabledExtensionNames = extensions;
        info.enabledExtensionCount = IsOffered(extensions[1]) ? 2 : 1;
        Check(xrCreateInstance(&info, &instance_), "xrCreateInstance");
        const XrSystemGetInfo system = {XR_TYPE_SYSTEM_GET_INFO, nullptr, XR_FORM_FACTOR_HEAD_MOUNTED_DISPLAY};
        Check(xrGetSystem(instance_, &system, &system_), "xrGetSystem");
    }

    void OfferTool() {
        const auto offer = Find<PFN_xrOrvanicRegisterExternalToolKESTX1>("xrOrvanicRegisterExternalToolKESTX1");
        if (!offer) return;
        auto info = Typed<XrOrvanicExternalToolRegisterInfoKESTX1>(XR_TYPE_ORVANIC_EXTERNAL_TOOL_REGISTER_INFO_KESTX1);
        std::strcpy(info.name, "next_colour");
        std::strcpy(info.description, "Shows the next colour: red, green, blue, and red again.");
        info.callback = NextColour;
        info.callbackFlags = XR_ORVANIC_EXTERNAL_TOOL_CALLBACK_ON_BEGIN_FRAME_BIT_KESTX1;
        info.userData = &colour_;
        Check(offer(instance_, &info), "xrOrvanicRegisterExternalToolKESTX1");
    }

    // The runtime makes instance and device on the application's behalf, and chooses the physical device.
    void MakeDevice() {
        auto requirements = Typed<XrGraphicsRequirementsVulkanKHR>(XR_TYPE_GRAPHICS_REQUIREMENTS_VULKAN_KHR);
        Check(Find<PFN_xrGetVulkanGraphicsRequirements2KHR>("xrGetVulkanGraphicsRequirements2KHR")(instance_, system_,
                                                                                                   &requirements),
              "xrGetVulkanGraphicsRequirements2KHR");
        VkResult result = VK_SUCCESS;
        const auto instance_info = Typed<VkInstanceCreateInfo>(VK_STRUCTURE_TYPE_INSTANCE_CREATE_INFO);
        const XrVulkanInstanceCreateInfoKHR make_instance = {XR_TYPE_VULKAN_INSTANCE_CREATE_INFO_KHR,
                                                             nullptr,
                                                             system_,
                                                             0,
                                                             vkGetInstanceProcAddr,
                                                             &instance_info,
                                                             nullptr};
        Check(Find<PFN_xrCreateVulkanInstanceKHR>("xrCreateVulkanInstanceKHR")(instance_, &make_instance, &vulkan_,
                                                                               &result),
              "xrCreateVulkanInstanceKHR");
        if (result != VK_SUCCESS) throw NoVulkan("Vulkan has no driver");
        const XrVulkanGraphicsDeviceGetInfoKHR which = {XR_TYPE_VULKAN_GRAPHICS_DEVICE_GET_INFO_KHR, nullptr, system_,
                                                        vulkan_};
        VkPhysicalDevice physical = VK_NULL_HANDLE;
        if (XR_FAILED(Find<PFN_xrGetVulkanGraphicsDevice2KHR>("xrGetVulkanGraphicsDevice2KHR")(instance_, &which,
                                                                                               &physical))) {
            throw NoVulkan("Vulkan has no device");
        }
        const float priority = 1.0f;
        // Whatever can draw can clear.
        auto queue = Typed<VkDeviceQueueCreateInfo>(VK_STRUCTURE_TYPE_DEVICE_QUEUE_CREATE_INFO);
        queue.queueCount = 1;
        queue.pQueuePriorities = &priority;
        auto device_info = Typed<VkDeviceCreateInfo>(VK_STRUCTURE_TYPE_DEVICE_CREATE_INFO);
        device_info.queueCreateInfoCount = 1;
        device_info.pQueueCreateInfos = &queue;
        const XrVulkanDeviceCreateInfoKHR make_device = {XR_TYPE_VULKAN_DEVICE_CREATE_INFO_KHR,
                                                         nullptr,
                                                         system_,
                                                         0,
                                                         vkGetInstanceProcAddr,
                                                         physical,
                                                         &device_info,
                                                         nullptr};
        Check(Find<PFN_xrCreateVulkanDeviceKHR>("xrCreateVulkanDeviceKHR")(instance_, &make_device, &device_, &result),
              "xrCreateVulkanDeviceKHR");
        Check(result, "vkCreateDevice");
        binding_ = {XR_TYPE_GRAPHICS_BINDING_VULKAN_KHR, nullptr, vulkan_, physical, device_, 0, 0};
        vkGetDeviceQueue(device_, 0, 0, &queue_);
        const VkCommandPoolCreateInfo pool = {VK_STRUCTURE_TYPE_COMMAND_POOL_CREATE_INFO, nullptr,
                                              VK_COMMAND_POOL_CREATE_RESET_COMMAND_BUFFER_BIT, 0};
        Check(vkCreateCommandPool(device_, &pool, nullptr, &pool_), "vkCreateCommandPool");
        const VkCommandBufferAllocateInfo buffer = {VK_STRUCTURE_TYPE_COMMAND_BUFFER_ALLOCATE_INFO, nullptr, pool_,
                                                    VK_COMMAND_BUFFER_LEVEL_PRIMARY, 1};
        Check(vkAllocateCommandBuffers(device_, &buffer, &commands_), "vkAllocateCommandBuffers");
    }

    void MakeSession() {
        const XrSessionCreateInfo info = {XR_TYPE_SESSION_CREATE_INFO, &binding_, 0, system_};
        Check(xrCreateSession(instance_, &info, &session_), "xrCreateSession");
        const XrReferenceSpaceCreateInfo stage = {
            XR_TYPE_REFERENCE_SPACE_CREATE_INFO, nullptr, XR_REFERENCE_SPACE_TYPE_LOCAL, {{0, 0, 0, 1}, {0, 0, 0}}};
        Check(xrCreateReferenceSpace(session_, &stage, &space_), "xrCreateReferenceSpace");
        auto images = Typed<XrSwapchainCreateInfo>(XR_TYPE_SWAPCHAIN_CREATE_INFO);
        images.usageFlags = XR_SWAPCHAIN_USAGE_COLOR_ATTACHMENT_BIT | XR_SWAPCHAIN_USAGE_TRANSFER_DST_BIT;
        images.format = VK_FORMAT_R8G8B8A8_SRGB;
        images.sampleCount = images.faceCount = images.mipCount = 1;
        images.width = images.height = kSize;
        images.arraySize = 2;
        Check(xrCreateSwapchain(session_, &images, &swapchain_), "xrCreateSwapchain");
        std::uint32_t count = 0;
        xrEnumerateSwapchainImages(swapchain_, 0, &count, nullptr);
        images_.assign(count, Typed<XrSwapchainImageVulkanKHR>(XR_TYPE_SWAPCHAIN_IMAGE_VULKAN_KHR));
        Check(xrEnumerateSwapchainImages(swapchain_, count, &count,
                                         reinterpret_cast<XrSwapchainImageBaseHeader*>(images_.data())),
              "xrEnumerateSwapchainImages");
    }

    void PollEvents() {
        auto event = Typed<XrEventDataBuffer>(XR_TYPE_EVENT_DATA_BUFFER);
        while (xrPollEvent(instance_, &event) == XR_SUCCESS) {
            XrEventDataSessionStateChanged changed;
            std::memcpy(&changed, &event, sizeof changed);
            if (changed.type == XR_TYPE_EVENT_DATA_SESSION_STATE_CHANGED) OnState(changed.state);
            event = Typed<XrEventDataBuffer>(XR_TYPE_EVENT_DATA_BUFFER);
        }
    }

    void OnState(XrSessionState state) {
        state_ = state;
        if (state == XR_SESSION_STATE_READY) {
            const XrSessionBeginInfo info = {XR_TYPE_SESSION_BEGIN_INFO, nullptr,
                                             XR_VIEW_CONFIGURATION_TYPE_PRIMARY_STEREO};
            Check(xrBeginSession(session_, &info), "xrBeginSession");
            running_ = true;
        } else if (state == XR_SESSION_STATE_STOPPING) {
            running_ = false;
            Check(xrEndSession(session_), "xrEndSession");
        }
    }

    void RunFrame() {
        auto frame = Typed<XrFrameState>(XR_TYPE_FRAME_STATE);
        Check(xrWaitFrame(session_, nullptr, &frame), "xrWaitFrame");
        Check(xrBeginFrame(session_, nullptr), "xrBeginFrame");
        XrCompositionLayerProjectionView views[2];
        const bool is_shown = frame.shouldRender && LocateViews(frame.predictedDisplayTime, views);
        if (is_shown) Draw();
        const XrCompositionLayerProjection layer = {XR_TYPE_COMPOSITION_LAYER_PROJECTION, nullptr, 0, space_, 2, views};
        const auto* const header = reinterpret_cast<const XrCompositionLayerBaseHeader*>(&layer);
        const XrFrameEndInfo end = {XR_TYPE_FRAME_END_INFO,           nullptr,           frame.predictedDisplayTime,
                                    XR_ENVIRONMENT_BLEND_MODE_OPAQUE, is_shown ? 1u : 0, &header};
        Check(xrEndFrame(session_, &end), "xrEndFrame");
    }

    bool LocateViews(XrTime time, XrCompositionLayerProjectionView (&views)[2]) const {
        const XrViewLocateInfo info = {XR_TYPE_VIEW_LOCATE_INFO, nullptr, XR_VIEW_CONFIGURATION_TYPE_PRIMARY_STEREO,
                                       time, space_};
        auto state = Typed<XrViewState>(XR_TYPE_VIEW_STATE);
        XrView located[2] = {Typed<XrView>(XR_TYPE_VIEW), Typed<XrView>(XR_TYPE_VIEW)};
        std::uint32_t count = 0;
        Check(xrLocateViews(session_, &info, &state, 2, &count, located), "xrLocateViews");
        for (std::uint32_t eye = 0; eye < 2; ++eye) {
            views[eye] = {XR_TYPE_COMPOSITION_LAYER_PROJECTION_VIEW,
                          nullptr,
                          located[eye].pose,
                          located[eye].fov,
                          {swapchain_, {{0, 0}, {kSize, kSize}}, eye}};
        }
        constexpr XrViewStateFlags kLocated = XR_VIEW_STATE_POSITION_VALID_BIT | XR_VIEW_STATE_ORIENTATION_VALID_BIT;
        return (state.viewStateFlags & kLocated) == kLocated;
    }

    void Draw() {
        std::uint32_t image = 0;
        Check(xrAcquireSwapchainImage(swapchain_, nullptr, &image), "xrAcquireSwapchainImage");
        const XrSwapchainImageWaitInfo wait = {XR_TYPE_SWAPCHAIN_IMAGE_WAIT_INFO, nullptr, XR_INFINITE_DURATION};
        Check(xrWaitSwapchainImage(swapchain_, &wait), "xrWaitSwapchainImage");
        Clear(images_[image].image);
        Check(xrReleaseSwapchainImage(swapchain_, nullptr), "xrReleaseSwapchainImage");
    }

    // Both layers, to the colour of now. OpenXR hands images out, and takes them back, as attachments of colour.
    void Clear(VkImage image) {
        const VkImageSubresourceRange all = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 1, 0, 2};
        const VkCommandBufferBeginInfo begin = {VK_STRUCTURE_TYPE_COMMAND_BUFFER_BEGIN_INFO, nullptr,
                                                VK_COMMAND_BUFFER_USAGE_ONE_TIME_SUBMIT_BIT, nullptr};
        Check(vkBeginCommandBuffer(commands_, &begin), "vkBeginCommandBuffer");
        const auto change = [&](VkImageLayout from, VkImageLayout to) {
            auto barrier = Typed<VkImageMemoryBarrier>(VK_STRUCTURE_TYPE_IMAGE_MEMORY_BARRIER);
            barrier.srcAccessMask = barrier.dstAccessMask = VK_ACCESS_MEMORY_READ_BIT | VK_ACCESS_MEMORY_WRITE_BIT;
            barrier.oldLayout = from;
            barrier.newLayout = to;
            barrier.srcQueueFamilyIndex = barrier.dstQueueFamilyIndex = VK_QUEUE_FAMILY_IGNORED;
            barrier.image = image;
            barrier.subresourceRange = all;
            vkCmdPipelineBarrier(commands_, VK_PIPELINE_STAGE_ALL_COMMANDS_BIT, VK_PIPELINE_STAGE_ALL_COMMANDS_BIT, 0,
                                 0, nullptr, 0, nullptr, 1, &barrier);
        };
        change(VK_IMAGE_LAYOUT_COLOR_ATTACHMENT_OPTIMAL, VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL);
        vkCmdClearColorImage(commands_, image, VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL, &kColours[colour_].value, 1, &all);
        change(VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL, VK_IMAGE_LAYOUT_COLOR_ATTACHMENT_OPTIMAL);
        Check(vkEndCommandBuffer(commands_), "vkEndCommandBuffer");
        auto submit = Typed<VkSubmitInfo>(VK_STRUCTURE_TYPE_SUBMIT_INFO);
        submit.commandBufferCount = 1;
        submit.pCommandBuffers = &commands_;
        Check(vkQueueSubmit(queue_, 1, &submit, VK_NULL_HANDLE), "vkQueueSubmit");
        Check(vkQueueWaitIdle(queue_), "vkQueueWaitIdle");
    }

    static constexpr std::int32_t kSize = 256;

    std::size_t colour_ = 0;  // of kColours; the thread that draws has it
    XrInstance instance_ = XR_NULL_HANDLE;
    XrSystemId system_ = XR_NULL_SYSTEM_ID;
    XrSession session_ = XR_NULL_HANDLE;
    XrSpace space_ = XR_NULL_HANDLE;
    XrSwapchain swapchain_ = XR_NULL_HANDLE;
    std::vector<XrSwapchainImageVulkanKHR> images_;
    XrSessionState state_ = XR_SESSION_STATE_UNKNOWN;
    bool running_ = false;
    VkInstance vulkan_ = VK_NULL_HANDLE;
    VkDevice device_ = VK_NULL_HANDLE;
    VkQueue queue_ = VK_NULL_HANDLE;
    VkCommandPool pool_ = VK_NULL_HANDLE;
    VkCommandBuffer commands_ = VK_NULL_HANDLE;
    XrGraphicsBindingVulkanKHR binding_ = {};
};

}  // namespace

int main(int argc, char** argv) {
    try {
        Application application;
        application.Run(argc > 1 ? std::atof(argv[1]) : 3600);
        return 0;
    } catch (const NoVulkan& problem) {
        std::fprintf(stderr, "hello_vulkan: %s; mesa-vulkan-drivers brings one in software\n", problem.what());
        return 77;
    } catch (const std::exception& problem) {
        std::fprintf(stderr, "hello_vulkan: %s\n", problem.what());
        return 1;
    }
}
