#include "nearest.h"

#include <algorithm>

namespace zulstat {

namespace {

std::size_t distance(std::string_view one, std::string_view other) {
    // Rows of the table of distances between the beginnings of both.
    std::vector<std::size_t> last(other.size() + 1);
    std::vector<std::size_t> row(other.size() + 1);
    std::vector<std::size_t> beforeLast;
    for (std::size_t column = 0; column <= other.size(); ++column) {
        row[column] = column;
    }
    for (std::size_t line = 1; line <= one.size(); ++line) {
        beforeLast = last;
        last = row;
        row[0] = line;
        for (std::size_t column = 1; column <= other.size(); ++column) {
            const std::size_t change = one[line - 1] == other[column - 1] ? 0 : 1;
            row[column] = std::min({last[column] + 1, row[column - 1] + 1, last[column - 1] + change});
            if (line > 1 && column > 1 && one[line - 1] == other[column - 2] && one[line - 2] == other[column - 1]) {
                row[column] = std::min(row[column], beforeLast[column - 2] + 1);
            }
        }
    }
    return row[other.size()];
}

}  // namespace

std::string nearest(std::string_view word, const std::vector<std::string>& candidates) {
    constexpr std::size_t longest = 200;  // longer words are no misspelt names
    if (word.size() > longest) {
        return {};
    }
    std::size_t least = std::min<std::size_t>((word.size() + 1) / 3, 3) + 1;
    std::string best;
    for (const std::string& candidate : candidates) {
        const std::size_t difference =
            candidate.size() > word.size() ? candidate.size() - word.size() : word.size() - candidate.size();
        if (difference >= least) {
            continue;
        }
        if (const std::size_t changes = distance(word, candidate); changes < least) {
            least = changes;
            best = candidate;
        }
    }
    return best;
}

std::string didYouMean(std::string_view word, const std::vector<std::string>& candidates) {
    const std::string best = nearest(word, candidates);
    return best.empty() ? "" : "; did you mean '" + best + "'?";
}

}  // namespace zulstat
