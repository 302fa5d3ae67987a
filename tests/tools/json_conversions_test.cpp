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

TEST(Iso8601Text, ReadsAnyTimeAsUtc) {
    struct Row {
        std::int64_t ns;
        const char* text;
    };
    const std::vector<Row> rows = {
        {1'767'323'045'006'999'999, "2026-01-02T03:04:05.006Z"},
        {951'782'400'000'000'000, "2000-02-29T00:00:00.000Z"},
        {-1, "1969-12-31T23:59:59.999Z"},
        {kLastTime, "2262-04-11T23:47:16.854Z"},
        {kFirstTime, "1677-09-21T00:12:43.145Z"},
    };
    for (const Row& row : rows) EXPECT_EQ(iso8601_text(row.ns), row.text);
}

TEST(ClampedNumbers, StayInTheirType) {
    constexpr std::uint64_t kLargest = std::numeric_limits<std::uint64_t>::max();
    struct Row {
        const char* number;
        std::uint64_t integer;
        float real;
    };
    const std::vector<Row> rows = {
        {"2.9", 2, 2.9f},
        {"-2.9", 0, -2.9f},
        {"9223372036854775808", 9223372036854775808u, 9223372036854775808.0f},
        {"18446744073709551616", kLargest, 18446744073709551616.0f},
        {"18446744073709549568.0", 18446744073709549568u, 18446744073709549568.0f},
        {"1e300", kLargest, 3.40282347e38f},
        {"-1e300", 0, -3.40282347e38f},
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
