#include "tests/lifecycle/life.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <exception>
#include <set>
#include <stdexcept>
#include <thread>
#include <utility>

namespace lifecycle {
namespace {

constexpr auto kPatience = std::chrono::seconds(10);
constexpr auto kPatienceForPictures = std::chrono::seconds(90);  // under a sanitizer one takes seconds

constexpr char kMove[] = R"({"position": [0, 1, 2], "duration_seconds": 60})";

void Check(bool true_statement, const std::string& what) {
    if (!true_statement) throw std::runtime_error(what);
}

void Check(XrResult result, const char* function) {
    Check(XR_SUCCEEDED(result), std::string(function) + " gave " + std::to_string(result));
}

XRAPI_ATTR XrResult XRAPI_CALL AnswerNothing(char* buffer, std::uint32_t, std::uint32_t* size, const char*, void*) {
    std::strcpy(buffer, "{}");
    *size = 2;
    return XR_SUCCESS;
}

// The server binds its port on a thread of its own, soon after the instance is there.
void WaitUntilServed() {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    for (;;) {
        try {
            mcp::raw_socket knock(kPort);
            return;
        } catch (const std::exception&) {
            if (std::chrono::steady_clock::now() > deadline) throw;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

std::string ToolCall(int id, const std::string& tool, const std::string& arguments) {
    return R"({"jsonrpc": "2.0", "id": )" + std::to_string(id) + R"(, "method": "tools/call", "params": {"name": ")" +
           tool + R"(", "arguments": )" + arguments + "}}";
}

std::string Invoke(PFN_OrvanicXR_InvokeTool invoke, const std::string& tool, const std::string& arguments) {
    std::string result(4096, '\0');
    std::string error(4096, '\0');
    const auto capacity = static_cast<std::uint32_t>(result.size());
    const std::int32_t code =
        invoke(tool.c_str(), arguments.c_str(), capacity, nullptr, result.data(), capacity, nullptr, error.data());
    return code == ORVANIC_XR_INVOKE_SUCCESS ? result.c_str() : error.c_str();
}

}  // namespace

Life::Life() {
    const char* const extensions[] = {"XR_MND_headless", XR_KESTX1_ORVANIC_EXTERNAL_TOOL_EXTENSION_NAME};
    XrInstanceCreateInfo info = {XR_TYPE_INSTANCE_CREATE_INFO, nullptr, 0, {}, 0, nullptr, 2, extensions};
    std::strcpy(info.applicationInfo.applicationName, "lifecycle");
    info.applicationInfo.apiVersion = XR_MAKE_VERSION(1, 0, 0);
    Check(xrCreateInstance(&info, &instance_), "xrCreateInstance");
}

void Life::CreateSession() {
    XrSystemId system = XR_NULL_SYSTEM_ID;
    const XrSystemGetInfo system_info = {XR_TYPE_SYSTEM_GET_INFO, nullptr, XR_FORM_FACTOR_HEAD_MOUNTED_DISPLAY};
    Check(xrGetSystem(instance_, &system_info, &system), "xrGetSystem");
    const XrSessionCreateInfo info = {XR_TYPE_SESSION_CREATE_INFO, nullptr, 0, system};
    Check(xrCreateSession(instance_, &info, &session_), "xrCreateSession");
    const XrSessionBeginInfo begin = {XR_TYPE_SESSION_BEGIN_INFO, nullptr, XR_VIEW_CONFIGURATION_TYPE_PRIMARY_STEREO};
    Check(xrBeginSession(session_, &begin), "xrBeginSession");
    for (int i = 0; i < 3; ++i) RunFrame();
}

void Life::RunFrame() {
    XrFrameState state = {XR_TYPE_FRAME_STATE, nullptr, 0, 0, XR_FALSE};
    Check(xrWaitFrame(session_, nullptr, &state), "xrWaitFrame");
    Check(xrBeginFrame(session_, nullptr), "xrBeginFrame");
    const XrFrameEndInfo end = {XR_TYPE_FRAME_END_INFO,           nullptr, state.predictedDisplayTime,
                                XR_ENVIRONMENT_BLEND_MODE_OPAQUE, 0,       nullptr};
    Check(xrEndFrame(session_, &end), "xrEndFrame");
}

void Life::EndSession() {
    Check(xrRequestExitSession(session_), "xrRequestExitSession");
    Check(xrDestroySession(session_), "xrDestroySession");
}

void Life::DestroyInstance() {
    Check(xrDestroyInstance(instance_), "xrDestroyInstance");
}

void Life::CallOnAThread(const std::string& tool, const std::string& arguments) {
    const auto invoke = Find<PFN_OrvanicXR_InvokeTool>("OrvanicXR_InvokeTool");
    std::packaged_task<std::string()> call([=] { return Invoke(invoke, tool, arguments); });
    calls_.push_back(call.get_future());
    std::thread(std::move(call)).detach();
}

