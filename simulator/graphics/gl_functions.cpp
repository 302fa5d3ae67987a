#include "simulator/graphics/gl_functions.h"

#include "simulator/refusal.h"

namespace simulator {

GlFunctions::GlFunctions(Lookup lookup) {
#define VELMOOR_LOAD(name) name = reinterpret_cast<decltype(name)>(lookup("gl" #name));
#define VELMOOR_CHECK(name) \
    if (!(name)) Refuse(XR_ERROR_RUNTIME_FAILURE);
    VELMOOR_GL_FUNCTIONS(VELMOOR_LOAD)
    VELMOOR_GL_FUNCTIONS(VELMOOR_CHECK)
    VELMOOR_GL_LATER_FUNCTIONS(VELMOOR_LOAD)
#undef VELMOOR_CHECK
#undef VELMOOR_LOAD
}

}  // namespace simulator
