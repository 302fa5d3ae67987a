// An X server with no screen to look at, for as long as this lives.
#pragma once

#include <string>

#include <sys/types.h>

namespace rendering_test {

class XServer {
 public:
    XServer();
    XServer(const XServer&) = delete;
    XServer& operator=(const XServer&) = delete;
    ~XServer();

    // Such as ":99". Empty where none could be started.
    const std::string& display() const { return display_; }

 private:
    pid_t process_ = 0;
    std::string display_;
};

}  // namespace rendering_test
