/*
 * Calling a tool from inside the process, with no network.
 *
 * The OpenXR loader opens the layer with local symbols, so a program asks for the function through a handle of
 * its own, once it has its XrInstance; both are null in a process without the layer:
 *
 *     void* layer = dlopen("libXrApiLayer_KESTX_velmoor.so", RTLD_NOW | RTLD_NOLOAD);
 *     PFN_OrvanicXR_InvokeTool invoke =
 *         layer ? (PFN_OrvanicXR_InvokeTool)dlsym(layer, "OrvanicXR_InvokeTool") : NULL;
 */
#ifndef VELMOOR_INVOKE_TOOL_H
#define VELMOOR_INVOKE_TOOL_H

#include <stdint.h>

#include "velmoor/api.h"

#ifdef __cplusplus
extern "C" {
#endif

/* What OrvanicXR_InvokeTool returns. */
enum {
    /* The tool ran. That it refused its arguments shows in its answer, not here. */
    ORVANIC_XR_INVOKE_SUCCESS = 0,
    /* toolName is null, or paramsJson is no JSON, is nested deeper than 256 levels, has an object of
       more than 4096 members or more than 200000 values. Nothing ran. */
    ORVANIC_XR_INVOKE_INVALID_ARGUMENT = -1,
    /* No such tool, the tool threw, or its answer could not be written as JSON. */
    ORVANIC_XR_INVOKE_FAILED = -2,
    /* A buffer was given and is too small for its text. Takes the place of any other code. */
    ORVANIC_XR_INVOKE_SIZE_INSUFFICIENT = -11
};

/*
 * Runs the tool `toolName` on the calling thread and writes two texts, both NUL-terminated UTF-8: the tool's
 * answer, a compact JSON array of content items such as [{"type":"text","text":"..."}], and the error. On
 * success the error is empty; on every failure the answer is.
 *
 *   toolName            NUL-terminated; required.
 *   paramsJson          The arguments as NUL-terminated JSON. Null or "" stands for {}.
 *   resultCapacityInput Size of resultBuffer in bytes. With 0 only the size is told.
 *   resultCountOutput   Receives the size of the answer, terminator included, whether or not it fits. May be null.
 *   resultBuffer        Receives the answer. May be null: then nothing is copied, and that is no error.
 *   errorCapacityInput, errorCountOutput, errorBuffer
 *                       The same for the error. An empty text has size 1.
 *
 * A text that does not fit is not copied at all. Each call runs the tool, one that only asks for sizes
 * included, so for a tool that changes something pass a large buffer at once.
 *
 * Any thread, at any time. A tool that moves something smoothly returns when enough frames have passed: on the
 * thread that runs the frame loop it waits for frames that cannot come, until it gives up. Throws nothing. If
 * something failed in the layer itself (-2, and a line in the log) nothing may have been written.
 */
VELMOOR_API int32_t OrvanicXR_InvokeTool(const char* toolName, const char* paramsJson, uint32_t resultCapacityInput,
                                         uint32_t* resultCountOutput, char* resultBuffer, uint32_t errorCapacityInput,
                                         uint32_t* errorCountOutput, char* errorBuffer);

typedef int32_t (*PFN_OrvanicXR_InvokeTool)(const char* toolName, const char* paramsJson, uint32_t resultCapacityInput,
                                            uint32_t* resultCountOutput, char* resultBuffer,
                                            uint32_t errorCapacityInput, uint32_t* errorCountOutput, char* errorBuffer);

#ifdef __cplusplus
}
#endif

#endif /* VELMOOR_INVOKE_TOOL_H */
