#include "velmoor/invoke_tool.h"

#include <exception>
#include <string>
#include <utility>

#include "diagnostics/logger.h"
#include "mcp/json.h"
#include "tools/caller_buffer.h"
#include "tools/tool_registry.h"

namespace orvanic_xr {
namespace {

static_assert(ORVANIC_XR_INVOKE_SIZE_INSUFFICIENT == kBufferTooSmall);

struct InvocationOutcome {
    std::int32_t code = ORVANIC_XR_INVOKE_SUCCESS;
    std::string result;
    std::string error;
};

InvocationOutcome failed(std::int32_t code, std::string error) {
    return {code, {}, std::move(error)};
}

InvocationOutcome serialized(const json& result) {
    try {
        return {ORVANIC_XR_INVOKE_SUCCESS, mcp::dump_json(result), {}};
    } catch (const std::exception& exception) {
        return failed(ORVANIC_XR_INVOKE_FAILED, std::string("failed to serialize tool result: ") + exception.what());
    } catch (...) {
        return failed(ORVANIC_XR_INVOKE_FAILED, "failed to serialize tool result: unknown exception");
    }
}

InvocationOutcome invoke_with(const std::string& tool_name, const json& arguments) {
    ToolInvocationResult invocation = InProcessToolRegistry::instance().invoke(tool_name, arguments);
    if (invocation.success) return serialized(invocation.result);
    LogError("OrvanicXR_InvokeTool: failed to invoke tool '", tool_name, "': ", invocation.error);
    return failed(ORVANIC_XR_INVOKE_FAILED, std::move(invocation.error));
}

InvocationOutcome invoke(const char* tool_name, const char* params_json) {
    if (!tool_name) return failed(ORVANIC_XR_INVOKE_INVALID_ARGUMENT, "toolName must not be null");
    if (!params_json || *params_json == '\0') return invoke_with(tool_name, json::object());
    json arguments;
    try {
        arguments = mcp::parse_json(params_json);
    } catch (const std::exception& exception) {
        std::string error = std::string("failed to parse params for tool '") + tool_name + "': " + exception.what();
        LogError("OrvanicXR_InvokeTool: ", error);
        return failed(ORVANIC_XR_INVOKE_INVALID_ARGUMENT, std::move(error));
    }
    return invoke_with(tool_name, arguments);
}

}  // namespace
}  // namespace orvanic_xr

std::int32_t OrvanicXR_InvokeTool(const char* toolName, const char* paramsJson, std::uint32_t resultCapacityInput,
                                  std::uint32_t* resultCountOutput, char* resultBuffer,
                                  std::uint32_t errorCapacityInput, std::uint32_t* errorCountOutput,
                                  char* errorBuffer) {
    using namespace orvanic_xr;
    try {
        const InvocationOutcome outcome = invoke(toolName, paramsJson);
        const std::int32_t result_written =
            WriteToCallerBuffer(outcome.result, resultCapacityInput, resultCountOutput, resultBuffer);
        const std::int32_t error_written =
            WriteToCallerBuffer(outcome.error, errorCapacityInput, errorCountOutput, errorBuffer);
        return result_written < 0 || error_written < 0 ? kBufferTooSmall : outcome.code;
    } catch (const std::exception& exception) {
        LogError("OrvanicXR_InvokeTool: unexpected exception: ", exception.what());
    } catch (...) {
        LogError("OrvanicXR_InvokeTool: unexpected unknown exception");
    }
    return ORVANIC_XR_INVOKE_FAILED;
}
