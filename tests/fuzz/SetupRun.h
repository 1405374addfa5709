// Setups as root with fuzzed input, for targets that check their fields. They write no files.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "setuprun/CInstallBase.h"

namespace hx_fuzz {

// Splits `input` into `count` sections at the lines "====".
std::vector<std::string> Sections(const std::string& input, size_t count);

// A command line: the name of the program, one word for each line of `text`, and a null pointer.
class Words {
public:
    explicit Words(const std::string& text);
    int argc() const { return static_cast<int>(m_words.size()); }
    char** argv() { return m_pointers.data(); }

private:
    std::vector<std::string> m_words;
    std::vector<char*> m_pointers;
};

// Constructs a setup from the arguments and the QueueLimits file, and calls `body` with it. Returns
// the status that the setup passed to exit(), or -1.
int RunOver(int argc, char** argv, const std::string& queueLimits,
            const std::function<void(CInstallBase&)>& body);

// Fails if the guard accepts a setup with an unsafe value in a field that no later check covers.
void ExpectGuarded(const CInstallBase& run);

}  // namespace hx_fuzz
