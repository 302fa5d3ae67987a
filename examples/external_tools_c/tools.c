#include "tools.h"

#include <stdio.h>
#include <string.h>

#include "velmoor/external_tool.h"

/*
 * Runs at once, on a thread of the layer's server, so it touches nothing of the application's. It hands the
 * arguments back: they come as one JSON text, and its author parses them with whatever JSON library is at hand.
 */
static XrResult XRAPI_CALL describe_layout(char* buffer, uint32_t buffer_capacity, uint32_t* output_size,
                                           const char* arguments_json, void* user_data) {
    (void)user_data;
    int length = snprintf(buffer, buffer_capacity, "{\"received\": %s}", arguments_json);
    *output_size = (uint32_t)length;
    return (uint32_t)length < buffer_capacity ? XR_SUCCESS : XR_ERROR_SIZE_INSUFFICIENT;
}

/* Runs inside xrPollEvent, so it may read what belongs to the thread that polls. */
static XrResult XRAPI_CALL count_events(char* buffer, uint32_t buffer_capacity, uint32_t* output_size,
                                        const char* arguments_json, void* user_data) {
    const Scene* scene = user_data;
    (void)arguments_json;
    int length = snprintf(buffer, buffer_capacity, "{\"events_polled\": %d}", scene->events_polled);
    *output_size = (uint32_t)length;
    return XR_SUCCESS;
}

/* Runs inside xrBeginFrame, and has more to tell than the first buffer holds: it is called again with a larger one. */
static XrResult XRAPI_CALL dump_heights(char* buffer, uint32_t buffer_capacity, uint32_t* output_size,
                                        const char* arguments_json, void* user_data) {
    enum { COUNT = 20000 };
    const Scene* scene = user_data;
    (void)arguments_json;
    char head[64];
    int length = snprintf(head, sizeof head, "{\"frame\": %d, \"heights\": [", scene->frames_begun);
    *output_size = (uint32_t)length + COUNT * 4 - 1 + 2; /* four bytes a number, one comma less, and the brackets */
    if (*output_size >= buffer_capacity) return XR_ERROR_SIZE_INSUFFICIENT;
    char* end = buffer + sprintf(buffer, "%s", head);
    for (int i = 0; i < COUNT; ++i) end += sprintf(end, i + 1 < COUNT ? "%03d," : "%03d", 100 + i % 900);
    strcpy(end, "]}");
    return XR_SUCCESS;
}

static XrOrvanicExternalToolParameterKESTX1 parameter(const char* name, const char* description, int32_t type) {
    XrOrvanicExternalToolParameterKESTX1 result;
    memset(&result, 0, sizeof result);
    result.type = XR_TYPE_ORVANIC_EXTERNAL_TOOL_PARAMETER_KESTX1;
    strncpy(result.name, name, sizeof result.name - 1);
    strncpy(result.description, description, sizeof result.description - 1);
    result.paramType = type;
    return result;
}

static int register_tool(PFN_xrOrvanicRegisterExternalToolKESTX1 register_with_layer, XrInstance instance,
                         const XrOrvanicExternalToolRegisterInfoKESTX1* info) {
    XrResult result = register_with_layer(instance, info);
    if (XR_FAILED(result)) fprintf(stderr, "cannot register %s: %d\n", info->name, (int)result);
    return XR_SUCCEEDED(result);
}

int register_tools(XrInstance instance, Scene* scene) {
    /* Nothing to link: without the layer the function is not there, and the application runs as it is. */
    PFN_xrOrvanicRegisterExternalToolKESTX1 register_with_layer = NULL;
    if (XR_FAILED(xrGetInstanceProcAddr(instance, "xrOrvanicRegisterExternalToolKESTX1",
                                        (PFN_xrVoidFunction*)&register_with_layer))) {
        return 0;
    }
    XrOrvanicExternalToolParameterKESTX1 layout[2];
    layout[0] = parameter("sizes", "Edge lengths in metres.", XR_ORVANIC_EXTERNAL_TOOL_TYPE_ARRAY_KESTX1);
    layout[0].arrayItemType = XR_ORVANIC_EXTERNAL_TOOL_TYPE_NUMBER_KESTX1;
    layout[0].required = XR_TRUE;
    layout[1] = parameter("place", "Where it stands.", XR_ORVANIC_EXTERNAL_TOOL_TYPE_OBJECT_KESTX1);
    strcpy(layout[1].objectProperties, "{\"x\": {\"type\": \"number\"}, \"z\": {\"type\": \"number\"}}");

    XrOrvanicExternalToolRegisterInfoKESTX1 info;
    memset(&info, 0, sizeof info);
    info.type = XR_TYPE_ORVANIC_EXTERNAL_TOOL_REGISTER_INFO_KESTX1;
    info.userData = scene;
    int registered = 0;

    strcpy(info.name, "describe_layout");
    strcpy(info.description, "Hands back the layout that it is given.");
    info.paramsCount = 2;
    info.params = layout;
    info.callback = describe_layout;
    registered += register_tool(register_with_layer, instance, &info);

    info.paramsCount = 0;
    info.params = NULL;
    strcpy(info.name, "count_events");
    strcpy(info.description, "Tells how many events the application has polled.");
    info.callback = count_events;
    info.callbackFlags = XR_ORVANIC_EXTERNAL_TOOL_CALLBACK_ON_POLL_EVENT_BIT_KESTX1;
    registered += register_tool(register_with_layer, instance, &info);

    strcpy(info.name, "dump_heights");
    strcpy(info.description, "Dumps the height map as the frame sees it.");
    info.callback = dump_heights;
    info.callbackFlags = XR_ORVANIC_EXTERNAL_TOOL_CALLBACK_ON_BEGIN_FRAME_BIT_KESTX1;
    registered += register_tool(register_with_layer, instance, &info);
    return registered;
}
