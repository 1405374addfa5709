// The command line of cv_install: removes its own options, and checks those of the library.
#pragma once

#include <vector>

// The library silently ignores unknown words, so they are refused here: a mistyped limit must not
// become a default.
class Arguments {
public:
    // Keeps pointers into `argv`. Reports an unknown option and a missing or invalid value, and
    // ends the process with ExitStatus::UnusableArguments.
    Arguments(int argc, char** argv);

    bool help() const { return m_help; }
    bool version() const { return m_version; }
    bool yes() const { return m_yes; }
    bool submissionScripts() const { return m_submissionScripts; }

    // The arguments for the library; argv() ends with a null pointer.
    int argc() const { return static_cast<int>(m_argv.size()) - 1; }
    char** argv() { return m_argv.data(); }

private:
    bool TakeOwnOption(const char* word);

    bool m_help = false;
    bool m_version = false;
    bool m_yes = false;
    bool m_submissionScripts = false;
    std::vector<char*> m_argv;
};
