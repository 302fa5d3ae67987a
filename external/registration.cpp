#include "external/registration.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <exception>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <string>
#include <utility>
#include <vector>

#include "context/context_manager.h"
#include "diagnostics/logger.h"
#include "diagnostics/telemetry.h"
#include "external/external_tool.h"
#include "external/fixed_text.h"
#include "tools/tool_entry.h"
#include "tools/tool_registry.h"
#include "tools/tool_registry_lifetime.h"

namespace orvanic_xr {
namespace {

using RegisterInfo = XrOrvanicExternalToolRegisterInfoKESTX1;
using Parameter = XrOrvanicExternalToolParameterKESTX1;

static_assert(sizeof(RegisterInfo) == 1144 && offsetof(RegisterInfo, next) == 8 && offsetof(RegisterInfo, name) == 16 &&
              offsetof(RegisterInfo, description) == 80 && offsetof(RegisterInfo, paramsCount) == 1104 &&
              offsetof(RegisterInfo, params) == 1112 && offsetof(RegisterInfo, callback) == 1120 &&
              offsetof(RegisterInfo, callbackFlags) == 1128 && offsetof(RegisterInfo, userData) == 1136);
static_assert(sizeof(Parameter) == 5216 && offsetof(Parameter, next) == 8 && offsetof(Parameter, name) == 16 &&
              offsetof(Parameter, description) == 80 && offsetof(Parameter, paramType) == 1104 &&
              offsetof(Parameter, required) == 1108 && offsetof(Parameter, arrayItemType) == 1112 &&
              offsetof(Parameter, objectProperties) == 1116);

// Every external tool that was ever registered, for who looks into the process: entries are only appended.
struct RegisteredExternalTool {
    std::string name;
    std::string description;
    PFN_xrOrvanicExternalToolCallbackKESTX1 callback;
    std::uint32_t callbackFlags;
    void* userData;
};

struct RegisteredExternalTools {
    std::mutex mutex;  // guards tools
    std::vector<RegisteredExternalTool> tools;
};

RegisteredExternalTools& Registered() {
    static RegisteredExternalTools& registered = *new RegisteredExternalTools;
    return registered;
}

template <typename... Parts>
XrResult Refuse(XrResult result, const Parts&... parts) {
    LogError("OrvanicLayerXrOrvanicRegisterExternalToolKESTX1: ", parts...);
    return result;
}

const char* SchemaType(std::int32_t type) {
    constexpr std::array<const char*, 6> kNames = {"", "string", "number", "boolean", "array", "object"};
    return kNames[static_cast<std::size_t>(type)];
}

// XR_SUCCESS, or why the record is refused. Nothing of it is read before its address was checked.
XrResult CheckRecord(XrInstance instance, const RegisterInfo* info) {
    if (instance == XR_NULL_HANDLE) return Refuse(XR_ERROR_HANDLE_INVALID, "instance is null");
    if (instance != ContextManager::instance().getInstanceHandle()) {
        return Refuse(XR_ERROR_HANDLE_INVALID, "invalid instance");
    }
    if (!info) return Refuse(XR_ERROR_VALIDATION_FAILURE, "registerInfo is null");
    LogInfo("Registering external tool: ", TextOf(info->name), "(paramCount: ", info->paramsCount, ")");
    LogInfo("  description: ", TextOf(info->description));
    if (info->type != XR_TYPE_ORVANIC_EXTERNAL_TOOL_REGISTER_INFO_KESTX1) {
        return Refuse(XR_ERROR_VALIDATION_FAILURE, "invalid type: ", static_cast<int>(info->type));
    }
    if (info->next) return Refuse(XR_ERROR_VALIDATION_FAILURE, "next pointer is not null");
    if (!IsFilledText(info->name) || !IsFilledText(info->description) || !info->callback) {
        return Refuse(XR_ERROR_VALIDATION_FAILURE, "invalid parameters");
    }
    if (info->paramsCount > 0 && !info->params) {
        return Refuse(XR_ERROR_VALIDATION_FAILURE, "params is null but paramsCount > 0");
    }
    for (std::uint32_t i = 0; i < info->paramsCount; ++i) {
        if (!ValidateXrOrvanicExternalToolParameter(&info->params[i])) {
            return Refuse(XR_ERROR_VALIDATION_FAILURE, "parameter validation failed at index ", i);
        }
    }
    return XR_SUCCESS;
}

// False for a type that no check let pass: there is no schema for it.
bool AddParameter(ToolBuilder& builder, const Parameter& param) {
    const std::string name(TextOf(param.name));
    const std::string description(TextOf(param.description));
    const bool required = param.required != XR_FALSE;
    switch (param.paramType) {
        case XR_ORVANIC_EXTERNAL_TOOL_TYPE_STRING_KESTX1:
        case XR_ORVANIC_EXTERNAL_TOOL_TYPE_NUMBER_KESTX1:
        case XR_ORVANIC_EXTERNAL_TOOL_TYPE_BOOLEAN_KESTX1:
            builder.add_parameter(name, description, SchemaType(param.paramType), required);
            return true;
        case XR_ORVANIC_EXTERNAL_TOOL_TYPE_ARRAY_KESTX1:
            builder.add_array_parameter(name, description, SchemaType(param.arrayItemType), required);
            return true;
        case XR_ORVANIC_EXTERNAL_TOOL_TYPE_OBJECT_KESTX1:
            try {
                builder.add_object_parameter(name, description, mcp::parse_json(TextOf(param.objectProperties)),
                                             required);
            } catch (const std::exception& exception) {
                LogError("Failed to parse properties for parameter '", name, "': ", exception.what());
                return false;
            }
            return true;
        default:
            LogWarning("Unknown parameter type '", param.paramType, "' for parameter '", name, "'");
            return false;
    }
}

std::optional<mcp::tool> BuildTool(const RegisterInfo& info) {
    ToolBuilder builder{std::string(TextOf(info.name)), std::string(TextOf(info.description))};
    for (std::uint32_t i = 0; i < info.paramsCount; ++i) {
        const Parameter& param = info.params[i];
        LogInfo("  Param[", i, "]: name: ", TextOf(param.name), " desc: ", TextOf(param.description),
                " type: ", param.paramType, " required: ", param.required);
        if (!AddParameter(builder, param)) return std::nullopt;
    }
    mcp::tool tool = builder.build();
    add_reason_and_sentiment_parameters(tool);
    return tool;
}

void TellRegistrationFailed() {
    Telemetry::instance().error("external_tool", "register_failed");
}

XrResult RegisterTool(const RegisterInfo& info, const std::string& name) {
    const ExternalTool external{name, info.callback, static_cast<std::uint32_t>(info.callbackFlags), info.userData};
    const auto handler = [external](const json& arguments, const std::string& /*session_id*/) {
        return ExecuteExternalTool(external, arguments);
    };
    std::optional<mcp::tool> tool = BuildTool(info);
    if (!tool) return XR_ERROR_VALIDATION_FAILURE;
    std::shared_lock lifetime(ToolRegistryLifetime());
    IToolRegistry* registry = ContextManager::instance().getInstanceState().toolRegistry;
    if (!registry) {
        LogError("Failed to register external tool '", name, "': no tool registry on InstanceState");
        TellRegistrationFailed();
        return XR_ERROR_RUNTIME_FAILURE;
    }
    registry->registerTool(std::move(*tool), handler);
    RegisteredExternalTools& registered = Registered();
    std::lock_guard lock(registered.mutex);
    registered.tools.push_back(
        {name, std::string(TextOf(info.description)), external.callback, external.callbackFlags, external.userData});
    return XR_SUCCESS;
}

// Copies at most the field's size: a text that fills it is left unterminated, and refused for it.
template <std::size_t kSize>
void FillField(char (&field)[kSize], const char* text) {
    std::memcpy(field, text, strnlen(text, kSize));
}

void RegisterFromStrings(const char* name, const char* description, std::uint32_t params_count, const Parameter* params,
                         PFN_xrOrvanicExternalToolCallbackKESTX1 callback, std::uint64_t callback_flags,
                         void* user_data) {
    if (!name || !description || !callback) {
        LogError("OrvanicXR_RegisterExternalTool: null parameter provided");
        return;
    }
    if (params_count != 0 && !params) {
        LogError("OrvanicXR_RegisterExternalTool: params is null but paramsCount > 0");
        return;
    }
    RegisterInfo info{};
    info.type = XR_TYPE_ORVANIC_EXTERNAL_TOOL_REGISTER_INFO_KESTX1;
    FillField(info.name, name);
    FillField(info.description, description);
    info.paramsCount = params_count;
    info.params = params;
    info.callback = callback;
    info.callbackFlags = callback_flags;
    info.userData = user_data;
    const XrInstance instance = ContextManager::instance().getInstanceHandle();
    const XrResult result = OrvanicLayerXrOrvanicRegisterExternalToolKESTX1(instance, &info);
    if (XR_FAILED(result)) {
        LogError("OrvanicXR_RegisterExternalTool: failed in xrOrvanicRegisterExternalToolKESTX1(): ",
                 static_cast<int>(result));
    } else {
        LogInfo("External tool registered: ", name);
    }
}

}  // namespace

XRAPI_ATTR XrResult XRAPI_CALL OrvanicLayerXrOrvanicRegisterExternalToolKESTX1(XrInstance instance,
                                                                               const RegisterInfo* registerInfo) {
    std::string name;
    try {
        const XrResult checked = CheckRecord(instance, registerInfo);
        if (XR_FAILED(checked)) return checked;
        name = TextOf(registerInfo->name);
        const XrResult registered = RegisterTool(*registerInfo, name);
        if (XR_SUCCEEDED(registered)) {
            LogInfo("Successfully registered external tool: ", name, " with ", registerInfo->paramsCount,
                    " parameters");
        }
        return registered;
    } catch (const std::exception& exception) {
        LogError("Failed to register external tool '", name, "': ", exception.what());
    } catch (...) {
        LogError("Failed to register external tool '", name, "': unknown exception");
    }
    TellRegistrationFailed();
    return XR_ERROR_RUNTIME_FAILURE;
}

}  // namespace orvanic_xr

void OrvanicXR_RegisterExternalTool(const char* name, const char* description, std::uint32_t paramsCount,
                                    const XrOrvanicExternalToolParameterKESTX1* params,
                                    PFN_xrOrvanicExternalToolCallbackKESTX1 callback, std::uint64_t callbackFlags,
                                    void* userData) {
    try {
        orvanic_xr::RegisterFromStrings(name, description, paramsCount, params, callback, callbackFlags, userData);
    } catch (...) {
        orvanic_xr::LogError("OrvanicXR_RegisterExternalTool: unknown exception");
    }
}
