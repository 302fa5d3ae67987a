#include "simulator/display.h"

#include <array>
#include <cmath>
#include <limits>
#include <span>

#include "simulator/instance.h"
#include "simulator/runtime.h"
#include "simulator/session.h"
#include "simulator/views.h"
#include "xr/pose_math.h"

namespace simulator {
namespace {

constexpr XrTime kNanoseconds = 1'000'000'000;

float RateOf(const Session& session) {
    return static_cast<float>(session.instance->settings.frames_per_second);
}

// Into the corners of a view, counterclockwise. All of the view is seen.
std::span<const std::uint32_t> IndicesOf(XrVisibilityMaskTypeKHR type) {
    static constexpr std::uint32_t kTriangles[] = {0, 1, 2, 0, 2, 3};
    static constexpr std::uint32_t kLoop[] = {0, 1, 2, 3};
    switch (type) {
        case XR_VISIBILITY_MASK_TYPE_HIDDEN_TRIANGLE_MESH_KHR:
            return {};
        case XR_VISIBILITY_MASK_TYPE_VISIBLE_TRIANGLE_MESH_KHR:
            return kTriangles;
        case XR_VISIBILITY_MASK_TYPE_LINE_LOOP_KHR:
            return kLoop;
        default:
            Refuse(XR_ERROR_VALIDATION_FAILURE);
    }
}

XrResult WriteMask(std::span<const XrVector2f> vertices, std::span<const std::uint32_t> indices,
                   XrVisibilityMaskKHR& mask) {
    mask.vertexCountOutput = static_cast<std::uint32_t>(vertices.size());
    mask.indexCountOutput = static_cast<std::uint32_t>(indices.size());
    if (mask.vertexCapacityInput == 0 || mask.indexCapacityInput == 0) return XR_SUCCESS;
    Require(mask.vertices && mask.indices);
    if (mask.vertexCapacityInput < vertices.size() || mask.indexCapacityInput < indices.size()) {
        return XR_ERROR_SIZE_INSUFFICIENT;
    }
    std::ranges::copy(vertices, mask.vertices);
    std::ranges::copy(indices, mask.indices);
    return XR_SUCCESS;
}

}  // namespace

XrResult GetVisibilityMaskKHR(XrSession session, XrViewConfigurationType type, std::uint32_t view,
                              XrVisibilityMaskTypeKHR mask_type, XrVisibilityMaskKHR* mask) {
    return Guarded([&](Runtime& runtime) {
        runtime.Get(session);
        RequireType(mask, XR_TYPE_VISIBILITY_MASK_KHR);
        CheckConfiguration(type);
        const auto eyes = EyesOf(orvanic_xr::kIdentityPose);
        Require(view < eyes.size());
        const XrFovf& fov = eyes[view].fov;
        const float left = std::tan(fov.angleLeft);
        const float right = std::tan(fov.angleRight);
        const float down = std::tan(fov.angleDown);
        const float up = std::tan(fov.angleUp);
        const XrVector2f corners[] = {{left, down}, {right, down}, {right, up}, {left, up}};
        const auto indices = IndicesOf(mask_type);
        return WriteMask(std::span(corners, indices.empty() ? 0 : std::size(corners)), indices, *mask);
    });
}

XrResult EnumerateDisplayRefreshRatesFB(XrSession session, std::uint32_t capacity, std::uint32_t* count, float* rates) {
    return Guarded(
        [&](Runtime& runtime) { return WriteList(std::array{RateOf(*runtime.Get(session))}, capacity, count, rates); });
}

XrResult GetDisplayRefreshRateFB(XrSession session, float* rate) {
    return Guarded([&](Runtime& runtime) {
        const auto owner = runtime.Get(session);
        Require(rate);
        *rate = RateOf(*owner);
        return XR_SUCCESS;
    });
}

XrResult RequestDisplayRefreshRateFB(XrSession session, float rate) {
    return Guarded([&](Runtime& runtime) {
        const auto owner = runtime.Get(session);
        // 0 leaves it to the runtime.
        if (rate != 0.0f && rate != RateOf(*owner)) Refuse(XR_ERROR_DISPLAY_REFRESH_RATE_UNSUPPORTED_FB);
        return XR_SUCCESS;
    });
}

XrResult ConvertTimespecTimeToTimeKHR(XrInstance instance, const timespec* timespec_time, XrTime* time) {
    return Guarded([&](Runtime& runtime) {
        runtime.Get(instance);
        Require(timespec_time && time);
        const auto& [seconds, nanoseconds] = *timespec_time;
        const bool is_time = seconds >= 0 && seconds < std::numeric_limits<XrTime>::max() / kNanoseconds &&
                             nanoseconds >= 0 && nanoseconds < kNanoseconds && (seconds > 0 || nanoseconds > 0);
        if (!is_time) Refuse(XR_ERROR_TIME_INVALID);
        *time = runtime.clock.TimeOf(seconds * kNanoseconds + nanoseconds, RealNow());
        // Before the clock began.
        if (*time <= 0) Refuse(XR_ERROR_TIME_INVALID);
        return XR_SUCCESS;
    });
}

XrResult ConvertTimeToTimespecTimeKHR(XrInstance instance, XrTime time, timespec* timespec_time) {
    return Guarded([&](Runtime& runtime) {
        runtime.Get(instance);
        Require(timespec_time);
        if (time <= 0) Refuse(XR_ERROR_TIME_INVALID);
        const std::int64_t moment = runtime.clock.MomentOf(time);
        if (moment <= 0) Refuse(XR_ERROR_TIME_INVALID);
        *timespec_time = {moment / kNanoseconds, moment % kNanoseconds};
        return XR_SUCCESS;
    });
}

}  // namespace simulator
