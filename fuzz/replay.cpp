// Runs a fuzz target once for every file that the pattern given matches.
#include "peer.h"

#include <glob.h>

int main(int argc, char** argv) {
    static std::uint8_t input[1 << 16];
    glob_t found{};
    LLVMFuzzerInitialize(&argc, &argv);
    REQUIRE(argc == 2 && glob(argv[1], 0, nullptr, &found) == 0);
    for (std::size_t i = 0; i < found.gl_pathc; ++i) {
        std::FILE* file = std::fopen(found.gl_pathv[i], "rb");
        REQUIRE(file != nullptr);
        LLVMFuzzerTestOneInput(input, std::fread(input, 1, sizeof input, file));
        std::fclose(file);
    }
    std::printf("%zu inputs\n", found.gl_pathc);
    globfree(&found);
}
