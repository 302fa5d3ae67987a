// The images of a swapchain as the runtime tells them.
#pragma once

#include <openxr/openxr.h>

#include <cstdint>
#include <vector>

#include "simulator/refusal.h"

namespace simulator {

// Each begins as `blank`, which has its type. Throws what the runtime refuses with.
template <class Record>
std::vector<Record> ImageRecords(XrSwapchain swapchain, PFN_xrEnumerateSwapchainImages enumerate, const Record& blank) {
    const auto check = [](XrResult result) {
        if (XR_FAILED(result)) Refuse(result);
    };
    std::uint32_t count = 0;
    check(enumerate(swapchain, 0, &count, nullptr));
    std::vector<Record> records(count, blank);
    check(enumerate(swapchain, count, &count, reinterpret_cast<XrSwapchainImageBaseHeader*>(records.data())));
    return records;
}

}  // namespace simulator
