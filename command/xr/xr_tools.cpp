#include "command/xr/xr_tools.h"

namespace velmoor {

std::vector<own_tool> xr_tools(started_application* application) {
    return {make_wait_tool(), make_picture_tool(), make_release_tool(), make_inputs_tool(application)};
}

}  // namespace velmoor
