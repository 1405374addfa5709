// The options, exit statuses and environment variables of cv_install: one source for --help, the
// manual page, the completion and the administrator's guide.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "ExitStatus.h"
#include "answers/AnswerTable.h"

enum class OptionValue {
    None,
    Flag,  // none, or "=true" or "=false" in the same word
    Text,
    OptionalText,  // may be missing at the end of the command line
    File,          // may be "-"
    Number
};

// The options of the executable itself; the library receives all others.
enum class OwnOption {
    None,
    Help,
    Version,
    Yes,
    Wait,
    DryRun,
    Diff,
    IfNeeded,
    Json,
    Restart,
    Repair,
    Undo,
    Force,
    Remove,
    Purge,
    Quiet,
    Verbose,
    Answers,
    SaveAnswers,
    Verify,
    Status
};

// The options for the queue that the library reads.
enum class QueueOption { None, Kind, KindAndName };

struct OptionUsage {
    // Separated by ", ". A long spelling comes last, and one that the library reads comes first.
    const char* spellings;
    OptionValue value = OptionValue::None;
    const char* valueName = nullptr;  // null without a value
    const char* meaning = nullptr;    // null: accepted, but not listed by --help
    const char* detail = nullptr;     // further sentences for the manual page and the guide
    OwnOption own = OwnOption::None;
    bool requiresRoot = false;
    const AnswerRow* answer = nullptr;  // the answer that it gives
    QueueOption queue = QueueOption::None;
};

struct StatusUsage {
    std::optional<ExitStatus> status;  // empty: the suffix alone
    const char* suffix;
    const char* meaning;
};

enum class VariableUse {
    Set,   // by the setup
    Kept,  // passed on to the tools that the setup runs
    Removed
};

struct VariableUsage {
    const char* name;  // may end with "*"
    VariableUse use;
    const char* meaning;
    const char* valueForRoot = nullptr;  // a setup as root sets it to this value
};

// Every option, including those of the executable itself and one for each row of the answer table.
std::span<const OptionUsage> Options();

// Every exit status, in the order of --help.
std::span<const StatusUsage> Statuses();

// Those of --verify.
std::span<const StatusUsage> VerificationStatuses();

// The variables that matter to a setup; the first match decides. A setup as root removes all
// others.
std::span<const VariableUsage> Variables();

// The option's spellings, one by one.
std::vector<std::string> Spellings(const OptionUsage& option);

// The status as documents show it, such as "0" or "128+n".
std::string Label(const StatusUsage& usage);

// The meaning with the value in a setup as root, if that sets one.
std::string Meaning(const VariableUsage& usage);

// True if `word` is one of the option's spellings.
bool HasSpelling(const OptionUsage& option, const char* word);

// True if the option's value is the next word, unless it follows an equals sign.
bool TakesNextWord(const OptionUsage& option);

// True for a value that an option of the kind File accepts: "-", or a name that is not an option.
bool IsFileName(std::string_view value);

void PrintHelp();
void PrintVersion();
