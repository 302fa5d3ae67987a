#pragma once

#include <cstdint>
#include <string>

namespace orvanic_xr {

constexpr const char* kDateAndTime = "%Y-%m-%d %H:%M:%S";

// `system_ns` (nanoseconds since 1970) as local time. `format` is strftime's, digits and punctuation only,
// since names of days and months would follow the host's locale; at most 63 characters come out.
std::string LocalTimeText(std::int64_t system_ns, const char* format);

// The time that heads every log line, by the clock: grey on a console, with a blank behind it. Kept for the
// length of a second in each thread, since a busy server logs thousands of lines in one.
void AppendLogTime(std::string& line);

}  // namespace orvanic_xr
