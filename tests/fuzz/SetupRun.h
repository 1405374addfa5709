// Setup runs by root over an input, for targets that look at their fields. Nothing is written.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "setuprun/CInstallBase.h"

namespace hx_fuzz {

// A text taken apart into sections, which lines of "====" separate.
std::vector<std::string> Sections(const std::string& input, size_t count);

// A command line: the name of the program, then one word for each line of `text`, and a null
// pointer.
class Words {
public:
    explicit Words(const std::string& text);
    int argc() const { return static_cast<int>(m_words.size()); }
    char** argv() { return m_pointers.data(); }

private:
    std::vector<std::string> m_words;
    std::vector<char*> m_pointers;
};

// Constructs a run of these arguments over this QueueLimits file, calls `body` with it, and
// returns the status with which the run ended the process, or -1.
int RunOver(int argc, char** argv, const std::string& queueLimits,
            const std::function<void(CInstallBase&)>& body);

// The script's values that no later check looks at must be harmless: this fails unless those of an
// accepted run are.
void ExpectGuarded(const CInstallBase& run);

}  // namespace hx_fuzz
