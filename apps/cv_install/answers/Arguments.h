// The command line of cv_install: removes its own options, and checks those of the library.
#pragma once

#include <map>
#include <vector>

#include "answers/Usage.h"

// The library silently ignores unknown words, so they are refused here: a mistyped limit must not
// become a default.
class Arguments {
public:
    // Keeps pointers into `argv`. Reports an unknown option, a missing or invalid value, and an
    // option that requires root, and ends the process with ExitStatus::UnusableArguments.
    Arguments(int argc, char** argv);

    bool Has(OwnOption option) const { return m_own.contains(option); }

    // The value of an option that takes a number; 0 without it.
    int NumberOf(OwnOption option) const;

    // The value of an option; null without it.
    const char* TextOf(OwnOption option) const;

    // The arguments for the library; argv() ends with a null pointer.
    int argc() const { return static_cast<int>(m_argv.size()) - 1; }
    char** argv() { return m_argv.data(); }

private:
    std::map<OwnOption, const char*> m_own;  // with their values; null without
    std::vector<char*> m_argv;
};
