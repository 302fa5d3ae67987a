// A queue that keeps its memory: the frame path puts something in and takes something out in every frame, and
// must not allocate for it.
#pragma once

#include <cstddef>
#include <utility>
#include <vector>

namespace orvanic_xr {

// Grows when it is full and gives nothing back. Not for several threads.
template <typename T>
class RingQueue {
 public:
    bool empty() const { return size_ == 0; }
    std::size_t size() const { return size_; }

    // 0 is the oldest.
    T& operator[](std::size_t index) { return slots_[(head_ + index) % slots_.size()]; }
    const T& operator[](std::size_t index) const { return slots_[(head_ + index) % slots_.size()]; }
    T& front() { return (*this)[0]; }
    const T& front() const { return (*this)[0]; }
    T& back() { return (*this)[size_ - 1]; }

    // The copy goes into what an earlier element left in the slot, so that memory of its own is used again.
    void push_back(const T& value) {
        if (size_ == slots_.size()) Grow();
        (*this)[size_] = value;
        ++size_;
    }
    void pop_front() {
        head_ = (head_ + 1) % slots_.size();
        --size_;
    }
    // Those behind it move up.
    void erase(std::size_t index) {
        for (; index + 1 < size_; ++index) (*this)[index] = std::move((*this)[index + 1]);
        --size_;
    }

 private:
    void Grow() {
        std::vector<T> larger(slots_.empty() ? 8 : 2 * slots_.size());
        for (std::size_t i = 0; i < size_; ++i) larger[i] = std::move((*this)[i]);
        slots_.swap(larger);
        head_ = 0;
    }

    std::vector<T> slots_;
    std::size_t head_ = 0;
    std::size_t size_ = 0;
};

// Adds `value` to a history that holds the `limit` newest.
template <typename T>
void PushBounded(RingQueue<T>& history, const T& value, std::size_t limit) {
    if (history.size() == limit) history.pop_front();
    history.push_back(value);
}

}  // namespace orvanic_xr
