#include "examples/velmoor_demo/picture.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "examples/velmoor_demo/check.h"

namespace demo {
namespace {

constexpr auto kStereo = XR_VIEW_CONFIGURATION_TYPE_PRIMARY_STEREO;

constexpr char kVertices[] = R"(#version 300 es
layout(location = 0) in vec3 middle;
layout(location = 1) in vec4 turn;
layout(location = 2) in vec3 size;
layout(location = 3) in vec4 colour;
uniform vec3 eye_position;
uniform vec4 eye_turn;
uniform mat4 projection;
out vec3 light;
vec3 rotate(vec4 q, vec3 v) { return v + 2.0 * cross(q.xyz, cross(q.xyz, v) + q.w * v); }
void main() {
    // Two triangles on each of six sides.
    int side = gl_VertexID / 6;
    vec2 at[6] = vec2[6](vec2(-1, -1), vec2(1, -1), vec2(1, 1), vec2(-1, -1), vec2(1, 1), vec2(-1, 1));
    vec3 corner = vec3(at[gl_VertexID % 6], side < 3 ? 1 : -1);
    vec3 normal = vec3(0, 0, corner.z);
    if (side % 3 == 1) { corner = corner.zxy; normal = normal.zxy; }
    if (side % 3 == 2) { corner = corner.yzx; normal = normal.yzx; }
    vec3 place = middle + rotate(turn, 0.5 * size * corner) - eye_position;
    gl_Position = projection * vec4(rotate(vec4(-eye_turn.xyz, eye_turn.w), place), 1);
    float lit = 0.35 + 0.65 * max(0.0, dot(rotate(turn, normal), normalize(vec3(0.3, 0.9, 0.45))));
    light = colour.rgb * mix(lit, 1.0, colour.a);
}
)";

constexpr char kFragments[] = R"(#version 300 es
precision mediump float;
in vec3 light;
out vec4 colour;
void main() { colour = vec4(light, 1); }
)";

// By columns.
std::array<float, 16> ProjectionFor(const XrFovf& fov) {
    constexpr float kNear = 0.05f;
    constexpr float kFar = 20.0f;
    const float left = std::tan(fov.angleLeft);
    const float right = std::tan(fov.angleRight);
    const float up = std::tan(fov.angleUp);
    const float down = std::tan(fov.angleDown);
    return {2 / (right - left),
            0,
            0,
            0,  //
            0,
            2 / (up - down),
            0,
            0,  //
            (right + left) / (right - left),
            (up + down) / (up - down),
            (kFar + kNear) / (kNear - kFar),
            -1,  //
            0,
            0,
            2 * kFar * kNear / (kNear - kFar),
            0};
}

template <class Record>
Record Typed(XrStructureType type) {
    Record record = {};
    record.type = type;
    return record;
}

}  // namespace

Picture::Picture(XrInstance instance, XrSystemId system, XrSession session, const Gles& gles)
    : session_(session), gl_(gles) {
    ChooseBlendMode(instance, system);
    MakeSwapchain(instance, system);
    MakeProgram();
    MakeBuffers();
}

Picture::~Picture() {
    xrDestroySwapchain(swapchain_);
}

void Picture::ChooseBlendMode(XrInstance instance, XrSystemId system) {
    std::array<XrEnvironmentBlendMode, 8> modes = {};
    std::uint32_t count = 0;
    Check(xrEnumerateEnvironmentBlendModes(instance, system, kStereo, modes.size(), &count, modes.data()),
          "xrEnumerateEnvironmentBlendModes");
    const auto end = modes.begin() + count;
    const bool has_room = std::find(modes.begin(), end, XR_ENVIRONMENT_BLEND_MODE_ALPHA_BLEND) != end;
    blend_mode_ = has_room ? XR_ENVIRONMENT_BLEND_MODE_ALPHA_BLEND : modes[0];
}

