// What somebody may have meant.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace zulstat {

// The candidate that takes the fewest changes of one character (another, one more, one less, two in the other order) to
// become the word, at most one for three characters and three in all, the first of several; empty where there is none.
std::string nearest(std::string_view word, const std::vector<std::string>& candidates);

// "; did you mean 'stats'?", or nothing.
std::string didYouMean(std::string_view word, const std::vector<std::string>& candidates);

}  // namespace zulstat
