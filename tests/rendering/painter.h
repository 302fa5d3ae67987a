// An application's side of a graphics interface, as little as it takes: a device or context of its own, and bytes put
// into the images of a swapchain.
#pragma once

#include <openxr/openxr.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace rendering_test {

class Painter {
 public:
    virtual ~Painter() = default;

    // That have to be enabled.
    virtual std::vector<const char*> Extensions() const = 0;
    // Asks what the graphics extension wants to be asked, and makes device or context. An empty text, or why this
    // machine has none.
    virtual std::string Start(XrInstance instance, XrSystemId system) = 0;
    // For the chain of a session's creation.
    virtual void* Binding() = 0;
    // That no session can be bound to; after the above.
    virtual std::vector<void*> BadBindings() { return {}; }

    // Four channels of 8 bits: linear light, and sRGB.
    virtual std::int64_t LinearFormat() const = 0;
    virtual std::int64_t SrgbFormat() const = 0;
    // Likewise of half floats.
    virtual std::int64_t HalfFormat() const = 0;
    virtual std::int64_t DepthFormat() const = 0;

    // Takes the images of a new swapchain.
    virtual void Adopt(XrSwapchain swapchain) = 0;
    // `pixels` has four bytes for each place, first row at the top.
    virtual void Paint(XrSwapchain swapchain, std::uint32_t image, std::uint32_t layer, std::uint32_t width,
                       std::uint32_t height, const std::vector<std::uint8_t>& pixels) = 0;
    // Clears an image to one colour; one of several samples takes no bytes.
    virtual void Fill(XrSwapchain swapchain, std::uint32_t image, bool has_samples, const float (&colour)[4]) = 0;
    // What a checking layer had to say, or whether something of the application's was left changed.
    virtual std::string Complaints() { return {}; }
};

// Vulkan as the runtime meets it through the functions that Vulkan2's painter hands over.
struct Driver {
    // Nothing that is submitted ends.
    std::atomic<bool> hangs = false;
    // Allocated and not freed, of all and of those that were there when it hung.
    std::atomic<int> memories = 0;
    std::atomic<int> freed_in_use = 0;
    // Told in the middle of calls that a driver may take its time for.
    std::function<void(const char*)> called;
};
Driver& TheDriver();

std::unique_ptr<Painter> MakeVulkan2Painter();
std::unique_ptr<Painter> MakeVulkanPainter();
std::unique_ptr<Painter> MakeEglPainter();
std::unique_ptr<Painter> MakeEglEsPainter();
std::unique_ptr<Painter> MakeXlibPainter();
std::unique_ptr<Painter> MakeXcbPainter();

// A zeroed record that says what it is.
template <class Record>
Record Typed(XrStructureType type) {
    Record record = {};
    record.type = type;
    return record;
}

// One of the runtime's functions.
template <class Function>
Function Lookup(XrInstance instance, const char* name) {
    PFN_xrVoidFunction function = nullptr;
    xrGetInstanceProcAddr(instance, name, &function);
    return reinterpret_cast<Function>(function);
}

// The images of a swapchain.
template <class Record>
std::vector<Record> ImagesOf(XrSwapchain swapchain, XrStructureType type) {
    std::uint32_t count = 0;
    xrEnumerateSwapchainImages(swapchain, 0, &count, nullptr);
    std::vector<Record> images(count, Typed<Record>(type));
    xrEnumerateSwapchainImages(swapchain, count, &count, reinterpret_cast<XrSwapchainImageBaseHeader*>(images.data()));
    return images;
}

}  // namespace rendering_test
