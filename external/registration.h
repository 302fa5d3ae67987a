// How the application hands its tools over: the extension function, which the lookup of hooks offers, and behind
// it the checks of the record, the tool that is made of it, and its entry in the instance's registry.
#pragma once

#include "velmoor/external_tool.h"

namespace orvanic_xr {

XRAPI_ATTR XrResult XRAPI_CALL OrvanicLayerXrOrvanicRegisterExternalToolKESTX1(
    XrInstance instance, const XrOrvanicExternalToolRegisterInfoKESTX1* registerInfo);

// Whether one parameter record keeps the rules; what is wrong goes to the log.
bool ValidateXrOrvanicExternalToolParameter(const XrOrvanicExternalToolParameterKESTX1* param);

}  // namespace orvanic_xr
