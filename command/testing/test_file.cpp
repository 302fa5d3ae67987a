#include "command/testing/test_file.h"

#include <yaml-cpp/yaml.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <stdexcept>

namespace velmoor {
namespace {

constexpr std::size_t kMostBytes = std::size_t{4} << 20;
constexpr std::size_t kMostValues = 100'000;  // aliases can stand for more than a file's text
constexpr int kMostDepth = 64;

struct fault : std::runtime_error {
    fault(const YAML::Node& at, const std::string& why) : std::runtime_error(why), line(at.Mark().line + 1) {}
    int line;
};

json scalar_of(const YAML::Node& node) {
    const std::string& text = node.Scalar();
    if (node.Tag() == "!") return text;  // in quotes
    if (text == "true" || text == "false") return text == "true";
    if (text.empty() || text == "~" || text == "null") return nullptr;
    const char* const end = text.data() + text.size();
    std::int64_t whole = 0;
    if (const auto read = std::from_chars(text.data(), end, whole); read.ec == std::errc() && read.ptr == end) {
        return whole;
    }
    double number = 0;
    const bool looks_so = text.find_first_not_of("+-.0123456789eE") == std::string::npos;
    if (const auto read = std::from_chars(text.data(), end, number);
        looks_so && read.ec == std::errc() && read.ptr == end) {
        return number;
    }
    return text;
}

class reader {
 public:
    json value(const YAML::Node& node, int depth = 0) {
        if (++values_ > kMostValues || depth > kMostDepth) throw fault(node, "the file holds too many values");
        if (node.IsNull()) return nullptr;
        if (node.IsScalar()) return scalar_of(node);
        json made = node.IsMap() ? json::object() : json::array();
        if (node.IsMap()) {
            for (const auto& each : node) made[key(each.first)] = value(each.second, depth + 1);
        } else {
            for (const auto& each : node) made.push_back(value(each, depth + 1));
        }
        return made;
    }

    // Calls `take` with each key; it gives false for one that it does not know.
    template <typename Take>
    void members(const YAML::Node& node, const std::string& what, const Take& take) {
        if (!node.IsMap()) throw fault(node, what + " must be a mapping");
        std::set<std::string> seen;
        for (const auto& each : node) {
            const std::string name = key(each.first);
            if (!seen.insert(name).second) throw fault(each.first, "\"" + name + "\" is there twice");
            if (!take(name, each.second))
                throw fault(each.first, std::string(what).append(" knows no \"") + name + "\"");
        }
    }

    std::string text(const YAML::Node& node, const std::string& what) {
        if (!node.IsScalar()) throw fault(node, what + " must be a text");
        return node.Scalar();
    }

    double number(const YAML::Node& node, const std::string& what, double least, double most) {
        const json read = value(node);
        if (!read.is_number() || !(read.get<double>() >= least && read.get<double>() <= most)) {
            std::ostringstream range;
            range << what << " must be a number from " << least << " to " << most;
            throw fault(node, range.str());
        }
        return read.get<double>();
    }

    bool flag(const YAML::Node& node, const std::string& what) {
        const json read = value(node);
        if (!read.is_boolean()) throw fault(node, what + " must be true or false");
        return read.get<bool>();
    }

    json object(const YAML::Node& node, const std::string& what) {
        if (!node.IsMap()) throw fault(node, what + " must be a mapping");
        return value(node);
    }

 private:
    static std::string key(const YAML::Node& node) {
        if (!node.IsScalar()) throw fault(node, "a key must be a text");
        return node.Scalar();
    }

    std::size_t values_ = 0;
};

class test_reader : reader {
 public:
    test_file read(const YAML::Node& document) {
        test_file made;
        members(document, "a test", [&](const std::string& name, const YAML::Node& node) {
            if (name == "name") return made.name = text(node, "name"), true;
            if (name == "application") return application(node, made), true;
            if (name == "pictures") return pictures(node), true;
            if (name != "steps") return false;
            steps_ = node;
            return true;
        });
        if (!steps_ || !steps_.IsSequence() || steps_.size() == 0) {
            throw fault(steps_ ? steps_ : document, "a test must have a list of steps, one at least");
        }
        for (const auto& each : steps_) made.steps.push_back(step(each));
        return made;
    }

 private:
    void application(const YAML::Node& node, test_file& into) {
        members(node, "application", [&](const std::string& name, const YAML::Node& of) {
            if (name == "start_seconds") return into.start_seconds = number(of, name, 0.1, 600), true;
            if (name != "environment") return false;
            members(of, name, [&](const std::string& variable, const YAML::Node& its) {
                return into.environment[variable] = text(its, variable), true;
            });
            return true;
        });
    }

    void pictures(const YAML::Node& node) {
        members(node, "pictures",
                [&](const std::string& name, const YAML::Node& of) { return limit(name, of, usual_); });
    }

    bool limit(const std::string& name, const YAML::Node& node, comparison_limits& into) {
        if (name == "threshold") return into.threshold = number(node, name, 0, 1), true;
        if (name == "share") return into.share = number(node, name, 0, 1), true;
        if (name == "blur") return into.blur = static_cast<int>(number(node, name, 0, 256)), true;
        if (name != "masks") return false;
        const json masks = value(node);
        for (const json& each : masks.is_array() ? masks : json::array({nullptr})) {
            const bool is_area =
                each.is_array() && each.size() == 4 && std::all_of(each.begin(), each.end(), [](const json& edge) {
                    return edge.is_number_integer() && edge >= 0 && edge <= 16384;
                });
            if (!is_area) throw fault(node, "masks must be a list of [left, top, width, height] in pixels");
            into.masks.push_back({each[0], each[1], each[2], each[3]});
        }
        return true;
    }

