/* The public header, as a C program sees it. */
#include "velmoor/invoke_tool.h"

int32_t invoke_tool_from_c(PFN_OrvanicXR_InvokeTool invoke, char* result, uint32_t capacity) {
    return invoke("echo", "{\"from\":\"C\"}", capacity, 0, result, 0, 0, 0);
}
