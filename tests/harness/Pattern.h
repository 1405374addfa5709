// Regular expressions of Perl. <regex> takes seconds to compile.
#pragma once

#include <string>
#include <vector>

namespace hx_test {

// The matched text, then those of the groups.
using Match = std::vector<std::string>;

// Returns whether the pattern matches the whole text.
bool IsMatch(const std::string& text, const std::string& pattern);

// Returns the first part of the text that matches; empty without one.
Match FirstMatch(const std::string& text, const std::string& pattern);
std::vector<Match> AllMatches(const std::string& text, const std::string& pattern);

// Replaces all matches. In `replacement`, $1 is the text of the first group.
std::string ReplaceMatches(const std::string& text, const std::string& pattern,
                           const std::string& replacement);

}  // namespace hx_test
