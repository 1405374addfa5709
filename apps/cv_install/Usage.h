// The options and exit statuses of cv_install: one source for --help, the manual page and the
// completion.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "ExitStatus.h"

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
    const char* detail;     // whole sentences for the manual page; null: the meaning says it all
};

struct StatusUsage {
    std::optional<ExitStatus> status;  // nothing: the suffix stands alone
    const char* suffix;
    const char* meaning;
};

// Every option, those of the executable itself included.
std::span<const OptionUsage> Options();

// Every exit status, in the order of --help.
std::span<const StatusUsage> Statuses();

// The option's spellings, one by one.
std::vector<std::string> Spellings(const OptionUsage& option);

// The status as it is told, such as "0" or "128+n".
std::string Label(const StatusUsage& usage);

// True if `word` is one of the option's spellings.
bool HasSpelling(const OptionUsage& option, const char* word);

void PrintHelp();
void PrintVersion();
