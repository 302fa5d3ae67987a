// Any bytes as what an application hands over: the result text of a tool, or the records of a registration.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "context/context_manager.h"
#include "diagnostics/logger.h"
#include "external/external_result.h"
#include "external/registration.h"
#include "tools/tool_registry.h"
#include "xr/handles.h"

namespace {

using orvanic_xr::ContextManager;
using XrTool = XrOrvanicExternalToolRegisterInfoKESTX1;
using XrParameter = XrOrvanicExternalToolParameterKESTX1;

XrResult XRAPI_CALL Nothing(char*, std::uint32_t, std::uint32_t*, const char*, void*) {
    return XR_SUCCESS;
}

// What was registered must be presentable to a client.
class PresentingRegistry : public orvanic_xr::IToolRegistry {
 public:
    void registerTool(mcp::tool tool, orvanic_xr::ToolHandler) override {
        if (!tool.input_schema.at("properties").is_object()) std::abort();
        mcp::dump_json(tool.input_schema);
        mcp::dump_json(mcp::json(tool.name + tool.description));
    }
};

XrInstance PrepareInstance() {
    static PresentingRegistry registry;
    const auto instance = orvanic_xr::HandleFromValue<XrInstance>(1);
    orvanic_xr::Logger::instance().set_level(orvanic_xr::kLogError + 1);
    orvanic_xr::InstanceState state;
    state.valid = true;
    state.instance = instance;
    state.toolRegistry = &registry;
    ContextManager::instance().setInstanceState(state);
    return instance;
}

void ShapeResult(const std::string& text) {
    const mcp::json content = orvanic_xr::ShapeExternalToolResult(text);
    if (!content.is_array() || content.empty()) std::abort();
    for (const mcp::json& item : content) {
        if (item.at("type") != "text") std::abort();
    }
    mcp::dump_json(content);
}

// Takes bytes from the input for as long as there are some.
class Bytes {
 public:
    Bytes(const std::uint8_t* data, std::size_t size) : data_(data), left_(size) {}

    std::uint8_t Next() {
        if (left_ == 0) return 0;
        --left_;
        return *data_++;
    }
    // A prefix of the field from the input, so that most fields end where a text would.
    template <std::size_t kSize>
    void Fill(char (&field)[kSize]) {
        const std::size_t length = std::min({kSize, left_, std::size_t{Next()} * kSize / 250});
        std::memcpy(field, data_, std::min(length, left_));
        const std::size_t taken = std::min(length, left_);
        data_ += taken;
        left_ -= taken;
    }

 private:
    const std::uint8_t* data_;
    std::size_t left_;
};

void Register(Bytes bytes) {
    static const XrInstance instance = PrepareInstance();
    const std::uint8_t flaws = bytes.Next();
    std::vector<XrParameter> parameters(bytes.Next() % 4);
    for (XrParameter& parameter : parameters) {
        parameter = {};
        const bool odd = flaws & 1 && bytes.Next() & 1;
        parameter.type = odd ? XR_TYPE_UNKNOWN : XR_TYPE_ORVANIC_EXTERNAL_TOOL_PARAMETER_KESTX1;
        parameter.next = flaws & 2 && bytes.Next() & 1 ? &parameter : nullptr;
        bytes.Fill(parameter.name);
        bytes.Fill(parameter.description);
        parameter.paramType = bytes.Next() % 8 - 1;
        parameter.required = bytes.Next();
        parameter.arrayItemType = bytes.Next() % 8 - 1;
        bytes.Fill(parameter.objectProperties);
    }
    XrTool tool = {};
    tool.type = flaws & 4 ? XR_TYPE_UNKNOWN : XR_TYPE_ORVANIC_EXTERNAL_TOOL_REGISTER_INFO_KESTX1;
    tool.next = flaws & 8 ? &tool : nullptr;
    bytes.Fill(tool.name);
    bytes.Fill(tool.description);
    tool.paramsCount = static_cast<std::uint32_t>(parameters.size());
    tool.params = flaws & 16 ? nullptr : parameters.data();
    tool.callback = flaws & 32 ? nullptr : Nothing;
    tool.callbackFlags = bytes.Next();
    orvanic_xr::OrvanicLayerXrOrvanicRegisterExternalToolKESTX1(instance, &tool);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    if (data[0] & 1) {
        ShapeResult(std::string(reinterpret_cast<const char*>(data + 1), size - 1));
    } else {
        Register(Bytes(data + 1, size - 1));
    }
    return 0;
}
