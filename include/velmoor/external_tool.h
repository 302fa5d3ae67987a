/*
 * Tools of your own: an agent that is connected to the layer sees them beside the layer's built-in ones and
 * cannot tell them apart. Describe a tool in a record, hand over a callback, and the layer does the rest.
 *
 * Two ways lead to the same place. With the OpenXR extension, and nothing to link:
 *
 *     // Enable XR_KESTX1_orvanic_external_tool when xrEnumerateInstanceExtensionProperties lists it. Then:
 *     static XrResult XRAPI_CALL ReadScore(char* buffer, uint32_t bufferCapacity, uint32_t* outputSize,
 *                                          const char* argumentsJson, void* userData) {
 *         const struct Game* game = userData;
 *         (void)argumentsJson;
 *         int length = snprintf(buffer, bufferCapacity, "{\"score\": %d}", game->score);
 *         *outputSize = (uint32_t)length;
 *         return (uint32_t)length < bufferCapacity ? XR_SUCCESS : XR_ERROR_SIZE_INSUFFICIENT;
 *     }
 *
 *     PFN_xrOrvanicRegisterExternalToolKESTX1 registerTool = NULL;
 *     xrGetInstanceProcAddr(instance, "xrOrvanicRegisterExternalToolKESTX1", (PFN_xrVoidFunction*)&registerTool);
 *     XrOrvanicExternalToolRegisterInfoKESTX1 info = {XR_TYPE_ORVANIC_EXTERNAL_TOOL_REGISTER_INFO_KESTX1};
 *     strcpy(info.name, "read_score");
 *     strcpy(info.description, "Tells the player's score.");
 *     info.callback = ReadScore;
 *     info.callbackFlags = XR_ORVANIC_EXTERNAL_TOOL_CALLBACK_ON_BEGIN_FRAME_BIT_KESTX1;
 *     info.userData = &game;
 *     XrResult result = registerTool ? registerTool(instance, &info) : XR_ERROR_FUNCTION_UNSUPPORTED;
 *
 * Or with the exported function OrvanicXR_RegisterExternalTool, for hosts that only have plain strings; a
 * program that must also run without the layer fetches it by dlsym, as told in velmoor/invoke_tool.h.
 *
 * Registration is open at any time after xrCreateInstance, from any thread. A tool lives as long as the
 * instance: there is no unregistration. Registering a name again replaces the tool that agents see.
 */
#ifndef VELMOOR_EXTERNAL_TOOL_H
#define VELMOOR_EXTERNAL_TOOL_H

#include <openxr/openxr.h>
#include <stdint.h>

#include "velmoor/api.h"

