// What velmoor reads of files that others wrote: test files and recordings. Either is read whole, or refused with the
// file's name and a line.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <string_view>

#include "command/recording/test_writer.h"
#include "command/testing/test_file.h"

namespace {

template <typename Read>
void take(const Read& read) {
    try {
        read();
    } catch (const std::runtime_error& e) {
        if (!std::string_view(e.what()).starts_with("f:")) std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    take([&] { velmoor::parse_test(text, "f"); });
    take([&] {
        const velmoor::recording read = velmoor::parse_recording("{\"velmoor_recording\":1}\n" + text, "f");
        velmoor::shown_recording(read);
        velmoor::test_of(read);
    });
    return 0;
}
