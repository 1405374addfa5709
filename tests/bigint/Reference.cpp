#include "bigint/Reference.h"

#include <sstream>

#include "harness/Process.h"

namespace hx_test {

bool HasPython() {
    static const bool found = AnswersOfPython({"mp_add 0 2 3"}).front() == "0 5";
    return found;
}

std::vector<std::string> AnswersOfPython(const std::vector<std::string>& questions) {
    std::string input;
    for (const std::string& question : questions)
        input += question + '\n';
    std::istringstream out(
        Run({"/usr/bin/python3", "-BIS", HX_REFERENCE_SCRIPT}, {.input = input}).out);
    std::vector<std::string> answers(questions.size());
    for (std::string& answer : answers)
        std::getline(out, answer);
    return answers;
}

}  // namespace hx_test
