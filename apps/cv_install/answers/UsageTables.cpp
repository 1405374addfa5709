// The tables for --help, the manual page, the completion and the guide.
#include <algorithm>
#include <string_view>

#include "answers/Usage.h"

namespace {

constexpr OptionUsage setupOptions[] = {
    {"--setup", OptionValue::None, nullptr, "set up the product; the run script passes it",
     "The program sets up the product without this option, too."},
    {"--user-mode", OptionValue::None, nullptr, "let a regular user create a private copy",
     "Without it, a regular user gets exit status 1. For root, only the Q-Chem files are also "
     "reported."},
    {"--yes", OptionValue::None, nullptr,
     "repeat what was chosen before, otherwise use defaults; internal queue if none is chosen",
     "The plan of a setup as root is shown but not confirmed.", OwnOption::Yes},
    {"--answers", OptionValue::File, "FILE", "read answers from FILE; - for standard input",
     "The questions of these answers are skipped. An option overrides an answer of FILE. With -, "
     "also use --yes.",
     OwnOption::Answers},
    {"--save-answers", OptionValue::File, "FILE",
     "write all answers of this setup to FILE; - for standard output",
     "For --answers. An existing FILE is replaced, with mode 600. With -, all other output goes to "
     "standard error.",
     OwnOption::SaveAnswers},
};

// Between them, Options() has an option for each answer.
constexpr OptionUsage furtherOptions[] = {
    {"--internal-default-queue", OptionValue::None, nullptr, "same as --queue=internal",
     "The last of several queue options applies.", OwnOption::None, false, nullptr,
     QueueOption::Kind},
    {"--external-default-queue", OptionValue::None, nullptr,
     "use Torque/OpenPBS with its default queue",
     "The commands are those below /opt/pbs/bin if qsub exists there, and otherwise those below "
     "/usr/local/bin. After an option for Slurm, it keeps Slurm.",
     OwnOption::None, false, nullptr, QueueOption::KindAndName},
    {"-q, --external-queue", OptionValue::OptionalText, "QUEUE", "use this queue of Torque/OpenPBS",
     "As the last word of the command line, it needs no name and selects the default queue. The "
     "commands are found as for --external-default-queue.",
     OwnOption::None, false, nullptr, QueueOption::KindAndName},
    {"-p, --external-partiton, --external-partition", OptionValue::OptionalText, "PARTITION",
     "use this partition of Slurm",
     "As the last word of the command line, it needs no name and selects the default partition. "
     "The commands are /usr/bin/sbatch and /usr/bin/scancel. The misspelled form is for "
     "compatibility.",
     OwnOption::None, false, nullptr, QueueOption::KindAndName},
    {"--no-queue", OptionValue::None, nullptr, "same as --queue=none",
     "The report of the queue still prints External and lists the commands of the scheduler.",
     OwnOption::None, false, nullptr, QueueOption::Kind},
    {"--wait", OptionValue::Number, "SECONDS", "wait for another setup to end",
     "Without it, the setup ends at once with exit status 64 while another one is running.",
     OwnOption::Wait},
    {"--dry-run", OptionValue::None, nullptr, "show what a setup would change, then end",
     "The setup asks, checks and reports as usual, but changes nothing.", OwnOption::DryRun},
    {"--diff", OptionValue::None, nullptr,
     "with --dry-run, also show how the contents of files change",
     "Text files as unified diffs, other files by size and checksum. Without --dry-run, answer d "
     "at "
     "the plan.",
     OwnOption::Diff},
    {"--if-needed", OptionValue::None, nullptr, "do nothing if a setup would change nothing",
     "The setup then ends with \"Nothing to do.\" A service that an administrator stopped or "
     "disabled stays so, unless something else changes.",
     OwnOption::IfNeeded},
    {"--json", OptionValue::File, "FILE", "write a report to FILE as JSON; - for stdout",
     "It is written at every end, also of a failing setup. An existing FILE is replaced. With -, "
     "all other output goes to standard error.",
     OwnOption::Json},
    {"--quiet", OptionValue::None, nullptr, "print only problems, questions, and one summary line",
     "The log contains everything. It is the default on a compute node.", OwnOption::Quiet},
    {"--verbose", OptionValue::None, nullptr,
     "also print what a setup keeps, and the output of the commit script", "Overrides --quiet.",
     OwnOption::Verbose},
    {"--restart", OptionValue::None, nullptr,
     "restart the service even if nothing that it uses has changed",
     "Only for root. Without it, the setup restarts the service only after such a change.",
     OwnOption::Restart, true},
    {"--repair", OptionValue::None, nullptr,
     "restore what differs from the previous setup, as far as a setup created it, then end",
     "For root, and for users in a private copy. What --verify reports is restored without "
     "questions and with the recorded answers. What is not the setup's is listed and left as it "
     "is.",
     OwnOption::Repair},
    {"--undo", OptionValue::None, nullptr, "restore the state before the previous setup, then end",
     "What was changed after the setup is listed and kept. The plan is shown and "
     "must be confirmed.",
     OwnOption::Undo},
    {"--force", OptionValue::None, nullptr,
     "with --undo, also restore what was changed after the setup", nullptr, OwnOption::Force},
    {"--remove", OptionValue::None, nullptr,
     "remove what setups created and restore the state before the first one, then end",
     "Settings, log, record and service account stay, and so does what was changed after the "
     "setup. The plan is shown and must be confirmed. For a regular user, it removes the setup of "
     "the private copy.",
     OwnOption::Remove},
    {"--purge", OptionValue::None, nullptr,
     "with --remove, also remove settings, log, record and service account",
     "For a regular user: settings and record.", OwnOption::Purge},
    {"-c, -cd, --cd-install"},
    {"-cli, --cli"},
    {"-gui, --gui"},
    {"--verify", OptionValue::None, nullptr,
     "compare the machine with what the previous setup left, then end",
     "For root and regular users. It takes no lock and sets nothing up. It has exit statuses of "
     "its own.",
     OwnOption::Verify},
    {"--status", OptionValue::None, nullptr, "show what is installed, then end",
     "For root and regular users. It takes no lock and changes nothing.", OwnOption::Status},
    {"-h, --help", OptionValue::None, nullptr, "print this text", nullptr, OwnOption::Help},
    {"--version", OptionValue::None, nullptr, "print the version", nullptr, OwnOption::Version},
};

// The option of an answer. `spellings` must remain.
OptionUsage OptionOf(const AnswerRow& row, const std::string& spellings) {
    return {.spellings = spellings.c_str(),
            .value = row.kind == AnswerKind::Flag     ? OptionValue::Flag
                     : row.kind == AnswerKind::Number ? OptionValue::Number
                                                      : OptionValue::Text,
            .valueName = row.valueName,
            .meaning = row.meaning,
            .detail = row.detail,
            .answer = &row};
}

std::vector<OptionUsage> JoinOptions() {
    static const std::vector<std::string> spellings = [] {
        std::vector<std::string> all;
        for (const AnswerRow& row : AnswerRows())
            all.push_back((row.shortOption == nullptr ? "" : row.shortOption + std::string(", ")) +
                          "--" + row.key);
        return all;
    }();
    std::vector<OptionUsage> all(std::begin(setupOptions), std::end(setupOptions));
    for (const AnswerRow& row : AnswerRows())
        all.push_back(OptionOf(row, spellings[static_cast<size_t>(row.id)]));
    all.insert(all.end(), std::begin(furtherOptions), std::end(furtherOptions));
    return all;
}

constexpr StatusUsage statuses[] = {
    {ExitStatus::Complete, "", "setup completed"},
    {ExitStatus::Refused, "",
     "neither root nor --user-mode, or a step of the commit script failed"},
    {ExitStatus::SystemCallFailed, "", "cannot measure the machine, or a system call failed"},
    {ExitStatus::UnusableArguments, "", "invalid command line or answers file"},
    {ExitStatus::ValueRefused, "", "invalid value: it would change the commit script's meaning"},
    {ExitStatus::ScriptNotWritten, "", "cannot write the commit script"},
    {ExitStatus::ScriptNotStarted, "", "cannot start the commit script"},
    {ExitStatus::ConsoleClosed, "", "end of input at a question on a terminal"},
    {ExitStatus::TreeRefused, "", "the install tree is unsafe, or this user cannot write to it"},
    {ExitStatus::Declined, "", "answers or plan not confirmed"},
    {ExitStatus::Incomplete, "", "setup completed, but a file is incomplete"},
    {ExitStatus::NoWorkingDirectory, "", "no working directory"},
    {ExitStatus::Locked, "", "another setup is running"},
    {ExitStatus::ChecksFailed, "", "a check before the setup failed"},
    {ExitStatus::ServiceNotRunning, "", "setup completed, but the service is not running"},
    {ExitStatus::NoDryRun, "", "a dry run is impossible on this machine"},
    {ExitStatus::RecordUnusable, "", "the record of the setup is missing or damaged"},
    {ExitStatus::SignalBase, "+n", "signal n terminated the setup"},
    {std::nullopt, "errno", "cannot open a submission script, for this reason"},
};

constexpr StatusUsage verificationStatuses[] = {
    {ExitStatus::Complete, "", "as the previous setup left it"},
    {ExitStatus::Differs, "", "differences"},
    {ExitStatus::NotVerified, "", "cannot be verified: no record, a damaged one, or a failure"},
};

constexpr VariableUsage variables[] = {
    {"PATH", VariableUse::Kept, "directories in which df is searched for",
     "/usr/sbin:/usr/bin:/sbin:/bin"},
    {"HOME", VariableUse::Kept, "passed on to the tools"},
    {"LANG", VariableUse::Kept, "language of the tools"},
    {"LANGUAGE", VariableUse::Kept, "language of the tools"},
    {"LC_*", VariableUse::Kept, "language of the tools"},
    {"LOGNAME", VariableUse::Kept, "passed on to the tools"},
    {"SHELL", VariableUse::Kept, "passed on to the tools"},
    {"SUDO_*", VariableUse::Kept, "passed on to the tools"},
    {"TERM", VariableUse::Kept, "passed on to the tools"},
    {"TZ", VariableUse::Kept, "time zone of the tools"},
    {"USER", VariableUse::Kept, "passed on to the tools"},
    {"CORV_CORVANERC", VariableUse::Set, "install directory"},
    {"CORV_ACCESS", VariableUse::Set, "install directory"},
    {"CORV_INSTALL", VariableUse::Set, "product directory"},
    {"CORV_*", VariableUse::Removed, "settings of another run script"},
    {"BLOCKSIZE", VariableUse::Removed, "changes the unit in which df reports free space"},
    {"BLOCK_SIZE", VariableUse::Removed, "changes the unit in which df reports free space"},
    {"DF_BLOCK_SIZE", VariableUse::Removed, "changes the unit in which df reports free space"},
    {"POSIXLY_CORRECT", VariableUse::Removed, "changes the unit in which df reports free space"},
    {"TAR_OPTIONS", VariableUse::Removed, "changes what tar unpacks"},
};

}  // namespace

