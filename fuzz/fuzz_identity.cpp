// Any bytes as the identity file: a file whose first line is an identity is kept, any other one is written anew.
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "diagnostics/machine_id.h"
#include "tests/fakes/scratch.h"

namespace {

std::optional<std::string> Home() {
    static const orvanic_xr::ScratchDirectory scratch;
    return scratch.path();
}

bool IsIdentity(std::string_view text) {
    constexpr std::string_view kDigits = "0123456789abcdefABCDEF";
    if (text.size() != 36) return false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool dash = i == 8 || i == 13 || i == 18 || i == 23;
        if (dash ? text[i] != '-' : kDigits.find(text[i]) == kDigits.npos) return false;
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const auto helper = std::make_shared<Machineid::MachineIdHelper>(Home);
    static const std::filesystem::path path = helper->id_file_path();
    const std::string content(reinterpret_cast<const char*>(data), size);
    std::ofstream(path, std::ios::binary) << content;
    const std::string id = Machineid::MachineId(helper).get();
    const std::string first_line = content.substr(0, content.find('\n'));
    const bool kept = IsIdentity(first_line);
    if (!IsIdentity(id) || (kept && id != first_line)) std::abort();
    if (orvanic_xr::ReadFile(path) != (kept ? content : id)) std::abort();
    return 0;
}
