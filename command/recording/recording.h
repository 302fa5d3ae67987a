// A recorded session as it lies in a directory: session.jsonl, a header and then one line a call, and pictures/.
//
// Pure but for read_recording, which reads the file.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "mcp/json.h"

namespace velmoor {

using mcp::json;

inline constexpr const char* kRecordingFile = "session.jsonl";
inline constexpr const char* kPicturesDirectory = "pictures";
inline constexpr int kRecordingFormat = 1;

struct recorded_call {
    double seconds = 0;  // from the recording's begin to the call's
    double took = 0;     // seconds
    std::string tool;
    json arguments;  // an object
    json result;     // `content`, in which a picture has the name of its file; or `error`
    bool is_error = false;
};

struct recording {
    json header;
    json about;  // the application and its system; null if none was asked
    std::vector<recorded_call> calls;
    std::vector<std::string> notes;  // what was passed over and why, with file and line
};

// Throws std::runtime_error, with `name` and a line in its text, if it is no recording. A cut last line is passed over,
// and a note tells of it.
recording parse_recording(std::string_view text, const std::string& name);
recording read_recording(const std::string& directory);

// For people: a line for the header and one or more for each call.
std::string shown_recording(const recording& what);

// The texts of a result, one after the other.
std::string texts_in(const json& result);

}  // namespace velmoor
