// What a capture costs after the runtime has given its pixels: base64 by each path beside a plain copy, and PNG of a
// picture of the simulator's room; and what that picture costs the simulator.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "bench/some_view.h"
#include "capture/base64.h"
#include "capture/image_encoding.h"
#include "simulator/renderer/picture.h"

#define STB_IMAGE_WRITE_IMPLEMENTATION
#define STB_IMAGE_WRITE_STATIC
#define STBI_WRITE_NO_STDIO
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wunused-function"
#include <stb_image_write.h>
#pragma GCC diagnostic pop

namespace orvanic_xr {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes Noise(std::size_t size) {
    std::mt19937 random(1);
    Bytes bytes(size);
    for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random());
    return bytes;
}

// Bytes a second are those that go in.
void CountBytes(benchmark::State& state, std::size_t bytes_each) {
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes_each));
}

constexpr std::int64_t kInCache = 16 << 10;
constexpr std::int64_t kPictureSize = 4 << 20;

void BM_Copy(benchmark::State& state) {
    const Bytes bytes = Noise(static_cast<std::size_t>(state.range(0)));
    Bytes target(bytes.size());
    for ([[maybe_unused]] auto _ : state) {
        std::memcpy(target.data(), bytes.data(), bytes.size());
        benchmark::ClobberMemory();
    }
    CountBytes(state, bytes.size());
}
BENCHMARK(BM_Copy)->Arg(kInCache)->Arg(kPictureSize);

void BM_Base64Path(benchmark::State& state, const Base64Path& path) {
    const Bytes bytes = Noise(static_cast<std::size_t>(state.range(0)));
    std::vector<char> text(base64_length(bytes.size()));
    for ([[maybe_unused]] auto _ : state) {
        path.encode(bytes.data(), bytes.size(), text.data());
        benchmark::ClobberMemory();
    }
    CountBytes(state, bytes.size());
}

// With the allocation of the text, beside a copy of as many characters into a new text.
void BM_Base64(benchmark::State& state) {
    const Bytes bytes = Noise(static_cast<std::size_t>(state.range(0)));
    for ([[maybe_unused]] auto _ : state) benchmark::DoNotOptimize(encode_base64(bytes.data(), bytes.size()));
    CountBytes(state, bytes.size());
}
BENCHMARK(BM_Base64)->Arg(kInCache)->Arg(kPictureSize);

void BM_CopyToNewText(benchmark::State& state) {
    const auto size = static_cast<std::size_t>(state.range(0));
    const std::vector<char> characters(base64_length(size), 'A');
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(std::string(characters.data(), characters.size()));
    }
    CountBytes(state, size);
}
BENCHMARK(BM_CopyToNewText)->Arg(kInCache)->Arg(kPictureSize);

void BM_Draw(benchmark::State& state) {
    const simulator::WorldView world = SomeView();
    const simulator::LitRoom room(world.things);
    const auto width = static_cast<std::uint32_t>(state.range(0));
    const auto height = static_cast<std::uint32_t>(state.range(1));
    Bytes pixels(std::size_t{width} * height * 4);
    for ([[maybe_unused]] auto _ : state) simulator::DrawPicture(world, room, 0, width, height, pixels.data());
    CountBytes(state, pixels.size());
}
BENCHMARK(BM_Draw)
    ->Args({256, 256})
    ->Args({512, 512})
    ->Args({1024, 1024})
    ->Args({1832, 1920})
    ->Unit(benchmark::kMillisecond);

void BM_LightRoom(benchmark::State& state) {
    const simulator::WorldView world = SomeView();
    for ([[maybe_unused]] auto _ : state) benchmark::DoNotOptimize(simulator::LitRoom(world.things));
}
BENCHMARK(BM_LightRoom)->Unit(benchmark::kMillisecond);

Bytes PictureOf(std::uint32_t width, std::uint32_t height) {
    const simulator::WorldView world = SomeView();
    Bytes pixels(std::size_t{width} * height * 4);
    simulator::DrawPicture(world, simulator::LitRoom(world.things), 0, width, height, pixels.data());
    return pixels;
}

void CountFile(benchmark::State& state, const Bytes& pixels, std::size_t file_size) {
    CountBytes(state, pixels.size());
    state.counters["file_bytes"] = static_cast<double>(file_size);
}

void BM_Png(benchmark::State& state) {
    const auto width = static_cast<std::uint32_t>(state.range(0));
    const auto height = static_cast<std::uint32_t>(state.range(1));
    const Bytes pixels = PictureOf(width, height);
    std::size_t file_size = 0;
    for ([[maybe_unused]] auto _ : state) file_size = encode_png(pixels, width, height).value().size();
    CountFile(state, pixels, file_size);
}

// The same by stb alone, as its defaults have it.
void BM_PngOfStb(benchmark::State& state) {
    const auto width = static_cast<int>(state.range(0));
    const auto height = static_cast<int>(state.range(1));
    const Bytes pixels = PictureOf(static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height));
    int file_size = 0;
    for ([[maybe_unused]] auto _ : state) {
        std::free(stbi_write_png_to_mem(pixels.data(), width * 4, width, height, 4, &file_size));
    }
    CountFile(state, pixels, static_cast<std::size_t>(file_size));
}

void PictureSizes(benchmark::internal::Benchmark* benchmark) {
    benchmark->Args({256, 256})->Args({512, 512})->Args({1024, 1024})->Args({1832, 1920});
    benchmark->Unit(benchmark::kMillisecond);
}
BENCHMARK(BM_Png)->Apply(PictureSizes);
BENCHMARK(BM_PngOfStb)->Apply(PictureSizes);

void RegisterPaths() {
    for (const Base64Path& path : base64_paths()) {
        if (!path.is_supported()) continue;
        const std::string name = std::string("BM_Base64Path/") + path.name;
        benchmark::RegisterBenchmark(name.c_str(), BM_Base64Path, path)->Arg(kInCache)->Arg(kPictureSize);
    }
}

}  // namespace
}  // namespace orvanic_xr

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    orvanic_xr::RegisterPaths();
    benchmark::RunSpecifiedBenchmarks();
}
