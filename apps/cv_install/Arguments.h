// The command line of cv_install: its own options taken out, the library's checked and passed on.
#pragma once

#include <vector>

// The library passes unknown words over without a word, so they are refused here: a mistyped limit
// must not silently become a default.
class Arguments {
public:
    // Keeps pointers into `argv`. Ends the process with ExitStatus::UnusableArguments, the reason
    // on stderr, when a word is unknown, lacks its value or has one that is not a number.
    Arguments(int argc, char** argv);

    bool help() const { return m_help; }
    bool version() const { return m_version; }
    bool yes() const { return m_yes; }
    bool submissionScripts() const { return m_submissionScripts; }

    // What the library gets; argv() ends with a null pointer.
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
