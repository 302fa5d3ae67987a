// OpenXR paths and their texts, asked of the next layer. Any thread; no lock is held while the runtime works.
#pragma once

#include <openxr/openxr.h>

#include <string>

namespace orvanic_xr {

// What the next layer answers, with `path` set; XR_ERROR_FUNCTION_UNSUPPORTED if it has no such function.
// `path` is XR_NULL_PATH unless the call succeeded.
XrResult StringToPath(XrInstance instance, const std::string& text, XrPath& path);

// The path of `text`, or XR_NULL_PATH if there is none to be had.
XrPath PathFromText(XrInstance instance, const std::string& text);

// The text of `path`, or an empty one if it can't be told.
std::string TextFromPath(XrInstance instance, XrPath path);

}  // namespace orvanic_xr
