// Frames of compressed recordings, as the Zstandard format has them: where they and their blocks begin and end. Each
// frame is readable on its own, and each block with those before it in its frame.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace recording {

#ifdef RECORDING_ZST
inline constexpr bool CAN_COMPRESS = true;
#else
inline constexpr bool CAN_COMPRESS = false;
#endif

inline constexpr std::string_view ZST_MAGIC{"\x28\xB5\x2F\xFD", 4};
// An empty last block, which ends a frame.
inline constexpr std::string_view ZST_LAST_BLOCK{"\x01\x00\x00", 3};

bool namedCompressed(std::string_view file);
// Throws std::runtime_error where the program has no library for it.
void refuseWithoutZst(const std::string& file);

// The first place at or after `offset` at which a frame may begin.
std::optional<std::uint64_t> findFrame(int descriptor, std::uint64_t offset);

// What the blocks' headers tell of a file.
struct Frames {
    std::uint64_t lastFrame = 0;  // where the last one begins
    std::uint64_t wholeEnd = 0;   // behind the last whole block, or frame
    bool open = false;            // the last frame has no end
    bool plain = true;            // the last frame has neither a size nor a checksum, so that its end may be added
};
// Passes over what is no frame. Nothing where there is none at all. Throws std::system_error.
std::optional<Frames> walkFrames(int descriptor);

}  // namespace recording
