#include "external/registration.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "context/context_manager.h"
#include "tests/fakes/log_capture.h"
#include "tests/fakes/renew.h"
#include "tools/tool_registry.h"
#include "xr/handles.h"

namespace orvanic_xr {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

using RegisterInfo = XrOrvanicExternalToolRegisterInfoKESTX1;
using Parameter = XrOrvanicExternalToolParameterKESTX1;

XrResult XRAPI_CALL Echo(char* buffer, std::uint32_t capacity, std::uint32_t* size, const char* arguments, void*) {
    *size = static_cast<std::uint32_t>(std::strlen(arguments));
    if (*size >= capacity) return XR_ERROR_SIZE_INSUFFICIENT;
    std::memcpy(buffer, arguments, *size);
    return XR_SUCCESS;
}

class RecordingRegistry : public IToolRegistry {
 public:
    void registerTool(mcp::tool tool, ToolHandler handler) override {
        if (throws) throw std::runtime_error("registry is full");
        const std::lock_guard lock(mutex_);
        tools.push_back(std::move(tool));
        handlers.push_back(std::move(handler));
    }
    std::vector<mcp::tool> tools;
    std::vector<ToolHandler> handlers;
    bool throws = false;

 private:
    std::mutex mutex_;
};

class ExternalRegistration : public testing::Test {
 protected:
    ExternalRegistration() {
        Renew(ContextManager::instance());
        InstanceState state;
        state.valid = true;
        state.instance = kInstance;
        state.toolRegistry = &registry_;
        ContextManager::instance().setInstanceState(state);
    }
    ~ExternalRegistration() override { Renew(ContextManager::instance()); }

    static RegisterInfo Info() {
        RegisterInfo info{};
        info.type = XR_TYPE_ORVANIC_EXTERNAL_TOOL_REGISTER_INFO_KESTX1;
        std::strcpy(info.name, "spawn_cube");
        std::strcpy(info.description, "Puts a cube into the scene.");
        info.callback = Echo;
        return info;
    }
    static Parameter Param(const char* name, std::int32_t type, XrBool32 required = XR_FALSE) {
        Parameter param{};
        param.type = XR_TYPE_ORVANIC_EXTERNAL_TOOL_PARAMETER_KESTX1;
        std::strcpy(param.name, name);
        std::strcpy(param.description, "what it is");
        param.paramType = type;
        param.required = required;
        return param;
    }
    static XrResult Register(const RegisterInfo* info, XrInstance instance = kInstance) {
        return OrvanicLayerXrOrvanicRegisterExternalToolKESTX1(instance, info);
    }

    static inline const XrInstance kInstance = HandleFromValue<XrInstance>(0x1001);
    RecordingRegistry registry_;
    LogCapture log_;
};

TEST_F(ExternalRegistration, MakesAToolLikeAnyOther) {
    std::vector<Parameter> params = {Param("label", XR_ORVANIC_EXTERNAL_TOOL_TYPE_STRING_KESTX1, 7),
                                     Param("sizes", XR_ORVANIC_EXTERNAL_TOOL_TYPE_ARRAY_KESTX1),
                                     Param("place", XR_ORVANIC_EXTERNAL_TOOL_TYPE_OBJECT_KESTX1, XR_TRUE)};
    params[1].arrayItemType = XR_ORVANIC_EXTERNAL_TOOL_TYPE_NUMBER_KESTX1;
    std::strcpy(params[2].objectProperties, R"({"x":{"type":"number"}})");
    RegisterInfo info = Info();
    info.paramsCount = 3;
    info.params = params.data();
    ASSERT_EQ(Register(&info), XR_SUCCESS);
    EXPECT_THAT(log_.take(), ElementsAre("INFO Registering external tool: spawn_cube(paramCount: 3)",
                                         "INFO   description: Puts a cube into the scene.",
                                         "INFO   Param[0]: name: label desc: what it is type: 1 required: 7",
                                         "INFO   Param[1]: name: sizes desc: what it is type: 4 required: 0",
                                         "INFO   Param[2]: name: place desc: what it is type: 5 required: 1",
                                         "INFO Successfully registered external tool: spawn_cube with 3 parameters"));
    ASSERT_EQ(registry_.tools.size(), 1u);
    EXPECT_EQ(registry_.tools[0].description, "Puts a cube into the scene.");
    EXPECT_EQ(mcp::dump_json(registry_.tools[0].input_schema),
              R"({"properties":{"label":{"type":"string","description":"what it is"},"sizes":{"type":"array",)"
              R"("description":"what it is","items":{"type":"number"}},"place":{"type":"object","description":"what )"
              R"(it is","properties":{"x":{"type":"number"}}},"reason":{"type":"string","description":"Why you are )"
              R"(calling this tool — describe your intent or what step this serves in your plan"},"sentiment":)"
              R"({"type":"string","description":"Your assessment of current task progress.","enum":["positive",)"
              R"("neutral","negative"]}},"type":"object","additionalProperties":false,"required":["label","place"]})");
    const mcp::json answer = registry_.handlers[0]({{"x", 1}}, "");
    EXPECT_EQ(mcp::dump_json(answer), R"([{"type":"text","text":"{\n  \"x\": 1\n}"}])");
}

