#include <velmoor/external_tool.h>
#include <velmoor/invoke_tool.h>

// Without an instance there is no tool, which is an answer like any other.
int main() {
    OrvanicXR_RegisterExternalTool(nullptr, nullptr, 0, nullptr, nullptr, 0, nullptr);
    return OrvanicXR_InvokeTool("no_such_tool", nullptr, 0, nullptr, nullptr, 0, nullptr, nullptr) ==
                   ORVANIC_XR_INVOKE_FAILED
               ? 0
               : 1;
}