void Picture::MakeSwapchain(XrInstance instance, XrSystemId system) {
    XrViewConfigurationView eyes[2] = {Typed<XrViewConfigurationView>(XR_TYPE_VIEW_CONFIGURATION_VIEW),
                                       Typed<XrViewConfigurationView>(XR_TYPE_VIEW_CONFIGURATION_VIEW)};
    std::uint32_t count = 0;
    Check(xrEnumerateViewConfigurationViews(instance, system, kStereo, 2, &count, eyes),
          "xrEnumerateViewConfigurationViews");
    size_ = {static_cast<std::int32_t>(eyes[0].recommendedImageRectWidth),
             static_cast<std::int32_t>(eyes[0].recommendedImageRectHeight)};
    auto info = Typed<XrSwapchainCreateInfo>(XR_TYPE_SWAPCHAIN_CREATE_INFO);
    info.usageFlags = XR_SWAPCHAIN_USAGE_COLOR_ATTACHMENT_BIT;
    // What is drawn is light, and becomes levels on its way into the image.
    info.format = GL_SRGB8_ALPHA8;
    info.sampleCount = info.faceCount = info.mipCount = 1;
    info.width = eyes[0].recommendedImageRectWidth;
    info.height = eyes[0].recommendedImageRectHeight;
    info.arraySize = 2;
    Check(xrCreateSwapchain(session_, &info, &swapchain_), "xrCreateSwapchain");
    Check(xrEnumerateSwapchainImages(swapchain_, 0, &count, nullptr), "xrEnumerateSwapchainImages");
    images_.assign(count, Typed<XrSwapchainImageOpenGLESKHR>(XR_TYPE_SWAPCHAIN_IMAGE_OPENGL_ES_KHR));
    Check(xrEnumerateSwapchainImages(swapchain_, count, &count,
                                     reinterpret_cast<XrSwapchainImageBaseHeader*>(images_.data())),
          "xrEnumerateSwapchainImages");
}

void Picture::MakeProgram() {
    const GLuint program = gl_.CreateProgram();
    const auto add = [&](GLenum kind, const char* text) {
        const GLuint shader = gl_.CreateShader(kind);
        gl_.ShaderSource(shader, 1, &text, nullptr);
        gl_.CompileShader(shader);
        gl_.AttachShader(program, shader);
    };
    add(GL_VERTEX_SHADER, kVertices);
    add(GL_FRAGMENT_SHADER, kFragments);
    gl_.LinkProgram(program);
    GLint is_linked = 0;
    gl_.GetProgramiv(program, GL_LINK_STATUS, &is_linked);
    if (!is_linked) throw std::runtime_error("the shaders do not compile");
    gl_.UseProgram(program);
    projection_ = gl_.GetUniformLocation(program, "projection");
    eye_position_ = gl_.GetUniformLocation(program, "eye_position");
    eye_turn_ = gl_.GetUniformLocation(program, "eye_turn");
}

void Picture::MakeBuffers() {
    GLuint name = 0;
    gl_.GenVertexArrays(1, &name);
    gl_.BindVertexArray(name);
    gl_.GenBuffers(1, &boxes_);
    gl_.BindBuffer(GL_ARRAY_BUFFER, boxes_);
    const struct {
        GLint size;
        std::size_t offset;
    } fields[] = {
        {3, offsetof(Box, middle)}, {4, offsetof(Box, turn)}, {3, offsetof(Box, size)}, {4, offsetof(Box, colour)}};
    for (GLuint i = 0; i < std::size(fields); ++i) {
        gl_.EnableVertexAttribArray(i);
        gl_.VertexAttribDivisor(i, 1);
        gl_.VertexAttribPointer(i, fields[i].size, GL_FLOAT, GL_FALSE, sizeof(Box),
                                reinterpret_cast<const void*>(fields[i].offset));
    }
    gl_.GenFramebuffers(1, &framebuffer_);
    gl_.BindFramebuffer(GL_FRAMEBUFFER, framebuffer_);
    gl_.GenRenderbuffers(1, &name);
    gl_.BindRenderbuffer(GL_RENDERBUFFER, name);
    gl_.RenderbufferStorage(GL_RENDERBUFFER, GL_DEPTH_COMPONENT24, size_.width, size_.height);
    gl_.FramebufferRenderbuffer(GL_FRAMEBUFFER, GL_DEPTH_ATTACHMENT, GL_RENDERBUFFER, name);
    gl_.Viewport(0, 0, size_.width, size_.height);
    gl_.Enable(GL_DEPTH_TEST);
}

