// The options of cv_install, and what --help prints.
#pragma once

#include <span>

enum class OptionValue {
    None,
    Text,
    OptionalText,  // may be missing at the end of the command line
    Number
};

struct OptionUsage {
    const char* spellings;  // separated by ", "; a long spelling comes last
    OptionValue value;
    const char* valueName;  // null without a value
    const char* meaning;    // null: accepted, but not worth a line of help
};

// Every option, those of the executable itself included.
std::span<const OptionUsage> Options();

// True if `word` is one of the option's spellings.
bool HasSpelling(const OptionUsage& option, const char* word);

void PrintHelp();
void PrintVersion();
