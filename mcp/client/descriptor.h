// A file descriptor that is closed with its owner.
#pragma once

#include <unistd.h>

#include <utility>

namespace mcp {

class descriptor {
 public:
    descriptor() = default;
    explicit descriptor(int number) : number_(number) {}
    descriptor(descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    descriptor& operator=(descriptor&& other) noexcept {
        if (this != &other) reset(std::exchange(other.number_, -1));
        return *this;
    }
    ~descriptor() { reset(); }

    int get() const { return number_; }
    explicit operator bool() const { return number_ >= 0; }
    void reset(int number = -1) {
        if (number_ >= 0) close(number_);
        number_ = number;
    }
    int release() { return std::exchange(number_, -1); }

 private:
    int number_ = -1;
};

}  // namespace mcp
