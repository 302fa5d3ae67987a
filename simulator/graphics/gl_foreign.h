// An application's context of OpenGL or OpenGL ES, with whose own the runtime's textures are shared.
#pragma once

#include "simulator/graphics/foreign_images.h"

namespace simulator {

// Of Xlib, XCB or EGL. Of XCB nothing is read: a device is then made beside the context that is current on the thread.
std::unique_ptr<ForeignBinding> CopyGlBinding(const XrBaseInStructure& binding);

}  // namespace simulator