std::span<const OptionUsage> Options() {
    static const std::vector<OptionUsage> all = JoinOptions();
    return all;
}

std::span<const StatusUsage> Statuses() {
    return statuses;
}

std::span<const StatusUsage> VerificationStatuses() {
    return verificationStatuses;
}

std::span<const VariableUsage> Variables() {
    return variables;
}

std::vector<std::string> Spellings(const OptionUsage& option) {
    std::vector<std::string> spellings;
    std::string_view rest = option.spellings;
    for (size_t comma; (comma = rest.find(", ")) != std::string_view::npos;) {
        spellings.emplace_back(rest.substr(0, comma));
        rest.remove_prefix(comma + 2);
    }
    spellings.emplace_back(rest);
    return spellings;
}

std::string Label(const StatusUsage& usage) {
    const std::string number =
        usage.status ? std::to_string(static_cast<int>(*usage.status)) : std::string();
    return number + usage.suffix;
}

std::string Meaning(const VariableUsage& usage) {
    const std::string meaning = usage.meaning;
    return usage.valueForRoot == nullptr
               ? meaning
               : meaning + "; a setup as root sets it to " + usage.valueForRoot;
}

bool HasSpelling(const OptionUsage& option, const char* word) {
    const std::vector<std::string> spellings = Spellings(option);
    return std::find(spellings.begin(), spellings.end(), word) != spellings.end();
}

bool TakesNextWord(const OptionUsage& option) {
    return option.value != OptionValue::None && option.value != OptionValue::Flag;
}

bool IsFileName(std::string_view value) {
    return value == "-" || (!value.empty() && value.front() != '-');
}
