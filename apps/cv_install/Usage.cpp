#include "Usage.h"

#include <cstdio>
#include <string_view>

#include "ExitStatus.h"

namespace {

constexpr OptionUsage options[] = {
    {"--setup", OptionValue::None, nullptr, "set up the product; the run script passes it"},
    {"--user-mode", OptionValue::None, nullptr, "let a user other than root make a private copy"},
    {"--yes", OptionValue::None, nullptr,
     "answer every question with its default; internal queue if none is chosen"},
    {"--cluster-node", OptionValue::None, nullptr,
     "set up a compute node of a cluster: no questions, no queue, no service"},
    {"-d, --scratch-directory", OptionValue::Text, "DIR", "scratch directory to offer"},
    {"-s, --scratch-limit", OptionValue::Number, "GB", "scratch space per thread, not asked then"},
    {"-m, --memory-limit", OptionValue::Number, "MB", "memory per thread, not asked then"},
    {"--internal-default-queue", OptionValue::None, nullptr, "use the built-in queue"},
    {"--external-default-queue", OptionValue::None, nullptr,
     "use Torque/OpenPBS with its default queue"},
    {"-q, --external-queue", OptionValue::OptionalText, "QUEUE",
     "use this queue of Torque/OpenPBS"},
    {"-p, --external-partiton", OptionValue::OptionalText, "PARTITION",
     "use this partition of Slurm (the long form is spelt this way)"},
    {"--no-queue", OptionValue::None, nullptr, "use no queue"},
    {"--submission-scripts", OptionValue::None, nullptr,
     "write the scripts that submit jobs through Samba and SSH too"},
    {"-g, --service-group", OptionValue::Text, "NAME", "group of the compute service"},
    {"-u, --service-user", OptionValue::Text, "NAME", "user of the compute service"},
    {"-c, -cd, --cd-install", OptionValue::None, nullptr, nullptr},
    {"-cli, --cli", OptionValue::None, nullptr, nullptr},
    {"-gui, --gui", OptionValue::None, nullptr, nullptr},
    {"--help", OptionValue::None, nullptr, "print this text"},
    {"--version", OptionValue::None, nullptr, "print the version"},
};

struct StatusUsage {
    ExitStatus status;
    const char* meaning;
};

constexpr StatusUsage statuses[] = {
    {ExitStatus::Complete, "the commit script went to its end"},
    {ExitStatus::Refused, "not root and no --user-mode, or a step of the commit script failed"},
    {ExitStatus::SystemCallFailed, "the machine could not be measured, or a system call failed"},
    {ExitStatus::UnusableArguments, "the command line cannot be used"},
    {ExitStatus::ValueRefused, "a value would change the meaning of the commit script"},
    {ExitStatus::ScriptNotWritten, "the commit script could not be written"},
    {ExitStatus::ScriptNotStarted, "the commit script could not be started"},
    {ExitStatus::ConsoleClosed, "the console was closed at a question"},
    {ExitStatus::TreeRefused, "the install tree holds what this user must not write through"},
    {ExitStatus::Declined, "the plan was not agreed to"},
    {ExitStatus::NoWorkingDirectory, "there is no working directory"},
};

void PrintOption(const OptionUsage& option) {
    if (option.meaning == nullptr)
        return;
    char left[64];
    std::snprintf(left, sizeof left, "%s %s", option.spellings,
                  option.valueName == nullptr ? "" : option.valueName);
    std::printf("  %-38s %s\n", left, option.meaning);
}

}  // namespace

std::span<const OptionUsage> Options() {
    return options;
}

bool HasSpelling(const OptionUsage& option, const char* word) {
    std::string_view rest = option.spellings;
    for (;;) {
        const size_t comma = rest.find(", ");
        if (rest.substr(0, comma) == word)
            return true;
        if (comma == std::string_view::npos)
            return false;
        rest.remove_prefix(comma + 2);
    }
}

void PrintHelp() {
    std::fputs(R"(Usage: cv_install --setup [OPTION]...

Sets up Corvane'26: measures the machine, asks for the limits of jobs, writes
the files of Q-Chem into the install directory, then writes one bash script to
/tmp that makes the rest of the installation, and runs it.
As root it sets up /var/corvane for all users; with --user-mode another user
sets up a private copy beside the program, or /var/corvane where that is
writable.

)",
               stdout);
    for (const OptionUsage& option : options)
        PrintOption(option);
    std::fputs("\nExit status:\n", stdout);
    for (const StatusUsage& usage : statuses)
        std::printf("  %4d  %s\n", static_cast<int>(usage.status), usage.meaning);
    std::printf("  %d+n  signal n ended the commit script\n",
                static_cast<int>(ExitStatus::SignalBase));
    std::printf("  errno  a submission script could not be opened for this reason\n");
}

void PrintVersion() {
    std::printf("cv_install %s (Corvane'26)\n", HX_VERSION);
}
