// Suggestions for mistyped words.
#pragma once

#include <string>
#include <string_view>
#include <vector>

// Returns the candidate that needs the fewest changes of single characters to become `word`; empty
// if none is near.
std::string NearestWord(std::string_view word, const std::vector<std::string>& candidates);
