/* The tools of the example: one for each thread that a callback can run on. */
#ifndef EXTERNAL_TOOLS_C_TOOLS_H
#define EXTERNAL_TOOLS_C_TOOLS_H

#include <openxr/openxr.h>

/* What the callbacks may touch on the application's own threads. */
typedef struct Scene {
    int events_polled; /* by the thread that polls events */
    int frames_begun;  /* by the thread that begins frames */
} Scene;

/* Registers the tools with the layer, if it is there. Returns how many are registered. */
int register_tools(XrInstance instance, Scene* scene);

#endif