bool Picture::LocateEyes(XrSpace base, XrTime time) {
    const XrViewLocateInfo info = {XR_TYPE_VIEW_LOCATE_INFO, nullptr, kStereo, time, base};
    auto state = Typed<XrViewState>(XR_TYPE_VIEW_STATE);
    XrView eyes[2] = {Typed<XrView>(XR_TYPE_VIEW), Typed<XrView>(XR_TYPE_VIEW)};
    std::uint32_t count = 0;
    Check(xrLocateViews(session_, &info, &state, 2, &count, eyes), "xrLocateViews");
    constexpr XrViewStateFlags kLocated = XR_VIEW_STATE_POSITION_VALID_BIT | XR_VIEW_STATE_ORIENTATION_VALID_BIT;
    for (std::uint32_t eye = 0; eye < views_.size(); ++eye) {
        views_[eye] = {XR_TYPE_COMPOSITION_LAYER_PROJECTION_VIEW,
                       nullptr,
                       eyes[eye].pose,
                       eyes[eye].fov,
                       {swapchain_, {{0, 0}, size_}, eye}};
    }
    return (state.viewStateFlags & kLocated) == kLocated;
}

void Picture::DrawEye(std::size_t eye, GLuint texture, GLsizei count) {
    const XrCompositionLayerProjectionView& view = views_[eye];
    gl_.FramebufferTextureLayer(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, texture, 0, static_cast<GLint>(eye));
    // What nothing is drawn on lets the room through.
    gl_.ClearColor(0, 0, 0, 0);
    gl_.Clear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    gl_.UniformMatrix4fv(projection_, 1, GL_FALSE, ProjectionFor(view.fov).data());
    gl_.Uniform3fv(eye_position_, 1, &view.pose.position.x);
    gl_.Uniform4fv(eye_turn_, 1, &view.pose.orientation.x);
    gl_.DrawArraysInstanced(GL_TRIANGLES, 0, 36, count);
}

const XrCompositionLayerBaseHeader* Picture::Draw(XrSpace base, XrTime time, const std::vector<Box>& boxes) {
    if (!LocateEyes(base, time)) return nullptr;
    std::uint32_t image = 0;
    Check(xrAcquireSwapchainImage(swapchain_, nullptr, &image), "xrAcquireSwapchainImage");
    const XrSwapchainImageWaitInfo wait = {XR_TYPE_SWAPCHAIN_IMAGE_WAIT_INFO, nullptr, XR_INFINITE_DURATION};
    Check(xrWaitSwapchainImage(swapchain_, &wait), "xrWaitSwapchainImage");
    gl_.BufferData(GL_ARRAY_BUFFER, static_cast<GLsizeiptr>(boxes.size() * sizeof(Box)), boxes.data(), GL_STREAM_DRAW);
    for (std::size_t eye = 0; eye < views_.size(); ++eye) {
        DrawEye(eye, images_[image].image, static_cast<GLsizei>(boxes.size()));
    }
    Check(xrReleaseSwapchainImage(swapchain_, nullptr), "xrReleaseSwapchainImage");
    layer_ = {XR_TYPE_COMPOSITION_LAYER_PROJECTION,
              nullptr,
              XR_COMPOSITION_LAYER_BLEND_TEXTURE_SOURCE_ALPHA_BIT,
              base,
              static_cast<std::uint32_t>(views_.size()),
              views_.data()};
    return reinterpret_cast<const XrCompositionLayerBaseHeader*>(&layer_);
}

}  // namespace demo
