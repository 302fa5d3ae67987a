#include "command/recording/left_out.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <regex>

namespace velmoor {
namespace {

constexpr std::array<std::string_view, 31> kFleeting = {
    "time", "times", "timestamp", "date", "clock",   "duration", "period", "elapsed", "took",    "begun",  "ended",
    "ago",  "ms",    "us",        "ns",   "seconds", "frame",    "frames", "fps",     "changes", "handle", "hex",
    "id",   "ids",   "uuid",      "guid", "pid",     "process",  "port",   "version", "versions"};
// What the library's matching takes without recursing too deep.
constexpr std::size_t kMostMatched = 200;

bool is_upper(char each) {
    return std::isupper(static_cast<unsigned char>(each)) != 0;
}

}  // namespace

bool is_named_as_fleeting(std::string_view key) {
    std::string word;
    const auto is_fleeting = [&] { return std::find(kFleeting.begin(), kFleeting.end(), word) != kFleeting.end(); };
    for (std::size_t i = 0; i < key.size(); ++i) {
        const char each = key[i];
        const bool is_hump = i > 0 && is_upper(each) && !is_upper(key[i - 1]);
        const bool is_letter = std::isalpha(static_cast<unsigned char>(each)) != 0;
        if (is_hump || !is_letter) {
            if (is_fleeting()) return true;
            word.clear();
        }
        if (is_letter) word += static_cast<char>(std::tolower(static_cast<unsigned char>(each)));
    }
    return is_fleeting();
}

bool looks_fleeting(const json& value) {
    if (!value.is_string() || value.get_ref<const std::string&>().size() > kMostMatched) return false;
    static const std::regex kLooks("0x[0-9a-fA-F]{4,}|[0-9]{4}-[0-9]{2}-[0-9]{2}([T ][0-9:.]+.*)?");
    return std::regex_match(value.get_ref<const std::string&>(), kLooks);
}

}  // namespace velmoor
