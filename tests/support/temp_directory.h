// A fresh directory under TMPDIR, removed with its contents when the object goes.
#pragma once

#include <string>

namespace support {

class TempDirectory {
public:
    TempDirectory();
    ~TempDirectory();
    TempDirectory(const TempDirectory&) = delete;
    TempDirectory& operator=(const TempDirectory&) = delete;

    [[nodiscard]] std::string file(const std::string& name) const {
        return path + "/" + name;
    }

private:
    std::string path;
};

// The whole content of a file; throws when it cannot be read.
[[nodiscard]] std::string readFile(const std::string& name);

}  // namespace support
