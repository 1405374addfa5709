#include "answers/Usage.h"

#include <cstdio>

#include "installation/Installation.h"

namespace {

void PrintOption(const OptionUsage& option) {
    if (option.meaning == nullptr)
        return;
    char left[64];
    std::snprintf(left, sizeof left, "%s %s", option.spellings,
                  option.valueName == nullptr ? "" : option.valueName);
    std::printf("  %-38s %s\n", left, option.meaning);
}

void PrintStatuses(const char* title, std::span<const StatusUsage> statuses) {
    std::printf("\n%s\n", title);
    for (const StatusUsage& usage : statuses)
        std::printf("  %4s  %s\n", Label(usage).c_str(), usage.meaning);
}

}  // namespace

void PrintHelp() {
    std::printf(R"(Usage: cv_install --setup [OPTION]...

Sets up Corvane'26: measures the machine, asks for limits and a queue, writes
the Q-Chem files to the install directory, then writes a bash script to /tmp
that creates the rest of the installation, and runs it.
As root, it sets up %s for all users. With --user-mode, a regular
user sets up a private copy in the product directory, or %s if that
is writable.

)",
                sharedDirectory, sharedDirectory);
    for (const OptionUsage& option : Options())
        PrintOption(option);
    PrintStatuses("Exit status:", Statuses());
    PrintStatuses("Exit status of --verify:", VerificationStatuses());
}

void PrintVersion() {
    std::printf("cv_install %s (Corvane'26)\n", HX_VERSION);
}