void Life::LeaveCallsPending() {
    Find<PFN_OrvanicXR_RegisterExternalTool>("OrvanicXR_RegisterExternalTool")(
        "wait_for_poll", "Waits for a poll.", 0, nullptr, AnswerNothing,
        XR_ORVANIC_EXTERNAL_TOOL_CALLBACK_ON_POLL_EVENT_BIT_KESTX1, nullptr);
    const std::string pressed =
        Invoke(Find<PFN_OrvanicXR_InvokeTool>("OrvanicXR_InvokeTool"), "openxr_set_controller_input",
               R"({"hand": "left", "component": "X", "value": 1, "auto_release": true, "hold_duration": 0.8})");
    Check(pressed.find("true") != std::string::npos, pressed);
    CallOnAThread("openxr_set_head_pose", kMove);
    CallOnAThread("wait_for_poll", "{}");
    ConnectAgent();
    agent_->post(ToolCall(2, "openxr_set_head_pose", kMove));
    agent_->post(ToolCall(3, "wait_for_poll", "{}"));
    for (int i = 0; i < 5; ++i) RunFrame();
}

void Life::ConnectAgent() {
    WaitUntilServed();
    agent_.emplace(kPort);
    agent_->shake_hands();
}

void Life::StartCallers() {
    static constexpr std::array<std::pair<const char*, const char*>, 10> kCalls = {{
        {"openxr_set_head_pose", R"({"position": [0, 1, 2], "duration_seconds": 0.3})"},
        {"openxr_set_controller_pose", R"({"hand": "left", "position": [0, 1, 0], "duration_seconds": 0.01})"},
        {"openxr_set_controller_input",
         R"({"hand": "left", "component": "X", "value": 1, "auto_release": true, "hold_duration": 0.02})"},
        {"openxr_get_head_pose", "{}"},
        {"openxr_get_controller_pose", R"({"hand": "right"})"},
        {"openxr_get_active_interaction_profile", "{}"},
        {"openxr_list_spatial_entities", "{}"},
        {"openxr_capture_composited_image", "{}"},
        {"openxr_set_head_pose", R"({"position": [0, 1, 1]})"},
        {"openxr_convert_pose_between_spaces", R"({"source_space": "local"})"},
    }};
    const auto invoke = Find<PFN_OrvanicXR_InvokeTool>("OrvanicXR_InvokeTool");
    for (std::size_t first : {0u, 3u, 6u}) {
        callers_.emplace_back([this, invoke, first] {
            for (std::size_t i = first; !stop_calling_; ++i) {
                const auto& [tool, arguments] = kCalls[i % kCalls.size()];
                if (!Invoke(invoke, tool, arguments).empty()) ++answered_;
                std::this_thread::sleep_for(std::chrono::microseconds(200));
            }
        });
    }
    poller_ = std::thread([this] {
        while (!stop_polling_) {
            XrEventDataBuffer event = {XR_TYPE_EVENT_DATA_BUFFER, nullptr, {}};
            if (xrPollEvent(instance_, &event) != XR_SUCCESS) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    ConnectAgent();
    reader_ = std::thread([this] {
        std::set<std::string> heads;
        try {
            for (;;) {
                const std::string message = agent_->next_message();
                heads.insert(message.substr(0, message.find(R"("result")")));
                told_ = static_cast<int>(heads.size());
            }
        } catch (const std::runtime_error&) {  // the end of the stream
        }
    });
}

void Life::LiveUnderCallers(bool with_picture) {
    for (const char* tool : {"openxr_set_head_pose", "openxr_get_head_pose"}) {
        agent_->post(ToolCall(++asked_, tool, kMove));
    }
    if (with_picture) agent_->post(ToolCall(++asked_, "openxr_capture_composited_image", "{}"));
    for (int i = 0; i < 15; ++i) RunFrame();
    const std::string hand = Invoke(Find<PFN_OrvanicXR_InvokeTool>("OrvanicXR_InvokeTool"),
                                    "openxr_get_controller_pose", R"({"hand": "left", "pose_type": "aim"})");
    Check(hand.find("not available") == std::string::npos, hand);
}

void Life::AwaitAnswers() {
    const auto deadline = std::chrono::steady_clock::now() + kPatienceForPictures;
    while (told_ < asked_ && std::chrono::steady_clock::now() < deadline) RunFrame();
}

void Life::StopPolling() {
    stop_polling_ = true;
    poller_.join();
}

int Life::StopCallers() {
    stop_calling_ = true;
    for (std::thread& caller : callers_) caller.join();
    reader_.join();
    Check(told_ == asked_, std::to_string(told_) + " answers to " + std::to_string(asked_) + " calls");
    agent_.reset();
    return answered_ + told_;
}

int Life::ExpectAnswers() {
    std::vector<std::string> answers;
    for (std::future<std::string>& call : calls_) {
        Check(call.wait_for(kPatience) == std::future_status::ready, "a call does not end");
        answers.push_back(call.get());
    }
    calls_.clear();
    if (agent_) {
        for (int i = 0; i < 2; ++i) answers.push_back(agent_->next_message());
        agent_.reset();
    }
    return static_cast<int>(std::ranges::count_if(answers, [](const std::string& answer) {
        return answer.find("superseded") != std::string::npos ||
               answer.find("timed out in processing queue") != std::string::npos;
    }));
}

}  // namespace lifecycle
