// What a screen shows, before anything is drawn: pieces of text at places.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace zulstat {

// `notice` is for what changed a while ago, `bright` for what changed just now, `selected` for the row of the cursor.
enum class Style : std::uint8_t { normal, bold, dim, header, bad, notice, bright, selected };

struct Piece {
    std::size_t row = 0;
    std::size_t column = 0;
    std::string text;  // UTF-8 without control characters; what is beyond the right edge is cut
    Style style = Style::normal;

    bool operator==(const Piece&) const = default;
};

struct Frame {
    std::size_t rows = 24;
    std::size_t columns = 80;
    std::vector<Piece> pieces;  // later ones lie over earlier ones

    void put(std::size_t row, std::size_t column, std::string text, Style style = Style::normal) {
        if (row < rows && column < columns && !text.empty()) {
            pieces.push_back({row, column, std::move(text), style});
        }
    }
};

}  // namespace zulstat
