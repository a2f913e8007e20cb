#include "temp_directory.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

namespace support {

TempDirectory::TempDirectory() : path((std::filesystem::temp_directory_path() / "zulstats-unit-XXXXXX").string()) {
    if (mkdtemp(path.data()) == nullptr) {
        throw std::system_error(errno, std::generic_category(), path);
    }
}

TempDirectory::~TempDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
}

std::string readFile(const std::string& name) {
    std::ifstream stream(name, std::ios::binary);
    if (!stream) {
        throw std::runtime_error("cannot read " + name);
    }
    return {std::istreambuf_iterator<char>(stream), {}};
}

}  // namespace support
