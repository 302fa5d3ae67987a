#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <utility>

namespace mcp {

// What a text takes while it is read and parsed, in its own length: growing buffers copy it, and so does the parser.
inline constexpr std::size_t kUnparsedCopies = 2;

// How many bytes of requests are in hand at once, over all connections. Bodies are read, parsed and queued
// faster than slow tools take them, and the memory is the host application's.
class body_budget {
 public:
    explicit body_budget(std::size_t limit) : limit_(limit) {}

    // What one request takes of the budget, given back when it is done with.
    class share {
     public:
        explicit share(std::shared_ptr<body_budget> budget) : budget_(std::move(budget)) {}
        ~share() { budget_->used_ -= bytes_; }
        share(const share&) = delete;
        share& operator=(const share&) = delete;

        // False, and nothing taken, if the budget has no room for that.
        bool take(std::size_t bytes) {
            const std::size_t before = budget_->used_.fetch_add(bytes);
            if (bytes > budget_->limit_ || before > budget_->limit_ - bytes) {
                budget_->used_ -= bytes;
                return false;
            }
            bytes_ += bytes;
            return true;
        }
        void give_back(std::size_t bytes) {
            budget_->used_ -= bytes;
            bytes_ -= bytes;
        }

     private:
        std::shared_ptr<body_budget> budget_;
        std::size_t bytes_ = 0;
    };

 private:
    const std::size_t limit_;
    std::atomic<std::size_t> used_{0};
};

}  // namespace mcp
