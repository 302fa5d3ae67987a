// One life with the built layer under the real loader: an instance, perhaps a session, and calls that are not done
// when the life ends. What goes wrong throws.
#pragma once

#include <dlfcn.h>
#include <openxr/openxr.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tests/fakes/sse_client.h"
#include "velmoor/external_tool.h"
#include "velmoor/invoke_tool.h"

namespace lifecycle {

inline constexpr int kPort = 8720;

// How long a thread that nobody joins may outlast its life.
inline constexpr std::chrono::milliseconds kLongestThread{1200};

class Life {
 public:
    // Creates the instance.
    Life();

    void CreateSession();
    void RunFrame();
    void EndSession();
    void DestroyInstance();

    // Leaves behind, at work: a move that takes a minute, a tool of the application's own that waits for a poll, and
    // a button that is let go soon. An agent asks for the first two as well.
    void LeaveCallsPending();
    // Threads that call tools in the process, and one that polls, for as long as sessions and the instance come and go.
    void StartCallers();
    // In a running session: an agent asks too, for a picture if it may, the layer's actions are there, and some frames
    // go by.
    void LiveUnderCallers(bool with_picture);
    // Until the agent has its answers: the server's end leaves a slow tool no stream.
    void AwaitAnswers();
    void StopPolling();
    // After the instance: all came to an end, and the agent has all its answers. How many there were.
    int StopCallers();

    // After the instance: each of them came to an end. How many were at work until then; a busy machine may not
    // have begun with all of them.
    int ExpectAnswers();

 private:
    // One of the layer's own functions, which has to be there.
    template <typename Function>
    Function Find(const char* name) const {
        return reinterpret_cast<Function>(dlsym(layer_.get(), name));
    }
    void CallOnAThread(const std::string& tool, const std::string& arguments);
    void ConnectAgent();

    // Open for as long as calls may run, which is longer than the loader needs it.
    const std::unique_ptr<void, int (*)(void*)> layer_{dlopen(VELMOOR_LAYER_PATH, RTLD_NOW), dlclose};
    XrInstance instance_ = XR_NULL_HANDLE;
    XrSession session_ = XR_NULL_HANDLE;
    std::vector<std::future<std::string>> calls_;
    std::optional<mcp::sse_client> agent_;
    int asked_ = 0;
    std::atomic<int> told_ = 0;  // how many answers the agent has read
    std::thread reader_;
    std::atomic<bool> stop_polling_ = false;
    std::atomic<bool> stop_calling_ = false;
    std::atomic<int> answered_ = 0;
    std::thread poller_;
    std::vector<std::thread> callers_;
};

}  // namespace lifecycle
