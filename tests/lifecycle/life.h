// One life with the built layer: both libraries opened by hand, an instance, perhaps a session, and calls that are
// not done when the life ends. What goes wrong throws.
#pragma once

#include <openxr/openxr.h>
#include <openxr/openxr_loader_negotiation.h>

#include <chrono>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/fakes/sse_client.h"
#include "velmoor/external_tool.h"
#include "velmoor/invoke_tool.h"

namespace lifecycle {

inline constexpr int kPort = 8720;

// How long a thread that nobody joins may outlast its life.
inline constexpr std::chrono::milliseconds kLongestThread{1200};

class SharedLibrary {
 public:
    explicit SharedLibrary(const char* path);
    ~SharedLibrary();
    SharedLibrary(const SharedLibrary&) = delete;
    SharedLibrary& operator=(const SharedLibrary&) = delete;

    template <typename Function>
    Function Find(const char* name) const {
        return reinterpret_cast<Function>(FindVoid(name));
    }

 private:
    void (*FindVoid(const char* name) const)();
    void* const library_;
};

class Life {
 public:
    // Opens both, negotiates with them as the loader does, and creates the instance.
    Life();

    void CreateSession();
    void RunFrame();
    void EndSession();
    void DestroyInstance();

    // Leaves behind, at work: a move that takes a minute, a tool of the application's own that waits for a poll, and
    // a button that is let go soon. An agent asks for the first two as well.
    void LeaveCallsPending();
    // After the instance: each of them came to an end. How many were at work until then; a busy machine may not
    // have begun with all of them.
    int ExpectAnswers();

 private:
    template <typename Function>
    Function Get(const char* name) const;
    void CallOnAThread(const std::string& tool, const std::string& arguments);

    SharedLibrary simulator_;
    SharedLibrary layer_;
    PFN_xrGetInstanceProcAddr get_instance_proc_addr_ = nullptr;
    XrInstance instance_ = XR_NULL_HANDLE;
    XrSession session_ = XR_NULL_HANDLE;
    std::vector<std::future<std::string>> calls_;
    std::optional<mcp::sse_client> agent_;
};

}  // namespace lifecycle
