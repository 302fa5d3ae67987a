// The buffer that a callback writes its result into, and the two calls that a long result takes.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "external/external_tool.h"

namespace orvanic_xr {

struct CallbackOutcome {
    XrResult result = XR_SUCCESS;
    std::uint32_t output_size = 0;  // what the callback told last
};

// Calls `callback`; if it asks for more room, `on_retry` is told, the buffer gets it, and the callback is called
// once more. A request beyond kLargestExternalResult is the failure that it came with. Throws what the callback
// or an allocation throws.
template <typename OnRetry>
CallbackOutcome CallWithBuffer(PFN_xrOrvanicExternalToolCallbackKESTX1 callback, std::vector<char>& buffer,
                               const std::string& arguments_json, void* user_data, const OnRetry& on_retry) {
    CallbackOutcome outcome;
    const auto call = [&] {
        outcome.output_size = 0;
        outcome.result = callback(buffer.data(), static_cast<std::uint32_t>(buffer.size()), &outcome.output_size,
                                  arguments_json.c_str(), user_data);
    };
    call();
    const std::uint64_t wanted = std::uint64_t{outcome.output_size} + 1;
    if (outcome.result != XR_ERROR_SIZE_INSUFFICIENT || wanted > kLargestExternalResult) return outcome;
    buffer.resize(wanted);
    on_retry();
    call();
    return outcome;
}

// Length of the text in `buffer`: up to its first NUL, or all of it.
std::size_t TextLength(const std::vector<char>& buffer);

}  // namespace orvanic_xr
