// Python's integers, computed by reference.py.
#pragma once

#include <string>
#include <vector>

namespace hx_test {

// Returns whether Python is installed.
bool HasPython();

// Returns Python's answer to each question, a request of reference.py.
std::vector<std::string> AnswersOfPython(const std::vector<std::string>& questions);

}  // namespace hx_test