TEST_F(ExternalRegistration, RefusesARecordWithAnyFieldWrong) {
    Parameter param = Param("p", 9);
    const struct {
        const char* name;
        std::function<void(RegisterInfo&)> spoil;
        const char* line;
    } cases[] = {
        {"type", [](auto& info) { info.type = XR_TYPE_SESSION_CREATE_INFO; }, "invalid type: 8"},
        {"next", [](auto& info) { info.next = &info; }, "next pointer is not null"},
        {"empty name", [](auto& info) { info.name[0] = 0; }, "invalid parameters"},
        {"unterminated name", [](auto& info) { std::memset(info.name, 'n', 64); }, "invalid parameters"},
        {"no callback", [](auto& info) { info.callback = nullptr; }, "invalid parameters"},
        {"bad param", [&](auto& info) { info.paramsCount = 1, info.params = &param; },
         "parameter validation failed at index 0"},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        RegisterInfo info = Info();
        row.spoil(info);
        EXPECT_EQ(Register(&info), XR_ERROR_VALIDATION_FAILURE);
        EXPECT_EQ(log_.take().back(),
                  std::string("ERROR OrvanicLayerXrOrvanicRegisterExternalToolKESTX1: ") + row.line);
    }
    EXPECT_TRUE(registry_.tools.empty());
}

TEST_F(ExternalRegistration, LooksAtHandlesAndAddressesFirst) {
    const RegisterInfo info = Info();
    EXPECT_EQ(Register(nullptr, XR_NULL_HANDLE), XR_ERROR_HANDLE_INVALID);
    EXPECT_EQ(Register(nullptr, HandleFromValue<XrInstance>(0x1002)), XR_ERROR_HANDLE_INVALID);
    EXPECT_EQ(Register(nullptr), XR_ERROR_VALIDATION_FAILURE);
    EXPECT_THAT(log_.take(),
                ElementsAre("ERROR OrvanicLayerXrOrvanicRegisterExternalToolKESTX1: instance is null",
                            "ERROR OrvanicLayerXrOrvanicRegisterExternalToolKESTX1: invalid instance",
                            "ERROR OrvanicLayerXrOrvanicRegisterExternalToolKESTX1: registerInfo is null"));
    ContextManager::instance().setToolRegistry(nullptr);
    EXPECT_EQ(Register(&info), XR_ERROR_RUNTIME_FAILURE);
    EXPECT_EQ(log_.take().back(),
              "ERROR Failed to register external tool 'spawn_cube': no tool registry on InstanceState");
    ContextManager::instance().setToolRegistry(&registry_);
    registry_.throws = true;
    EXPECT_EQ(Register(&info), XR_ERROR_RUNTIME_FAILURE);
    EXPECT_EQ(log_.take().back(), "ERROR Failed to register external tool 'spawn_cube': registry is full");
}

