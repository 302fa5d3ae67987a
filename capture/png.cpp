#include <algorithm>
#include <cstdlib>
#include <exception>
#include <iterator>
#include <new>

#include "capture/image_encoding.h"
#include "capture/stb_png.h"

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

void* velmoor_png_resize(void* memory, std::size_t size) {
    return orvanic_xr::PngMemory::current->Resize(memory, size);
}

void velmoor_png_free(void* memory) {
    orvanic_xr::PngMemory::Free(memory);
}

namespace orvanic_xr {
namespace {

// stb counts in int, and pixels that nothing can be saved of take some bytes more than they are.
constexpr std::uint64_t kMaxFilteredBytes = 1'400'000'000;

bool IsEncodable(std::size_t pixel_bytes, std::uint64_t width, std::uint64_t height) {
    if (width == 0 || height == 0 || width > kMaxFilteredBytes / 4 || height > kMaxFilteredBytes) return false;
    // Each row gains one byte, which names its filter.
    return (width * 4 + 1) * height <= kMaxFilteredBytes && pixel_bytes >= width * 4 * height;
}

constexpr PngPath kPaths[] = {
    {"any", [] { return true; }, velmoor_write_png},
#ifdef __x86_64__
    {"avx2", [] { return __builtin_cpu_supports("avx2") != 0; }, velmoor_write_png_avx2},
#endif
};

const PngPath& FastestPath() {
    return *std::find_if(std::rbegin(kPaths), std::rend(kPaths), [](const PngPath& row) { return row.is_supported(); });
}

void StoreFile(void* context, void* data, int size) {
    const auto* bytes = static_cast<const std::uint8_t*>(data);
    static_cast<std::vector<std::uint8_t>*>(context)->assign(bytes, bytes + size);
}

}  // namespace

std::span<const PngPath> png_paths() {
    return kPaths;
}

std::optional<std::vector<std::uint8_t>> encode_png(const PngPath& path, const std::vector<std::uint8_t>& pixels,
                                                    std::uint32_t width, std::uint32_t height) {
    if (!IsEncodable(pixels.size(), width, height)) return std::nullopt;
    try {
        const PngMemory memory;
        std::vector<std::uint8_t> file;
        const int written =
            path.write(StoreFile, &file, pixels.data(), static_cast<int>(width), static_cast<int>(height));
        if (!written) return std::nullopt;
        return file;
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

std::optional<std::vector<std::uint8_t>> encode_png(const std::vector<std::uint8_t>& pixels, std::uint32_t width,
                                                    std::uint32_t height) {
    static const PngPath& path = FastestPath();
    return encode_png(path, pixels, width, height);
}

}  // namespace orvanic_xr
