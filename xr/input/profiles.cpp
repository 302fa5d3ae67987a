#include "xr/input/profiles.h"

#include <algorithm>
#include <iterator>

#include "xr/input/profile_table.h"

namespace xr_input {
namespace {

bool EndsWithLevel(std::string_view path, std::string_view level) {
    return path.size() > level.size() && path.substr(path.size() - level.size()) == level &&
           path[path.size() - level.size() - 1] == '/';
}

bool EndsWithOneOf(std::string_view path, std::initializer_list<std::string_view> levels) {
    return std::any_of(levels.begin(), levels.end(),
                       [&](std::string_view level) { return EndsWithLevel(path, level); });
}

// The words of a text with `separator` between them.
template <class Take>
void ForEachWord(std::string_view text, char separator, Take take) {
    while (!text.empty()) {
        const std::size_t end = std::min(text.find(separator), text.size());
        if (end > 0) take(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
}

// One word of a row, as told there.
void AddSources(std::string_view word, TopLevels tops, std::vector<Source>& sources) {
    const XrVersion since = word[0] == '+' ? kVersion11 : kVersion10;
    if (word[0] == '+') word.remove_prefix(1);
    const std::string path = (word.starts_with("output/") ? "" : "input/") + std::string(word);
    const std::size_t components = path.rfind('/') + 1;
    ForEachWord(std::string_view(path).substr(components), ',', [&](std::string_view component) {
        sources.push_back({path.substr(0, components) + std::string(component), tops, since});
    });
    if (TypeOf(path) != SourceType::kVector2) return;
    for (const char* axis : {"/x", "/y"}) sources.push_back({path + axis, tops, since});
}

Profile SpeltOut(const ProfileRow& row) {
    Profile profile = {"/interaction_profiles/" + std::string(row.path), row.name, row.since, row.extension, {}};
    const struct {
        std::string_view words;
        TopLevels tops;
    } places[] = {{row.sources.left, kLeft},
                  {row.sources.right, kRight},
                  {row.sources.both, kBoth},
                  {row.sources.head, BitOf(TopLevel::kHead)},
                  {row.sources.gamepad, BitOf(TopLevel::kGamepad)}};
    for (const auto& place : places) {
        ForEachWord(place.words, ' ', [&](std::string_view word) { AddSources(word, place.tops, profile.sources); });
    }
    if (!row.sources.both.empty()) {
        for (const char* pose : {"grip/pose", "aim/pose", "+grip_surface/pose"}) {
            AddSources(pose, kBoth, profile.sources);
        }
    }
    return profile;
}

const std::vector<Profile>& AllProfiles() {
    // Never destroyed: threads that nobody joined may still call while the process exits.
    static const auto& profiles = *[] {
        auto* const made = new std::vector<Profile>;
        std::transform(std::begin(kProfileRows), std::end(kProfileRows), std::back_inserter(*made), SpeltOut);
        return made;
    }();
    return profiles;
}

}  // namespace

bool Profile::IsOfferedBy(const Offer& offer) const {
    return offer.api_version >= since || (extension && offer.extensions.contains(extension));
}

bool Profile::Has(TopLevel top) const {
    return std::any_of(sources.begin(), sources.end(), [&](const Source& source) { return source.tops & BitOf(top); });
}

std::optional<std::size_t> Profile::Find(TopLevel top, std::string_view wanted) const {
    for (std::size_t i = 0; i < sources.size(); ++i) {
        if (sources[i].path == wanted && (sources[i].tops & BitOf(top))) return i;
    }
    return std::nullopt;
}

const Profile* FindProfile(std::string_view path) {
    const auto& profiles = AllProfiles();
    const auto found = std::ranges::find(profiles, path, &Profile::path);
    return found == profiles.end() ? nullptr : &*found;
}

SourceType TypeOf(std::string_view source_path) {
    if (source_path.substr(0, 7) == "output/") return SourceType::kHaptic;
    if (EndsWithLevel(source_path, "pose")) return SourceType::kPose;
    if (EndsWithOneOf(source_path, {"click", "touch", "proximity"})) return SourceType::kBoolean;
    if (EndsWithOneOf(source_path, {"thumbstick", "trackpad", "thumbstick_left", "thumbstick_right"})) {
        return SourceType::kVector2;
    }
    return SourceType::kFloat;
}

}  // namespace xr_input
