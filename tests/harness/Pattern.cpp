#include "harness/Pattern.h"

#include <map>
#include <regex>

namespace hx_test {
namespace {

// Compiling an expression takes longer than using it.
const std::regex& Compiled(const std::string& pattern) {
    static std::map<std::string, std::regex> expressions;
    auto found = expressions.find(pattern);
    if (found == expressions.end())
        found = expressions.emplace(pattern, pattern).first;
    return found->second;
}

}  // namespace

bool IsMatch(const std::string& text, const std::string& pattern) {
    return std::regex_match(text, Compiled(pattern));
}

Match FirstMatch(const std::string& text, const std::string& pattern) {
    std::smatch found;
    std::regex_search(text, found, Compiled(pattern));
    return {found.begin(), found.end()};
}

std::vector<Match> AllMatches(const std::string& text, const std::string& pattern) {
    std::vector<Match> all;
    for (std::sregex_iterator at(text.begin(), text.end(), Compiled(pattern)), end; at != end; ++at)
        all.emplace_back(at->begin(), at->end());
    return all;
}

std::string ReplaceMatches(const std::string& text, const std::string& pattern,
                           const std::string& replacement) {
    return std::regex_replace(text, Compiled(pattern), replacement);
}

}  // namespace hx_test
