#include "command/recording/recording.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace velmoor {
namespace {

constexpr std::size_t kShownText = 160;

json member(const json& of, const char* name, json::value_t type) {
    const json value = of.value(name, json());
    const bool fits = value.type() == type || (type == json::value_t::number_float && value.is_number());
    if (!fits) throw std::runtime_error(std::string("\"") + name + "\" is missing or of another type");
    return value;
}

recorded_call call_of(const json& line) {
    recorded_call call;
    call.seconds = member(line, "time", json::value_t::number_float);
    call.took = member(line, "took", json::value_t::number_float);
    call.tool = member(line, "tool", json::value_t::string);
    call.arguments = member(line, "arguments", json::value_t::object);
    call.result = member(line, "result", json::value_t::object);
    call.is_error = member(line, "isError", json::value_t::boolean);
    return call;
}

void take_line(const json& line, recording& into) {
    if (!line.is_object()) throw std::runtime_error("no JSON object");
    if (into.header.is_null()) {
        if (line.value("velmoor_recording", json()) != kRecordingFormat) {
            throw std::runtime_error("no header of a recording of format " + std::to_string(kRecordingFormat));
        }
        into.header = line;
    } else if (line.contains("about")) {
        if (into.about.is_null()) into.about = json::object();
        into.about.update(member(line, "about", json::value_t::object));
    } else if (line.contains("limit")) {
        into.notes.push_back("the recording reached its limit, and ends there");
    } else {
        into.calls.push_back(call_of(line));
    }
}

std::string shortened(std::string text) {
    for (char& each : text) each = static_cast<unsigned char>(each) < 0x20 ? ' ' : each;
    if (text.size() > kShownText) {
        std::size_t end = kShownText;
        while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;  // not within a character
        text = text.substr(0, end) + "...";
    }
    return text;
}

std::string told(const char* format, double first, double second) {
    char text[64];
    std::snprintf(text, sizeof text, format, first, second);
    return text;
}

}  // namespace

recording parse_recording(std::string_view text, const std::string& name) {
    recording read;
    std::size_t number = 0;
    while (!text.empty()) {
        ++number;
        const std::string where = name + ":" + std::to_string(number) + ": ";
        const std::size_t end = text.find('\n');
        const std::string_view line = text.substr(0, end);
        if (end == std::string_view::npos && !read.header.is_null()) {
            read.notes.push_back(where + "the last line is cut, and passed over");
            break;
        }
        try {
            take_line(mcp::parse_json(line), read);
        } catch (const std::exception& e) {
            throw std::runtime_error(where + e.what());
        }
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
    if (read.header.is_null()) throw std::runtime_error(name + ":1: the file is empty");
    return read;
}

recording read_recording(const std::string& directory) {
    const std::string name = std::filesystem::path(directory) / kRecordingFile;
    const std::ifstream file(name, std::ios::binary);
    std::ostringstream text;
    if (file) text << file.rdbuf();
    if (!file) throw std::runtime_error(name + ": can't be read");
    return parse_recording(text.str(), name);
}

std::string texts_in(const json& result) {
    std::string text;
    const json content = result.is_object() ? result.value("content", json()) : json();
    for (const json& each : content.is_array() ? content : json::array()) {
        const json part = each.is_object() ? each.value("text", json()) : json();
        if (part.is_string()) text += (text.empty() ? "" : "\n") + part.get<std::string>();
    }
    return text;
}

std::string shown_recording(const recording& what) {
    std::string text = mcp::dump_json(what.header) + "\n";
    if (!what.about.is_null()) text += mcp::dump_json(what.about) + "\n";
    for (const recorded_call& each : what.calls) {
        text += told("%9.3f s  %7.1f ms  ", each.seconds, each.took * 1000) + each.tool + " " +
                shortened(mcp::dump_json(each.arguments)) + "\n";
        const std::string answer = texts_in(each.result);
        text += each.is_error ? "    failed: " : "    ";
        text +=
            shortened(answer.empty() && each.result.contains("error") ? mcp::dump_json(each.result["error"]) : answer) +
            "\n";
        const json content = each.result.value("content", json());
        for (const json& item : content.is_array() ? content : json::array()) {
            if (!item.is_object()) continue;
            const json file = item.value("file", json());
            if (file.is_string()) text += "    picture " + file.get<std::string>() + "\n";
        }
    }
    for (const std::string& each : what.notes) text += "note: " + each + "\n";
    return text;
}

}  // namespace velmoor
