// Turns a failed OpenXR call into an exception that names it.
#pragma once

#include <openxr/openxr.h>

#include <stdexcept>
#include <string>

namespace demo {

inline XrResult Check(XrResult result, const char* call) {
    if (XR_FAILED(result)) throw std::runtime_error(std::string(call) + " failed with " + std::to_string(result));
    return result;
}

}  // namespace demo
