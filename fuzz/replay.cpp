// Stands in for libFuzzer in a test: feeds a fuzz target its corpus, each input also with some bytes changed, and
// noise. The same inputs in each run.
//
//   fuzz_NAME COUNT [CORPUS_DIRECTORY]
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

using Input = std::vector<std::uint8_t>;

std::vector<Input> ReadCorpus(const char* directory) {
    std::vector<Input> corpus;
    for (const auto& file : std::filesystem::directory_iterator(directory)) {
        std::ifstream from(file.path(), std::ios::binary);
        corpus.emplace_back(std::istreambuf_iterator<char>(from), std::istreambuf_iterator<char>());
    }
    return corpus;
}

}  // namespace

int main(int argc, char** argv) {
    const int count = argc > 1 ? std::atoi(argv[1]) : 0;
    std::vector<Input> inputs = argc > 2 ? ReadCorpus(argv[2]) : std::vector<Input>();
    for (const Input& input : inputs) LLVMFuzzerTestOneInput(input.data(), input.size());
    std::minstd_rand random(1);
    for (int i = 0; i < count; ++i) {
        const std::size_t which = random() % (inputs.size() + 1);
        const bool noise = which == inputs.size();
        Input input = noise ? Input(random() % 300) : inputs[which];
        for (std::uint8_t& byte : input) {
            if (noise || random() % 50 == 0) byte = static_cast<std::uint8_t>(random() >> 8);
        }
        LLVMFuzzerTestOneInput(input.data(), input.size());
    }
}
