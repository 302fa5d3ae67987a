#include "command/bridge/held_inputs.h"

#include <algorithm>

namespace velmoor {

void held_inputs::note(pid_t process, const std::string& tool, const json& arguments) {
    if (!arguments.is_object()) return;
    const auto text = [&](const char* name) {
        const json value = arguments.value(name, json());
        return value.is_string() ? value.get<std::string>() : std::string();
    };
    const std::lock_guard lock(mutex_);
    if (tool == "openxr_set_head_pose") processes_[process].posed.insert("head");
    if (tool == "openxr_set_controller_pose") {
        const std::string kind = text("pose_type");
        processes_[process].posed.insert(text("hand") + " " + (kind.empty() ? "grip" : kind));
    }
    if (tool != "openxr_set_controller_input") return;
    json release{{"hand", text("hand")}, {"component", text("component")}, {"value", 0}};
    if (const std::string axis = text("sub_component"); !axis.empty()) release["sub_component"] = axis;
    std::vector<json>& held = processes_[process].releases;
    std::erase(held, release);
    const json value = arguments.value("value", json());
    const bool lets_go_itself = arguments.value("auto_release", json()) == true;
    if (!lets_go_itself && value.is_number() && value.get<double>() != 0) held.push_back(release);
}

std::map<pid_t, held_inputs::of_process> held_inputs::all() const {
    const std::lock_guard lock(mutex_);
    return processes_;
}

void held_inputs::forget(pid_t process) {
    const std::lock_guard lock(mutex_);
    processes_.erase(process);
}

}  // namespace velmoor
