/*
 * A small headless OpenXR application in C that offers tools of its own to agents.
 *
 *     external_tools_c [SECONDS]      runs for so long, or until its session is asked to end
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "tools.h"

static const char* const kExternalTools = "XR_KESTX1_orvanic_external_tool";

static XrResult check(XrResult result, const char* what) {
    if (XR_FAILED(result)) {
        fprintf(stderr, "%s failed: %d\n", what, (int)result);
        exit(1);
    }
    return result;
}

static int is_offered(const char* extension) {
    static XrExtensionProperties properties[256];
    uint32_t count = sizeof properties / sizeof properties[0];
    for (uint32_t i = 0; i < count; ++i) properties[i].type = XR_TYPE_EXTENSION_PROPERTIES;
    if (XR_FAILED(xrEnumerateInstanceExtensionProperties(NULL, count, &count, properties))) return 0;
    for (uint32_t i = 0; i < count; ++i) {
        if (strcmp(properties[i].extensionName, extension) == 0) return 1;
    }
    return 0;
}

static XrInstance create_instance(void) {
    const char* extensions[2] = {"XR_MND_headless", kExternalTools};
    XrInstanceCreateInfo info = {.type = XR_TYPE_INSTANCE_CREATE_INFO};
    strcpy(info.applicationInfo.applicationName, "external_tools_c");
    info.applicationInfo.apiVersion = XR_MAKE_VERSION(1, 0, 0);
    info.enabledExtensionCount = is_offered(kExternalTools) ? 2 : 1;
    info.enabledExtensionNames = extensions;
    XrInstance instance = XR_NULL_HANDLE;
    check(xrCreateInstance(&info, &instance), "xrCreateInstance");
    return instance;
}

static XrSession create_session(XrInstance instance) {
    XrSystemGetInfo system = {.type = XR_TYPE_SYSTEM_GET_INFO};
    system.formFactor = XR_FORM_FACTOR_HEAD_MOUNTED_DISPLAY;
    XrSessionCreateInfo info = {.type = XR_TYPE_SESSION_CREATE_INFO};
    check(xrGetSystem(instance, &system, &info.systemId), "xrGetSystem");
    XrSession session = XR_NULL_HANDLE;
    check(xrCreateSession(instance, &info, &session), "xrCreateSession");
    return session;
}

/* Takes events up to the next that changes the session's state, and gives the state after it. */
static XrSessionState poll_events(XrInstance instance, XrSessionState state, Scene* scene) {
    for (;;) {
        XrEventDataBuffer event = {.type = XR_TYPE_EVENT_DATA_BUFFER};
        if (check(xrPollEvent(instance, &event), "xrPollEvent") == XR_EVENT_UNAVAILABLE) return state;
        ++scene->events_polled;
        if (event.type == XR_TYPE_EVENT_DATA_SESSION_STATE_CHANGED) {
            return ((const XrEventDataSessionStateChanged*)(const void*)&event)->state;
        }
    }
}

static void run_frame(XrSession session, Scene* scene) {
    XrFrameState frame = {.type = XR_TYPE_FRAME_STATE};
    check(xrWaitFrame(session, NULL, &frame), "xrWaitFrame");
    ++scene->frames_begun;
    check(xrBeginFrame(session, NULL), "xrBeginFrame");
    XrFrameEndInfo end = {.type = XR_TYPE_FRAME_END_INFO};
    end.displayTime = frame.predictedDisplayTime;
    end.environmentBlendMode = XR_ENVIRONMENT_BLEND_MODE_OPAQUE;
    check(xrEndFrame(session, &end), "xrEndFrame");
}

int main(int argc, char** argv) {
    const time_t end = time(NULL) + (argc > 1 ? atoi(argv[1]) : 3600);
    Scene scene = {0, 0};
    XrInstance instance = create_instance();
    printf("%d tools are offered to agents\n", register_tools(instance, &scene));
    fflush(stdout);
    XrSession session = create_session(instance);
    XrSessionState state = XR_SESSION_STATE_IDLE;
    int running = 0;
    while (state != XR_SESSION_STATE_EXITING && state != XR_SESSION_STATE_LOSS_PENDING) {
        const XrSessionState before = state;
        state = poll_events(instance, state, &scene);
        if (state == XR_SESSION_STATE_READY && !running) {
            XrSessionBeginInfo begin = {.type = XR_TYPE_SESSION_BEGIN_INFO};
            begin.primaryViewConfigurationType = XR_VIEW_CONFIGURATION_TYPE_PRIMARY_STEREO;
            check(xrBeginSession(session, &begin), "xrBeginSession");
            running = 1;
        } else if (state == XR_SESSION_STATE_STOPPING && before != state) {
            check(xrEndSession(session), "xrEndSession");
            running = 0;
        } else if (running) {
            run_frame(session, &scene);
        }
        if (running && time(NULL) >= end) xrRequestExitSession(session);
    }
    xrDestroySession(session);
    xrDestroyInstance(instance);
    return 0;
}
