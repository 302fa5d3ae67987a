#pragma once

#include <sys/mman.h>

#include <cstddef>
#include <memory>
#include <new>
#include <string>

namespace mcp {

// Takes large blocks from the system and gives them back to it at once. The usual allocator keeps what a thread has
// freed, for that thread and its like: many workers that read large texts would hold hundreds of megabytes for good.
template <typename T>
struct page_allocator {
    using value_type = T;
    static constexpr std::size_t kLarge = (128u << 10) / sizeof(T);

    page_allocator() = default;
    template <typename U>
    explicit page_allocator(const page_allocator<U>&) {}

    T* allocate(std::size_t count) {
        if (count < kLarge) return std::allocator<T>().allocate(count);
        void* const block =
            mmap(nullptr, count * sizeof(T), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (block == MAP_FAILED) throw std::bad_alloc();
        return static_cast<T*>(block);
    }
    void deallocate(T* block, std::size_t count) {
        if (count < kLarge) return std::allocator<T>().deallocate(block, count);
        munmap(block, count * sizeof(T));
    }
    bool operator==(const page_allocator&) const { return true; }
};

using page_string = std::basic_string<char, std::char_traits<char>, page_allocator<char>>;

}  // namespace mcp
