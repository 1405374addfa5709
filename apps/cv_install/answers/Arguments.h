// The command line of cv_install: removes its own options, and checks those of the library.
#pragma once

#include <deque>
#include <map>
#include <string>
#include <vector>

#include "answers/Answers.h"
#include "answers/Usage.h"

// The library silently ignores unknown words, so they are refused here: a mistyped limit must not
// become a default.
class Arguments {
public:
    // Keeps pointers into `argv`. Reports an unknown option, a missing or invalid value, and
    // options that require root or each other, and ends the process with
    // ExitStatus::UnusableArguments.
    Arguments(int argc, char** argv);

    bool Has(OwnOption option) const { return m_own.contains(option); }

    // The value of an option that takes a number; 0 without it.
    int NumberOf(OwnOption option) const;

    // The value of an option; null without it.
    const char* TextOf(OwnOption option) const;

    // True if the value of this option is "-".
    bool UsesStream(OwnOption option) const;

    // The answers that options give. `run` was constructed with these arguments.
    Answers AnswersIn(const CInstallBase& run) const;

    // The arguments for the library; argv() ends with a null pointer.
    int argc() const { return static_cast<int>(m_argv.size()) - 1; }
    char** argv() { return m_argv.data(); }

private:
    void Take(const OptionUsage& option, const std::string& word, const char* value);
    void TakeAnswer(const AnswerRow& row, const std::string& word, const char* text);
    void PassOn(const OptionUsage& option, const char* value);
    void RefuseTwoActions() const;
    void RefuseOptionsOfSetups() const;
    void CheckTogether() const;

    std::map<OwnOption, const char*> m_own;  // with their values; null without
    Answers m_answers;
    QueueOption m_queue = QueueOption::None;  // the last option for the queue
    std::deque<std::string> m_passedOn;
    std::vector<char*> m_argv;
};
