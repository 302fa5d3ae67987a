#include "context/context_manager.h"
#include "tools/arguments.h"
#include "tools/inspect/cached_record.h"
#include "tools/inspect/inspect_tools.h"
#include "tools/json_conversions.h"

namespace orvanic_xr {
namespace {

constexpr char kDescription[] =
    "Get the XR (OpenXR) application name, engine name, and versions from the cached XrInstanceCreateInfo. Optionally "
    "includes the enabled API layers and extensions.";

constexpr CachedRecordTexts kTexts = {
    "openxr_get_instance_info tool called, isValid=",
    "openxr_get_instance_info: instance info not yet available",
    "Instance info not yet available. XrInstance has not been created.",
    "openxr_get_instance_info: returning cached data",
};

json api_version_to_json(XrVersion version) {
    const auto major = XR_VERSION_MAJOR(version);
    const auto minor = XR_VERSION_MINOR(version);
    const auto patch = XR_VERSION_PATCH(version);
    return {{"major", major},
            {"minor", minor},
            {"patch", patch},
            {"string", std::to_string(major) + "." + std::to_string(minor) + "." + std::to_string(patch)}};
}

json describe_instance(const InstanceState& instance, const json& arguments) {
    const json engine_name = instance.engineName.empty() ? json(nullptr) : json(instance.engineName);
    json output = {
        {"application", {{"name", instance.applicationName}, {"version", instance.applicationVersion}}},
        {"engine", {{"name", engine_name}, {"version", instance.engineVersion}}},
        {"api_version", api_version_to_json(instance.apiVersion)},
        {"timestamp_utc", unix_time_to_json(instance.createdAt)},
    };
    if (flag_argument(arguments, "include_api_layers")) output["enabled_api_layers"] = instance.enabledApiLayers;
    if (flag_argument(arguments, "include_enabled_extensions")) {
        output["enabled_extensions"] = instance.enabledExtensions;
    }
    if (flag_argument(arguments, "include_available_extensions")) {
        output["available_extensions"] = instance.availableExtensions;
    }
    return output;
}

json handle_get_instance_info(const json& arguments, const std::string& /*session_id*/) {
    return answer_from_cache(kTexts, ContextManager::instance().getInstanceState(),
                             [&](const InstanceState& instance) { return describe_instance(instance, arguments); });
}

}  // namespace

ToolEntry make_openxr_get_instance_info_tool_entry() {
    ToolBuilder builder("openxr_get_instance_info", kDescription);
    builder.add_boolean_parameter("include_api_layers", "Whether to include the enabled API layers", false)
        .add_boolean_parameter("include_enabled_extensions", "Whether to include the enabled extensions", false)
        .add_boolean_parameter("include_available_extensions",
                               "Whether to include the available extensions to the current OpenXR instance", false)
        .set_hints(true, false, true, false);
    return {builder.build(), handle_get_instance_info, {}};
}

}  // namespace orvanic_xr
