// Through what the last picture of each eye was seen, for who means a place in it. Any thread.
#pragma once

#include <openxr/openxr.h>
#include <sys/types.h>

#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace velmoor {

struct shot {
    pid_t process = 0;
    XrPosef eye = {};  // in the space that tools take where none is named
    XrFovf fov = {};
    std::string unknown;  // why eye and fov are not known; empty where they are
    // The picture that was shown, and which part of the eye's view it shows, from 0 to 1.
    int width = 0;
    int height = 0;
    double left = 0;
    double top = 0;
    double right = 1;
    double bottom = 1;
};

class picture_memory {
 public:
    void keep(const std::string& eye, const shot& last) {
        const std::lock_guard lock(mutex_);
        shots_[eye] = last;
    }
    std::optional<shot> last_of(const std::string& eye) const {
        const std::lock_guard lock(mutex_);
        const auto found = shots_.find(eye);
        return found == shots_.end() ? std::nullopt : std::optional(found->second);
    }

 private:
    mutable std::mutex mutex_;  // shots_
    std::map<std::string, shot> shots_;
};

}  // namespace velmoor
