// Texts that the documentation tests read: by lines, and the options that they list.
#pragma once

#include <set>
#include <string>
#include <vector>

namespace hx_docs {

std::vector<std::string> Lines(const std::string& text);

// Returns the part of `text` between `from` and `to`, or up to the end; empty without `from`.
std::string Between(const std::string& text, const std::string& from, const std::string& to);

// Returns the output of cv_install --help, run as a regular user. Adds a failure if that fails.
std::string HelpOfSetup();

// Returns the spellings of the options in that text.
std::set<std::string> OptionsOfHelp(const std::string& help);

// Returns the spellings that the run script's template acts on.
std::set<std::string> OptionsOfRunScript();

}  // namespace hx_docs
