#include "examples/velmoor_agent/transcript.h"

#include <ostream>
#include <sstream>
#include <vector>

namespace agent {
namespace {

constexpr std::size_t kWidth = 100;
constexpr std::size_t kMaxLines = 8;

// What stands before a line is as wide as this.
constexpr const char* kNoSign = "        ";

constexpr const char* kBold = "\033[1m";
constexpr const char* kRed = "\033[31m";
constexpr const char* kGreen = "\033[32m";
constexpr const char* kCyan = "\033[36m";
constexpr const char* kPlain = "\033[0m";

std::string OneLine(const json& value) {
    if (!value.is_structured()) return value.dump(-1, ' ', false, json::error_handler_t::replace);
    std::string text;
    for (const auto& [key, member] : value.items()) {
        if (!text.empty()) text += ", ";
        if (value.is_object()) text += '"' + key + "\": ";
        text += OneLine(member);
    }
    return value.is_object() ? "{" + text + "}" : "[" + text + "]";
}

void Fit(const json& value, std::size_t indent, std::size_t used, std::size_t width, std::string& text) {
    const std::string line = OneLine(value);
    if (!value.is_structured() || value.empty() || used + line.size() <= width) {
        text += line;
        return;
    }
    text += value.is_object() ? "{\n" : "[\n";
    std::size_t left = value.size();
    for (const auto& [key, member] : value.items()) {
        const std::string label = value.is_object() ? '"' + key + "\": " : "";
        text.append(indent + 2, ' ').append(label);
        Fit(member, indent + 2, indent + 2 + label.size(), width, text);
        text += --left > 0 ? ",\n" : "\n";
    }
    text.append(indent, ' ').append(value.is_object() ? "}" : "]");
}

}  // namespace

std::string FitJson(const json& value, std::size_t width) {
    std::string text;
    Fit(value, 0, 0, width, text);
    return text;
}

json ParseAnswer(const ToolAnswer& answer) {
    json value = json::parse(answer.text, nullptr, false);
    return value.is_discarded() ? json(answer.text) : value;
}

void Transcript::Lines(const char* colour, const char* sign, const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    // A remark on what was cut should not take the place of the last line or two.
    const std::size_t shown = lines.size() <= kMaxLines + 2 ? lines.size() : kMaxLines;
    if (shown < lines.size()) lines[shown] = "... (" + std::to_string(lines.size() - shown) + " more lines)";
    const bool coloured = colours_ && *colour;
    for (std::size_t i = 0; i < lines.size() && i <= shown; ++i) {
        out_ << (coloured ? colour : "") << (i == 0 ? sign : kNoSign) << lines[i] << (coloured ? kPlain : "") << "\n";
    }
    out_ << std::flush;
}

void Transcript::Say(const std::string& text) {
    Lines(kBold, "", text);
}

void Transcript::Heading(const std::string& text) {
    out_ << "\n";
    Say(text);
}

void Transcript::Tools(const std::set<std::string>& names) {
    out_ << "The server offers " << names.size() << " tools:";
    std::size_t column = kWidth;
    for (const std::string& name : names) {
        if (column + name.size() + 1 > kWidth) {
            out_ << "\n  ";
            column = 2;
        }
        out_ << " " << name;
        column += name.size() + 1;
    }
    out_ << "\n";
}

void Transcript::Call(const std::string& tool, const json& arguments) {
    Lines(kCyan, "     -> ", tool + " " + FitJson(arguments, kWidth));
}

void Transcript::Answer(const ToolAnswer& answer) {
    const json value = ParseAnswer(answer);
    Lines("", "     <- ", value.is_string() ? value.get<std::string>() : FitJson(value, kWidth));
    for (const std::string& image : answer.images) {
        Lines("", "     <- ", "a picture, " + std::to_string(image.size() * 3 / 4) + " bytes");
    }
}

void Transcript::Remark(const std::string& text) {
    Lines("", kNoSign, text);
}

void Transcript::Failure(const std::string& text) {
    Lines(kRed, kNoSign, "FAILED: " + text);
}

void Transcript::Application(const std::string& line) {
    Lines(kGreen, "    app ", line);
}

}  // namespace agent
