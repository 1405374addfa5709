// What the tests of the documentation read: texts by lines, and the options that texts list.
#pragma once

#include <set>
#include <string>
#include <vector>

namespace hx_docs {

std::vector<std::string> Lines(const std::string& text);

// What stands in `text` from behind `from` up to `to`, or to the end; empty without `from`.
std::string Between(const std::string& text, const std::string& from, const std::string& to);

// Every match of the first group of `pattern`, in order.
std::vector<std::string> Matches(const std::string& text, const std::string& pattern);

// The spellings that a manual page lists in its section OPTIONS.
std::set<std::string> OptionsOfPage(const std::string& page);

// What cv_install --help prints, run as an ordinary user. Empty, with a failure, when it cannot be.
std::string HelpOfSetup();

// The spellings in that text, and its exit statuses with what they mean.
std::set<std::string> OptionsOfHelp(const std::string& help);
std::vector<std::pair<std::string, std::string>> StatusesOfHelp(const std::string& help);

// The spellings that the run script's template acts on.
std::set<std::string> OptionsOfRunScript();

}  // namespace hx_docs
