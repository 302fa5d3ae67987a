#include "doctor/whole_file.h"

#include <array>
#include <cstddef>
#include <fstream>

namespace orvanic_xr {

std::string WholeFile(const std::string& path) {
    constexpr std::size_t kMost = std::size_t{16} << 20;
    std::ifstream file(path, std::ios::binary);
    std::string bytes;
    std::array<char, 65536> part;
    do {
        file.read(part.data(), part.size());
        bytes.append(part.data(), static_cast<std::size_t>(file.gcount()));
    } while (file && bytes.size() < kMost);
    return bytes;
}

}  // namespace orvanic_xr