TEST_F(ExternalRegistration, RefusesAParameterWithAnyFieldWrong) {
    const auto object = [](const char* properties) {
        return [properties](Parameter& param) {
            param.paramType = XR_ORVANIC_EXTERNAL_TOOL_TYPE_OBJECT_KESTX1;
            std::strcpy(param.objectProperties, properties);
        };
    };
    const std::string deep = std::string(300, '[') + std::string(300, ']');
    const struct {
        const char* name;
        std::function<void(Parameter&)> spoil;
        const char* line;
    } cases[] = {
        {"type", [](auto& param) { param.type = XR_TYPE_UNKNOWN; }, "invalid type: 0"},
        {"next", [](auto& param) { param.next = &param; }, "next pointer is not null"},
        {"name", [](auto& param) { std::memset(param.name, 'n', 64); }, "invalid name/description"},
        {"description", [](auto& param) { param.description[0] = 0; }, "invalid name/description"},
        {"arrayItemType 0", [](auto& param) { param.paramType = 4; }, "invalid arrayItemType"},
        {"unterminated properties",
         [](auto& param) { param.paramType = 5, std::memset(param.objectProperties, ' ', 4096); },
         "invalid objectProperties length"},
        {"no object", object("[1]"), "objectProperties must be a JSON object"},
        {"hostile depth", object(deep.c_str()), "objectProperties JSON parse error: "},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        std::vector<Parameter> params = {Param("a", 1), Param("b", 2), Param("c", 3)};
        row.spoil(params[2]);
        RegisterInfo info = Info();
        info.paramsCount = 3;
        info.params = params.data();
        EXPECT_EQ(Register(&info), XR_ERROR_VALIDATION_FAILURE);
        EXPECT_THAT(log_.lines("ERROR"),
                    ElementsAre(HasSubstr(std::string("ERROR ValidateXrOrvanicExternalToolParameter: ") + row.line),
                                "ERROR OrvanicLayerXrOrvanicRegisterExternalToolKESTX1: parameter validation failed "
                                "at index 2"));
        log_.take();
    }
    EXPECT_FALSE(ValidateXrOrvanicExternalToolParameter(nullptr));
    Parameter ignored = Param("a", 1);
    ignored.arrayItemType = 99;
    EXPECT_TRUE(ValidateXrOrvanicExternalToolParameter(&ignored));
    EXPECT_TRUE(registry_.tools.empty());
}

TEST_F(ExternalRegistration, FromPlainStringsTellsItsOutcomeInTheLog) {
    const std::string longest(63, 'n');
    const std::string too_long(64, 'n');
    OrvanicXR_RegisterExternalTool(longest.c_str(), "d", 0, nullptr, Echo, 0, nullptr);
    EXPECT_EQ(log_.take().back(), "INFO External tool registered: " + longest);
    OrvanicXR_RegisterExternalTool(too_long.c_str(), "d", 0, nullptr, Echo, 0, nullptr);
    EXPECT_EQ(log_.take().back(),
              "ERROR OrvanicXR_RegisterExternalTool: failed in xrOrvanicRegisterExternalToolKESTX1(): -1");
    OrvanicXR_RegisterExternalTool(nullptr, "d", 0, nullptr, Echo, 0, nullptr);
    OrvanicXR_RegisterExternalTool("n", nullptr, 0, nullptr, Echo, 0, nullptr);
    OrvanicXR_RegisterExternalTool("n", "d", 0, nullptr, nullptr, 0, nullptr);
    EXPECT_THAT(log_.take(),
                testing::AllOf(testing::SizeIs(3),
                               testing::Each("ERROR OrvanicXR_RegisterExternalTool: null parameter provided")));
    OrvanicXR_RegisterExternalTool("n", "d", 1, nullptr, Echo, 0, nullptr);
    EXPECT_EQ(log_.take().back(), "ERROR OrvanicXR_RegisterExternalTool: params is null but paramsCount > 0");
    Renew(ContextManager::instance());
    OrvanicXR_RegisterExternalTool("n", "d", 0, nullptr, Echo, 0, nullptr);
    EXPECT_EQ(log_.take().back(),
              "ERROR OrvanicXR_RegisterExternalTool: failed in xrOrvanicRegisterExternalToolKESTX1(): -12");
}

}  // namespace
}  // namespace orvanic_xr
