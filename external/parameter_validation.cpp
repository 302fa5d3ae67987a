#include <cstddef>
#include <cstring>
#include <exception>

#include "diagnostics/logger.h"
#include "external/fixed_text.h"
#include "external/registration.h"
#include "mcp/json.h"

namespace orvanic_xr {
namespace {

template <typename... Parts>
bool Refuse(const Parts&... parts) {
    LogError("ValidateXrOrvanicExternalToolParameter: ", parts...);
    return false;
}

bool IsKnownType(std::int32_t type) {
    return type >= XR_ORVANIC_EXTERNAL_TOOL_TYPE_STRING_KESTX1 && type <= XR_ORVANIC_EXTERNAL_TOOL_TYPE_OBJECT_KESTX1;
}

bool ValidateObjectProperties(const XrOrvanicExternalToolParameterKESTX1& param) {
    if (!IsFilledText(param.objectProperties)) return Refuse("invalid objectProperties length");
    try {
        if (mcp::parse_json(TextOf(param.objectProperties)).is_object()) return true;
    } catch (const std::exception& exception) {
        return Refuse("objectProperties JSON parse error: ", exception.what());
    }
    return Refuse("objectProperties must be a JSON object");
}

}  // namespace

bool ValidateXrOrvanicExternalToolParameter(const XrOrvanicExternalToolParameterKESTX1* param) {
    if (!param) return Refuse("param is null");
    LogDebug("ValidateXrOrvanicExternalToolParameter: ", TextOf(param->name));
    if (param->type != XR_TYPE_ORVANIC_EXTERNAL_TOOL_PARAMETER_KESTX1) {
        return Refuse("invalid type: ", static_cast<int>(param->type));
    }
    if (param->next) return Refuse("next pointer is not null");
    if (!IsFilledText(param->name) || !IsFilledText(param->description)) return Refuse("invalid name/description");
    switch (param->paramType) {
        case XR_ORVANIC_EXTERNAL_TOOL_TYPE_STRING_KESTX1:
        case XR_ORVANIC_EXTERNAL_TOOL_TYPE_NUMBER_KESTX1:
        case XR_ORVANIC_EXTERNAL_TOOL_TYPE_BOOLEAN_KESTX1:
            return true;
        case XR_ORVANIC_EXTERNAL_TOOL_TYPE_ARRAY_KESTX1:
            return IsKnownType(param->arrayItemType) || Refuse("invalid arrayItemType");
        case XR_ORVANIC_EXTERNAL_TOOL_TYPE_OBJECT_KESTX1:
            return ValidateObjectProperties(*param);
        default:
            return Refuse("unknown paramType: ", param->paramType);
    }
}

}  // namespace orvanic_xr
