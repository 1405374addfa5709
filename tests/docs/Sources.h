// The string literals of the sources, for tests that hold the documentation against them.
#pragma once

#include <string>
#include <vector>

namespace hx_docs {

// The string literals of C++ code, decoded, those that stand side by side as one.
std::vector<std::string> Literals(const std::string& code);

// Those of all sources below src/ and apps/, in no order, and the lines of the run and service
// scripts below product/.
std::vector<std::string> SourceTexts();

// The lines of a commit script of a setup by root, with a queue and all sections.
std::vector<std::string> CommitScriptLines();

// `text` without what is set in when the program runs: conversions of printf, %1 of QString, and
// variables of a shell. What is left are the pieces between them.
std::vector<std::string> FixedPieces(const std::string& text);

}  // namespace hx_docs
