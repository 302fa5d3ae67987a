#include "xr/enum_names.h"

#include <openxr/openxr_reflection.h>

#include <algorithm>
#include <cstdint>
#include <iterator>

namespace orvanic_xr {
namespace {

struct EnumName {
    std::int32_t value;
    const char* name;
};

#define VELMOOR_ENUM_NAME(name, value) {value, #name},
constexpr EnumName kResults[] = {XR_LIST_ENUM_XrResult(VELMOOR_ENUM_NAME)};
constexpr EnumName kSessionStates[] = {XR_LIST_ENUM_XrSessionState(VELMOOR_ENUM_NAME)};
constexpr EnumName kStructureTypes[] = {XR_LIST_ENUM_XrStructureType(VELMOOR_ENUM_NAME)};
constexpr EnumName kEnvironmentBlendModes[] = {XR_LIST_ENUM_XrEnvironmentBlendMode(VELMOOR_ENUM_NAME)};
#undef VELMOOR_ENUM_NAME

// The lists begin with the core values, which are nearly all that is ever asked for. Where two names share a
// value, the first is the registry's own and the rest are aliases.
template <std::size_t kCount>
const char* name_of(std::int32_t value, const EnumName (&names)[kCount], const char* otherwise) {
    const auto found = std::find_if(std::begin(names), std::end(names),
                                    [value](const EnumName& entry) { return entry.value == value; });
    return found == std::end(names) ? otherwise : found->name;
}

}  // namespace

const char* xr_result_to_string(XrResult result) {
    return name_of(result, kResults, "Unknown");
}

std::string result_name_or_number(XrResult result) {
    const char* name = name_of(result, kResults, nullptr);
    return name ? name : "XrResult " + std::to_string(result);
}

const char* session_state_name(XrSessionState state) {
    return name_of(state, kSessionStates, "XR_SESSION_STATE_UNKNOWN");
}

const char* structure_type_name(XrStructureType type) {
    return name_of(type, kStructureTypes, "XR_TYPE_UNKNOWN");
}

const char* environment_blend_mode_name(XrEnvironmentBlendMode mode) {
    return name_of(mode, kEnvironmentBlendModes, "XR_ENVIRONMENT_BLEND_MODE_UNKNOWN");
}

}  // namespace orvanic_xr
