#include "simulator/paths.h"

#include <algorithm>
#include <cstring>

#include "simulator/instance.h"
#include "simulator/runtime.h"

namespace simulator {
namespace {

constexpr std::size_t kMaxPaths = 65536;

bool IsLevelCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '_' || c == '.';
}

}  // namespace

bool IsPathLevel(std::string_view text) {
    return std::all_of(text.begin(), text.end(), IsLevelCharacter) &&
           text.find_first_not_of('.') != std::string_view::npos;
}

bool IsWellFormedPath(std::string_view text) {
    if (text.empty() || text[0] != '/' || text.size() >= XR_MAX_PATH_LENGTH) return false;
    while (!text.empty()) {
        text.remove_prefix(1);
        const std::string_view level = text.substr(0, text.find('/'));
        if (!IsPathLevel(level)) return false;
        text.remove_prefix(level.size());
    }
    return true;
}

XrPath PathTable::Intern(std::string_view text) {
    if (const auto known = by_text_.find(text); known != by_text_.end()) return known->second;
    if (by_path_.size() >= kMaxPaths) return XR_NULL_PATH;
    const XrPath path = by_path_.size() + 1;
    const auto added = by_text_.emplace(text, path).first;
    by_path_.push_back(&added->first);
    return path;
}

const std::string* PathTable::TextOf(XrPath path) const {
    return path != XR_NULL_PATH && path <= by_path_.size() ? by_path_[path - 1] : nullptr;
}

XrResult StringToPath(XrInstance instance, const char* text, XrPath* path) {
    return Guarded([&](Runtime& runtime) {
        Instance& owner = *runtime.Get(instance);
        Require(text && path);
        const std::string_view view(text, strnlen(text, XR_MAX_PATH_LENGTH));
        if (!IsWellFormedPath(view)) Refuse(XR_ERROR_PATH_FORMAT_INVALID);
        *path = owner.paths.Intern(view);
        return *path == XR_NULL_PATH ? XR_ERROR_PATH_COUNT_EXCEEDED : XR_SUCCESS;
    });
}

XrResult PathToString(XrInstance instance, XrPath path, std::uint32_t capacity, std::uint32_t* count, char* buffer) {
    return Guarded([&](Runtime& runtime) {
        const Instance& owner = *runtime.Get(instance);
        return WriteText(owner.PathText(path), capacity, count, buffer);
    });
}

}  // namespace simulator
