#include "examples/velmoor_agent/transcript.h"

#include <ostream>
#include <sstream>
#include <vector>

namespace agent {
namespace {

constexpr std::size_t kWidth = 100;
constexpr std::size_t kMaxLines = 16;

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

// `text` line by line, the first led in by an arrow, the others by blanks of its width.
void PrintLines(std::ostream& out, const char* arrow, const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    // A remark on what was cut should not take the place of the last line or two.
    const std::size_t shown = lines.size() <= kMaxLines + 2 ? lines.size() : kMaxLines;
    for (std::size_t i = 0; i < shown; ++i) out << (i == 0 ? arrow : "      ") << lines[i] << "\n";
    if (shown < lines.size()) out << "      ... (" << lines.size() - shown << " more lines)\n";
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

void PrintTools(std::ostream& out, const std::set<std::string>& names) {
    out << "The server offers " << names.size() << " tools:";
    std::size_t column = kWidth;
    for (const std::string& name : names) {
        if (column + name.size() + 1 > kWidth) {
            out << "\n  ";
            column = 2;
        }
        out << " " << name;
        column += name.size() + 1;
    }
    out << "\n";
}

void PrintCall(std::ostream& out, const std::string& tool, const json& arguments) {
    PrintLines(out, "   -> ", tool + " " + FitJson(arguments, kWidth));
}

void PrintAnswer(std::ostream& out, const ToolAnswer& answer) {
    const json value = ParseAnswer(answer);
    PrintLines(out, "   <- ", value.is_string() ? value.get<std::string>() : FitJson(value, kWidth));
    for (const std::string& image : answer.images) {
        out << "   <- a picture, " << image.size() * 3 / 4 << " bytes\n";
    }
}

}  // namespace agent