    test_step step(const YAML::Node& node) {
        static const std::map<std::string, step_kind> kKinds = {{"say", step_kind::say},
                                                                {"call", step_kind::call},
                                                                {"wait", step_kind::wait},
                                                                {"expect", step_kind::expect},
                                                                {"picture", step_kind::picture}};
        test_step made;
        made.line = node.Mark().line + 1;
        made.limits = usual_;
        int kinds = 0;
        if (!node.IsMap()) throw fault(node, "a step must be a mapping with say, call, wait, expect or picture");
        for (const auto& each : node) {
            const auto found = each.first.IsScalar() ? kKinds.find(each.first.Scalar()) : kKinds.end();
            if (found == kKinds.end()) continue;
            made.kind = found->second;
            ++kinds;
        }
        if (kinds != 1) throw fault(node, "a step must have one of say, call, wait, expect and picture");
        members(node, "such a step", [&](const std::string& name, const YAML::Node& of) {
            if (kKinds.contains(name)) return subject(of, name, made), true;
            return member(name, of, made);
        });
        return made;
    }

    void subject(const YAML::Node& node, const std::string& name, test_step& into) {
        if (into.kind == step_kind::wait) {
            into.name = "wait";
            into.arguments = object(node, name);
            if (into.arguments.contains("timeout_seconds")) {
                into.timeout_seconds = number(node["timeout_seconds"], "timeout_seconds", 0, 600);
            }
            return;
        }
        into.name = text(node, name);
        if (into.kind != step_kind::picture) return;
        static const std::regex kName("[A-Za-z0-9_-]{1,80}");
        if (!std::regex_match(into.name, kName)) {
            throw fault(node, "a picture's name must be of letters, digits, - and _, 80 at most");
        }
    }

    bool member(const std::string& name, const YAML::Node& node, test_step& into) {
        const bool asks = into.kind == step_kind::call || into.kind == step_kind::expect;
        if (asks && name == "arguments") return into.arguments = object(node, name), true;
        if (asks && name == "values") {
            members(node, name, [&](const std::string& path, const YAML::Node& of) {
                return into.checks.push_back(check(path, of)), true;
            });
            return true;
        }
        if (into.kind == step_kind::call && name == "fails") return into.shall_fail = flag(node, name), true;
        if (into.kind == step_kind::expect && name == "timeout_seconds") {
            return into.timeout_seconds = number(node, name, 0, 600), true;
        }
        if (into.kind != step_kind::picture) return false;
        if (name != "eye") return limit(name, node, into.limits);
        into.eye = text(node, name);
        if (into.eye != "left" && into.eye != "right") throw fault(node, "eye must be left or right");
        return true;
    }

    value_check check(const std::string& path, const YAML::Node& node) {
        static const std::map<std::string, check_kind> kKinds = {{"equal", check_kind::equal},
                                                                 {"near", check_kind::near},
                                                                 {"contains", check_kind::contains},
                                                                 {"absent", check_kind::absent},
                                                                 {"matches", check_kind::matches}};
        value_check made;
        made.path = path;
        try {
            if (path != "text") static_cast<void>(json::json_pointer(path));
        } catch (const json::exception&) {
            throw fault(node, "\"" + path + "\" must be \"text\" or a path such as /pose/position/1");
        }
        if (!node.IsMap()) return made.expected = value(node), made;
        int kinds = 0;
        members(node, "a comparison", [&](const std::string& name, const YAML::Node& of) {
            if (name == "absolute") return made.absolute = number(of, name, 0, 1e30), true;
            if (name == "relative") return made.relative = number(of, name, 0, 1), true;
            const auto found = kKinds.find(name);
            if (found == kKinds.end()) return false;
            ++kinds;
            made.kind = found->second;
            made.expected = value(of);
            return true;
        });
        if (kinds != 1) throw fault(node, "a comparison must have one of equal, near, contains, absent and matches");
        if (made.kind == check_kind::matches) check_pattern(node, made.expected);
        return made;
    }

    static void check_pattern(const YAML::Node& node, const json& pattern) {
        try {
            if (pattern.is_string() && pattern.get_ref<const std::string&>().size() <= 1000) {
                return static_cast<void>(std::regex(pattern.get<std::string>()));
            }
        } catch (const std::regex_error&) {
            throw fault(node, "matches needs a regular expression");
        }
        throw fault(node, "matches needs a regular expression of at most 1000 characters");
    }

    comparison_limits usual_;
    YAML::Node steps_{YAML::NodeType::Undefined};
};

}  // namespace

test_file parse_test(std::string_view text, const std::string& path) {
    const auto told = [&](int line, const std::string& why) {
        return std::runtime_error(path + ":" + std::to_string(std::max(line, 1)) + ": " + why);
    };
    if (text.size() > kMostBytes) throw told(1, "the file is larger than 4 MiB");
    try {
        test_file made = test_reader().read(YAML::Load(std::string(text)));
        made.path = path;
        if (made.name.empty()) made.name = std::filesystem::path(path).stem();
        return made;
    } catch (const fault& e) {
        throw told(e.line, e.what());
    } catch (const YAML::Exception& e) {
        throw told(e.mark.line + 1, e.msg);
    }
}

test_file read_test(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::string text(kMostBytes + 1, '\0');
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    if (!file.eof() && file.gcount() == 0) throw std::runtime_error(path + ":1: the file can't be read");
    text.resize(static_cast<std::size_t>(file.gcount()));
    return parse_test(text, path);
}

}  // namespace velmoor
