#include "command/xr/xr_tools.h"

#include "command/xr/picture_memory.h"

namespace velmoor {

std::vector<own_tool> xr_tools(started_application* application) {
    const auto memory = std::make_shared<picture_memory>();
    return {make_wait_tool(),       make_picture_tool(memory),     make_move_tool(),
            make_look_tool(memory), make_point_tool(memory),       make_act_tool(),
            make_release_tool(),    make_inputs_tool(application), make_exit_tool(application)};
}

}  // namespace velmoor
