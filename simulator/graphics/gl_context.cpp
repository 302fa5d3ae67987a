#include "simulator/graphics/gl_context.h"

#include "simulator/refusal.h"

namespace simulator {

GlContext::Visit::Visit(GlContext& context) : context_(context) {
    // What one context has drawn is for another to see only once it is done.
    if (context_.Remember()) context_.gl_.Finish();
    if (context_.MakeCurrent()) return;
    context_.PutBack();
    Refuse(XR_ERROR_RUNTIME_FAILURE);
}

}  // namespace simulator
