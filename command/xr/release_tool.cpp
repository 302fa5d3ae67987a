#include <algorithm>
#include <exception>
#include <stdexcept>

#include "command/bridge/arguments.h"
#include "command/bridge/bridge.h"
#include "command/bridge/results.h"
#include "command/xr/xr_tools.h"

namespace velmoor {
namespace {

std::string shown(const json& release) {
    const std::string axis = release.value("sub_component", "");
    return release.value("hand", "") + " " + release.value("component", "") + (axis.empty() ? "" : " " + axis);
}

std::string joined(const std::vector<std::string>& parts) {
    std::string text;
    for (const std::string& each : parts) text += (text.empty() ? "" : ", ") + each;
    return text;
}

class release {
 public:
    explicit release(tool_run& run) : run_(run) {}

    void let_go(const application& of, const held_inputs::of_process& held) {
        const std::string app = std::to_string(of.pid);
        std::vector<std::string> released;
        for (json each : held.releases) {
            const std::string name = shown(each);
            each["app"] = app;
            // A session has its devices from the user again, whatever was pressed in the one before it.
            const json pose = run_.ask("openxr_get_controller_pose", {{"hand", each["hand"]}, {"app", app}});
            if (pose.is_object() && pose.value("simulated", json()) == false) continue;
            try {
                run_.call("openxr_set_controller_input", each);
                released.push_back(name);
            } catch (const std::exception& e) {
                failures_ += "\n" + name + " of " + label(of) + " is still held: " + e.what();
            }
        }
        if (failures_.empty()) run_.through().held().forget(of.pid);
        if (!released.empty()) said_ += "Released in " + label(of) + ": " + joined(released) + ".\n";
        if (held.posed.empty()) return;
        said_ +=
            "Until the session ends these stay where they were set: " + joined({held.posed.begin(), held.posed.end()}) +
            ".\n";
    }

    json result() const {
        if (!failures_.empty()) return text_result("Error: " + said_ + failures_.substr(1), true);
        return text_result(said_.empty() ? "Nothing is held." : said_.substr(0, said_.size() - 1), false);
    }

 private:
    tool_run& run_;
    std::string said_;
    std::string failures_;
};

json release_all(const json& arguments, tool_run& run) {
    const std::string app = app_name(arguments);
    const auto there = run.through().applications();
    const auto is_meant = [&](const auto& each) { return app.empty() || answers_to(each.who, app); };
    if (!app.empty() && std::none_of(there.begin(), there.end(), is_meant)) {
        throw std::runtime_error("no application answers to \"" + app + "\"; app_list lists them");
    }
    release releasing(run);
    for (const auto& [process, held] : run.through().held().all()) {
        const auto found =
            std::find_if(there.begin(), there.end(), [pid = process](const auto& each) { return each.who.pid == pid; });
        if (found == there.end()) {
            run.through().held().forget(process);
        } else if (is_meant(*found)) {
            releasing.let_go(found->who, held);
        }
    }
    return releasing.result();
}

}  // namespace

own_tool make_release_tool() {
    return {own_declaration("xr_release_all",
                            "Lets go of all buttons, triggers and sticks that were set through this server and are "
                            "not 0.",
                            json::object(), false),
            release_all};
}

}  // namespace velmoor
