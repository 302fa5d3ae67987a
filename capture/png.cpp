#include <cstdlib>
#include <exception>
#include <new>

#include "capture/image_encoding.h"

namespace orvanic_xr {
namespace {

// What stb allocates for one picture. It writes on where an allocation failed, so here a failure throws, and
// whatever was not given back by then is freed at the end.
class PngMemory {
 public:
    PngMemory() { current = this; }
    ~PngMemory() {
        current = nullptr;
        while (Block* block = first_.next) Free(block + 1);
    }
    PngMemory(const PngMemory&) = delete;
    PngMemory& operator=(const PngMemory&) = delete;

    void* Resize(void* memory, std::size_t size) {
        Block* const old = memory ? static_cast<Block*>(memory) - 1 : nullptr;
        auto* const block = static_cast<Block*>(std::realloc(old, sizeof(Block) + size));
        if (!block) throw std::bad_alloc();
        if (!old) *block = {&first_, first_.next};
        block->previous->next = block;
        if (block->next) block->next->previous = block;
        return block + 1;
    }

    static void Free(void* memory) {
        if (!memory) return;
        Block* const block = static_cast<Block*>(memory) - 1;
        block->previous->next = block->next;
        if (block->next) block->next->previous = block->previous;
        std::free(block);
    }

    // Of the picture that this thread encodes.
    static thread_local PngMemory* current;

 private:
    struct alignas(std::max_align_t) Block {
        Block* previous;
        Block* next;
    };
    Block first_ = {nullptr, nullptr};
};

thread_local PngMemory* PngMemory::current = nullptr;

}  // namespace
}  // namespace orvanic_xr

// All of stb stays inside this file: the host application may have its own copy.
#define STB_IMAGE_WRITE_IMPLEMENTATION
#define STB_IMAGE_WRITE_STATIC
#define STBI_WRITE_NO_STDIO
#define STBIW_MALLOC(size) orvanic_xr::PngMemory::current->Resize(nullptr, static_cast<std::size_t>(size))
#define STBIW_REALLOC(memory, size) orvanic_xr::PngMemory::current->Resize(memory, static_cast<std::size_t>(size))
#define STBIW_FREE(memory) orvanic_xr::PngMemory::Free(memory)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wunused-function"
#include <stb_image_write.h>
#pragma GCC diagnostic pop

namespace orvanic_xr {
namespace {

// stb counts in int and grows its output by doubling it. Incompressible pixels take 9 bits a byte before it stores
// them as they are, so above this size the doubling would overflow.
constexpr std::uint64_t kMaxFilteredBytes = 1'400'000'000;

bool IsEncodable(std::size_t pixel_bytes, std::uint64_t width, std::uint64_t height) {
    if (width == 0 || height == 0 || width > kMaxFilteredBytes / 4 || height > kMaxFilteredBytes) return false;
    // Each row gains one byte, which names its filter.
    return (width * 4 + 1) * height <= kMaxFilteredBytes && pixel_bytes >= width * 4 * height;
}

void StoreFile(void* context, void* data, int size) {
    const auto* bytes = static_cast<const std::uint8_t*>(data);
    static_cast<std::vector<std::uint8_t>*>(context)->assign(bytes, bytes + size);
}

}  // namespace

std::optional<std::vector<std::uint8_t>> encode_png(const std::vector<std::uint8_t>& pixels, std::uint32_t width,
                                                    std::uint32_t height) {
    if (!IsEncodable(pixels.size(), width, height)) return std::nullopt;
    try {
        const PngMemory memory;
        std::vector<std::uint8_t> file;
        const int written = stbi_write_png_to_func(StoreFile, &file, static_cast<int>(width), static_cast<int>(height),
                                                   4, pixels.data(), static_cast<int>(width * 4));
        if (!written) return std::nullopt;
        return file;
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

}  // namespace orvanic_xr
