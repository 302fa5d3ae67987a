#include "tools/json_conversions.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

namespace orvanic_xr {
namespace {

constexpr std::int64_t kFirstTime = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kLastTime = std::numeric_limits<std::int64_t>::max();

TEST(JsonConversions, WriteKeysInWireOrder) {
    const XrPosef pose = {{0.0f, 0.6f, 0.0f, -0.8f}, {1.5f, -0.25f, 2.0f}};
    struct Row {
        json value;
        const char* dump;
    };
    const std::vector<Row> rows = {
        {time_to_json(1'500'000'000), R"({"XrTime":1500000000,"time_in_seconds":1.5})"},
        {duration_to_json(-250'000'000), R"({"XrDuration":-250000000,"duration_in_seconds":-0.25})"},
        {unix_time_to_json(1'767'323'045'500'000'000),
         R"({"unix_timestamp":1767323045.5,"iso8601":"2026-01-02T03:04:05.500Z"})"},
        {handle_to_json(0x1a2b), R"({"handle":"6699","handle_hex":"0x1a2b"})"},
        {handle_to_json(18446744073709551615u),
         R"({"handle":"18446744073709551615","handle_hex":"0xffffffffffffffff"})"},
        // Single-precision numbers, widened.
        {pose_to_json(pose),
         R"({"position":[1.5,-0.25,2.0],"orientation":[0.0,0.6000000238418579,0.0,-0.800000011920929]})"},
        {space_location_flags_to_json(XR_SPACE_LOCATION_POSITION_VALID_BIT | XR_SPACE_LOCATION_ORIENTATION_TRACKED_BIT),
         R"({"position_valid":true,"orientation_valid":false,"position_tracked":false,"orientation_tracked":true})"},
        {space_location_flags_to_json(XR_SPACE_LOCATION_ORIENTATION_VALID_BIT | XR_SPACE_LOCATION_POSITION_TRACKED_BIT),
         R"({"position_valid":false,"orientation_valid":true,"position_tracked":true,"orientation_tracked":false})"},
    };
    for (const Row& row : rows) EXPECT_EQ(mcp::dump_json(row.value), row.dump);
}

TEST(Iso8601Text, ReadsAnyTimeAsUtc) {
    struct Row {
        std::int64_t ns;
        const char* text;
    };
    const std::vector<Row> rows = {
        {0, "1970-01-01T00:00:00.000Z"},
        {1'767'323'045'006'999'999, "2026-01-02T03:04:05.006Z"},
        {951'782'400'000'000'000, "2000-02-29T00:00:00.000Z"},
        {-1, "1969-12-31T23:59:59.999Z"},
        {-1'500'000'000, "1969-12-31T23:59:58.500Z"},
        {kLastTime, "2262-04-11T23:47:16.854Z"},
        {kFirstTime, "1677-09-21T00:12:43.145Z"},
    };
    for (const Row& row : rows) EXPECT_EQ(iso8601_text(row.ns), row.text);
}

TEST(EnumNames, AreTheRegistrysOwnOrSayThatThereIsNone) {
    const std::pair<const char*, const char*> rows[] = {
        {xr_result_to_string(static_cast<XrResult>(-51)), "XR_ERROR_RUNTIME_UNAVAILABLE"},
        {xr_result_to_string(static_cast<XrResult>(-5)), "Unknown"},
        {session_state_name(static_cast<XrSessionState>(5)), "XR_SESSION_STATE_FOCUSED"},
        {session_state_name(static_cast<XrSessionState>(9)), "XR_SESSION_STATE_UNKNOWN"},
        {structure_type_name(static_cast<XrStructureType>(35)), "XR_TYPE_COMPOSITION_LAYER_PROJECTION"},
        {structure_type_name(static_cast<XrStructureType>(36000)), "XR_TYPE_UNKNOWN"},
        {environment_blend_mode_name(XR_ENVIRONMENT_BLEND_MODE_ADDITIVE), "XR_ENVIRONMENT_BLEND_MODE_ADDITIVE"},
        {environment_blend_mode_name(static_cast<XrEnvironmentBlendMode>(0)), "XR_ENVIRONMENT_BLEND_MODE_UNKNOWN"},
    };
    for (const auto& [name, expected] : rows) EXPECT_STREQ(name, expected);
}

TEST(ClampedNumbers, StayInTheirType) {
    constexpr std::uint64_t kLargest = std::numeric_limits<std::uint64_t>::max();
    struct Row {
        const char* number;
        std::uint64_t integer;
        float real;
    };
    const std::vector<Row> rows = {
        {"0", 0, 0.0f},
        {"-1", 0, -1.0f},
        {"2.9", 2, 2.9f},
        {"-2.9", 0, -2.9f},
        {"9223372036854775808", 9223372036854775808u, 9223372036854775808.0f},
        {"18446744073709551615", kLargest, 18446744073709551616.0f},
        {"18446744073709551616", kLargest, 18446744073709551616.0f},
        {"18446744073709549568.0", 18446744073709549568u, 18446744073709549568.0f},
        {"1e300", kLargest, 3.40282347e38f},
        {"-1e300", 0, -3.40282347e38f},
        {"1e-300", 0, 0.0f},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.number);
        const json number = mcp::parse_json(row.number);
        EXPECT_EQ(clamped_uint64(number), row.integer);
        EXPECT_EQ(clamped_float(number), row.real);
    }
    EXPECT_EQ(clamped_uint64(std::numeric_limits<double>::quiet_NaN()), 0u);
    EXPECT_EQ(clamped_float(std::numeric_limits<double>::quiet_NaN()), 0.0f);
    EXPECT_THROW(clamped_float("1"), json::exception);
    EXPECT_THROW(clamped_float(true), json::exception);
}

}  // namespace
}  // namespace orvanic_xr
