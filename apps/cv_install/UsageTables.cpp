// The tables behind --help, the manual page and the completion.
#include <algorithm>
#include <string_view>

#include "Usage.h"

namespace {

constexpr OptionUsage options[] = {
    {"--setup", OptionValue::None, nullptr, "set up the product; the run script passes it",
     "The program sets up in any case; the word makes the command line read as what it does."},
    {"--user-mode", OptionValue::None, nullptr, "let a user other than root make a private copy",
     "Without it a user other than root is refused with status 1. For root it changes nothing but "
     "that the Q-Chem files are reported."},
    {"--yes", OptionValue::None, nullptr,
     "answer every question with its default; internal queue if none is chosen",
     "Pauses do not wait, and the plan of a setup by root is shown but not asked about."},
    {"--cluster-node", OptionValue::None, nullptr,
     "set up a compute node of a cluster: no questions, no queue, no service",
     "Every question is answered with its default, and the plan of a setup by root is agreed to. "
     "The pages of the compute service are not unpacked. "
     "An option of a queue that stands behind this one takes effect."},
    {"-d, --scratch-directory", OptionValue::Text, "DIR", "scratch directory to offer",
     "The directory of the last setup wins over it: it is the default that is offered then. The "
     "default without either is /tmp."},
    {"-s, --scratch-limit", OptionValue::Number, "GB", "scratch space per thread, not asked then",
     "In gigabytes of 2^30 bytes, 1 to 2147483647. With 0 or less the question is asked all the "
     "same."},
    {"-m, --memory-limit", OptionValue::Number, "MB", "memory per thread, not asked then",
     "In megabytes of 2^20 bytes, 1 to 2147483647. With 0 or less the question is asked all the "
     "same."},
    {"--internal-default-queue", OptionValue::None, nullptr, "use the built-in queue",
     "The queue is not asked about then. Of several options for a queue the last one wins."},
    {"--external-default-queue", OptionValue::None, nullptr,
     "use Torque/OpenPBS with its default queue",
     "The commands are those below /opt/pbs/bin if qsub is there, and otherwise those below "
     "/usr/local/bin; only the question lets you name others. Behind an option for Slurm it "
     "keeps Slurm."},
    {"-q, --external-queue", OptionValue::OptionalText, "QUEUE", "use this queue of Torque/OpenPBS",
     "At the end of the command line the name may be missing, which means the default queue. The "
     "commands are found as above."},
    {"-p, --external-partiton", OptionValue::OptionalText, "PARTITION",
     "use this partition of Slurm (the long form is spelt this way)",
     "At the end of the command line the name may be missing, which means the default partition. "
     "The commands are /usr/bin/sbatch and /usr/bin/scancel; only the question lets you name "
     "others."},
    {"--no-queue", OptionValue::None, nullptr, "use no queue",
     "The report of the queue then says External all the same, and lists the commands of the "
     "scheduler."},
    {"--submission-scripts", OptionValue::None, nullptr,
     "write the scripts that submit jobs through Samba and SSH too",
     "Scripts that are there already are written again, and lose what was edited in them."},
    {"-g, --service-group", OptionValue::Text, "GROUP", "group of the compute service",
     "The default is corvsrvc. The present members that are offered are always those of corvsrvc."},
    {"-u, --service-user", OptionValue::Text, "USER", "user of the compute service",
     "The default is corvsrvc."},
    {"-c, -cd, --cd-install", OptionValue::None, nullptr, nullptr, nullptr},
    {"-cli, --cli", OptionValue::None, nullptr, nullptr, nullptr},
    {"-gui, --gui", OptionValue::None, nullptr, nullptr, nullptr},
    {"--help", OptionValue::None, nullptr, "print this text", "Nothing else is done."},
    {"--version", OptionValue::None, nullptr, "print the version", "Nothing else is done."},
};

constexpr StatusUsage statuses[] = {
    {ExitStatus::Complete, "", "the commit script went to its end"},
    {ExitStatus::Refused, "", "not root and no --user-mode, or a step of the commit script failed"},
    {ExitStatus::SystemCallFailed, "",
     "the machine could not be measured, or a system call failed"},
    {ExitStatus::UnusableArguments, "", "the command line cannot be used"},
    {ExitStatus::ValueRefused, "", "a value would change the meaning of the commit script"},
    {ExitStatus::ScriptNotWritten, "", "the commit script could not be written"},
    {ExitStatus::ScriptNotStarted, "", "the commit script could not be started"},
    {ExitStatus::ConsoleClosed, "", "the console was closed at a question"},
    {ExitStatus::TreeRefused, "",
     "the install tree cannot, or must not, be written to by this user"},
    {ExitStatus::Declined, "", "the plan was not agreed to"},
    {ExitStatus::Incomplete, "", "the commit script went to its end, but a file is not complete"},
    {ExitStatus::NoWorkingDirectory, "", "there is no working directory"},
    {ExitStatus::SignalBase, "+n", "signal n ended the commit script"},
    {std::nullopt, "errno", "a submission script could not be opened for this reason"},
};

}  // namespace

std::span<const OptionUsage> Options() {
    return options;
}

std::span<const StatusUsage> Statuses() {
    return statuses;
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

bool HasSpelling(const OptionUsage& option, const char* word) {
    const std::vector<std::string> spellings = Spellings(option);
    return std::find(spellings.begin(), spellings.end(), word) != spellings.end();
}