#ifdef __cplusplus
extern "C" {
#endif

#define XR_KESTX1_ORVANIC_EXTERNAL_TOOL_EXTENSION_NAME "XR_KESTX1_orvanic_external_tool"

#define XR_TYPE_ORVANIC_EXTERNAL_TOOL_PARAMETER_KESTX1 ((XrStructureType)1000679000)
#define XR_TYPE_ORVANIC_EXTERNAL_TOOL_REGISTER_INFO_KESTX1 ((XrStructureType)1000679001)

/* Sizes of the texts below, terminator included. */
#define XR_ORVANIC_EXTERNAL_TOOL_NAME_SIZE_KESTX1 64
#define XR_ORVANIC_EXTERNAL_TOOL_DESCRIPTION_SIZE_KESTX1 1024
#define XR_ORVANIC_EXTERNAL_TOOL_PROPERTIES_SIZE_KESTX1 4096

/* Kinds of parameters, and of an array's items. */
#define XR_ORVANIC_EXTERNAL_TOOL_TYPE_STRING_KESTX1 1
#define XR_ORVANIC_EXTERNAL_TOOL_TYPE_NUMBER_KESTX1 2
#define XR_ORVANIC_EXTERNAL_TOOL_TYPE_BOOLEAN_KESTX1 3
#define XR_ORVANIC_EXTERNAL_TOOL_TYPE_ARRAY_KESTX1 4
#define XR_ORVANIC_EXTERNAL_TOOL_TYPE_OBJECT_KESTX1 5

/*
 * When the callback may run. With neither bit it runs at once, on a thread of the server (or on the caller of
 * OrvanicXR_InvokeTool), beside whatever the application does.
 */
#define XR_ORVANIC_EXTERNAL_TOOL_CALLBACK_ON_POLL_EVENT_BIT_KESTX1 0x1u  /* inside the application's xrPollEvent */
#define XR_ORVANIC_EXTERNAL_TOOL_CALLBACK_ON_BEGIN_FRAME_BIT_KESTX1 0x2u /* inside the application's xrBeginFrame */

/*
 * The application's function behind a tool. Writes its result into `buffer` as NUL-terminated UTF-8 and the
 * result's length, terminator not counted, into `outputSize`.
 *
 *   buffer          bufferCapacity bytes, all zero at the first call: 65536 of them.
 *   outputSize      never null; 0 at the call.
 *   argumentsJson   what the agent gave, as one compact JSON text; valid during the call. An agent that gives
 *                   no arguments at all sends "[]".
 *   userData        as registered.
 *
 * The result is best a JSON text. An object {"type": "text", "text": "..."}, or an array of such objects, reaches
 * the agent as its content; any other JSON reaches it as text; a text that is no JSON reaches it as it is.
 *
 * Returns:
 *   XR_SUCCESS                  the result stands in `buffer`.
 *   XR_ERROR_SIZE_INSUFFICIENT  the result is longer: `outputSize` holds its length. The callback is called once
 *                               more, with a buffer of outputSize + 1 bytes (268435456 bytes, 256 MiB, at the
 *                               most; more counts as failed).
 *   anything else               failed. The agent of an immediate callback is told the number; with one of the
 *                               flags it gets what the buffer holds, so write there what went wrong.
 *
 * A callback with flags is waited for 5 seconds; an application that stopped calling OpenXR then has the agent
 * told that it timed out, and the callback may still run within the next second, its result thrown away. The
 * frame and all other waiting tools stand still while it runs, so it must return quickly. It must not call a
 * tool with flags itself. A C++ exception out of it is caught and told to the agent.
 */
typedef XrResult(XRAPI_PTR* PFN_xrOrvanicExternalToolCallbackKESTX1)(char* buffer, uint32_t bufferCapacity,
                                                                     uint32_t* outputSize, const char* argumentsJson,
                                                                     void* userData);

/* One parameter of a tool; an array of these is copied at registration. 5216 bytes. */
typedef struct XrOrvanicExternalToolParameterKESTX1 {
    XrStructureType type;                                 /* XR_TYPE_ORVANIC_EXTERNAL_TOOL_PARAMETER_KESTX1 */
    const void* next;                                     /* null */
    char name[XR_ORVANIC_EXTERNAL_TOOL_NAME_SIZE_KESTX1]; /* 1 to 63 bytes and a terminator */
    char description[XR_ORVANIC_EXTERNAL_TOOL_DESCRIPTION_SIZE_KESTX1]; /* 1 to 1023 bytes and a terminator */
    int32_t paramType;     /* one of the XR_ORVANIC_EXTERNAL_TOOL_TYPE values */
    XrBool32 required;     /* anything but 0: an agent has to give it */
    int32_t arrayItemType; /* of an array: the kind of its items; else ignored */
    /* Of an object: the JSON schema of its properties, as {"x": {"type": "number"}}; else ignored. */
    char objectProperties[XR_ORVANIC_EXTERNAL_TOOL_PROPERTIES_SIZE_KESTX1]; /* 1 to 4095 bytes and a terminator */
} XrOrvanicExternalToolParameterKESTX1;

/* A tool. Copied at registration, but for the callback and userData, which must stay valid until the instance is
 * destroyed. 1144 bytes. */
typedef struct XrOrvanicExternalToolRegisterInfoKESTX1 {
    XrStructureType type;                                 /* XR_TYPE_ORVANIC_EXTERNAL_TOOL_REGISTER_INFO_KESTX1 */
    const void* next;                                     /* null */
    char name[XR_ORVANIC_EXTERNAL_TOOL_NAME_SIZE_KESTX1]; /* 1 to 63 bytes and a terminator */
    char description[XR_ORVANIC_EXTERNAL_TOOL_DESCRIPTION_SIZE_KESTX1]; /* 1 to 1023 bytes and a terminator */
    uint32_t paramsCount;
    const XrOrvanicExternalToolParameterKESTX1* params; /* paramsCount records; may be null if that is 0 */
    PFN_xrOrvanicExternalToolCallbackKESTX1 callback;   /* not null */
    XrFlags64 callbackFlags; /* XR_ORVANIC_EXTERNAL_TOOL_CALLBACK bits; only the low 32 bits count */
    void* userData;          /* handed back to the callback; may be null */
} XrOrvanicExternalToolRegisterInfoKESTX1;

/*
 * xrOrvanicRegisterExternalToolKESTX1, by xrGetInstanceProcAddr. Any thread. Nothing is registered unless it
 * returns XR_SUCCESS; the log tells what was wrong.
 *
 *   XR_SUCCESS
 *   XR_ERROR_HANDLE_INVALID      `instance` is null or not the one the layer serves
 *   XR_ERROR_VALIDATION_FAILURE  the record or one of its parameters breaks a rule told above
 *   XR_ERROR_RUNTIME_FAILURE     the instance has no tool registry, or the layer failed
 */
typedef XrResult(XRAPI_PTR* PFN_xrOrvanicRegisterExternalToolKESTX1)(
    XrInstance instance, const XrOrvanicExternalToolRegisterInfoKESTX1* registerInfo);

/*
 * The same for the instance that the layer serves, from plain strings of at most 63 and 1023 bytes. Returns
 * nothing: the outcome shows only in the log. Any thread.
 */
VELMOOR_API void OrvanicXR_RegisterExternalTool(const char* name, const char* description, uint32_t paramsCount,
                                                const XrOrvanicExternalToolParameterKESTX1* params,
                                                PFN_xrOrvanicExternalToolCallbackKESTX1 callback,
                                                uint64_t callbackFlags, void* userData);

typedef void (*PFN_OrvanicXR_RegisterExternalTool)(const char* name, const char* description, uint32_t paramsCount,
                                                   const XrOrvanicExternalToolParameterKESTX1* params,
                                                   PFN_xrOrvanicExternalToolCallbackKESTX1 callback,
                                                   uint64_t callbackFlags, void* userData);

#ifdef __cplusplus
}
#endif

#endif /* VELMOOR_EXTERNAL_TOOL_H */
