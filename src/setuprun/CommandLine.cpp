// The table of command-line options. Invalid input is ignored, never rejected.
#include <algorithm>
#include <array>
#include <cstring>

#include "setuprun/CInstallBase.h"
#include "setuprun/Schedulers.h"

namespace {

enum class Value {
    None,
    Text,          // if missing, ends the parsing
    OptionalText,  // if missing, empty
    Number         // if not a number, parsed as an option
};

struct Option {
    std::array<const char*, 4> spellings;
    Value value;
    void (*apply)(CInstallBase& run, const QString& text, int number);
};

void UseScheduler(CInstallBase& run, const hx::Scheduler& scheduler, const QString& queue) {
    run.m_queueType = CInstallBase::QueueExternal;
    run.m_scheduler = QLatin1String(scheduler.name);
    run.*scheduler.queue = queue;
}

constexpr std::array options = {
    Option{{"--cluster-node"},
           Value::None,
           [](CInstallBase& run, const QString&, int) {
               run.m_queueType = CInstallBase::QueueNone;
               run.m_interactive = false;
               run.m_clusterNode = true;
           }},
    Option{{"--user-mode"},
           Value::None,
           [](CInstallBase& run, const QString&, int) { run.m_userMode = true; }},
    Option{{"--setup"},
           Value::None,
           [](CInstallBase& run, const QString&, int) { run.m_setup = true; }},
    Option{{"-c", "-cd", "--cd-install"},
           Value::None,
           [](CInstallBase& run, const QString&, int) { run.m_cdInstall = true; }},
    Option{{"-d", "--scratch-directory"},
           Value::Text,
           [](CInstallBase& run, const QString& text, int) { run.m_scratchDir = text; }},
    Option{{"-s", "--scratch-limit"},
           Value::Number,
           [](CInstallBase& run, const QString&, int number) { run.m_argScratchLimitGB = number; }},
    Option{{"-m", "--memory-limit"},
           Value::Number,
           [](CInstallBase& run, const QString&, int number) { run.m_argMemoryLimitMB = number; }},
    Option{{"--internal-default-queue"},
           Value::None,
           [](CInstallBase& run, const QString&, int) {
               run.m_queueType = CInstallBase::QueueInternal;
           }},
    Option{{"--external-default-queue"},
           Value::None,
           [](CInstallBase& run, const QString&, int) {
               run.m_queueType = CInstallBase::QueueExternal;
               run.m_queueName.clear();
           }},
    Option{
        {"-q", "--external-queue"},
        Value::OptionalText,
        [](CInstallBase& run, const QString& text, int) { UseScheduler(run, hx::torque, text); }},
    // Compatibility: released scripts use the misspelled long form.
    Option{{"-p", "--external-partiton"},
           Value::OptionalText,
           [](CInstallBase& run, const QString& text, int) { UseScheduler(run, hx::slurm, text); }},
    Option{
        {"--no-queue"},
        Value::None,
        [](CInstallBase& run, const QString&, int) { run.m_queueType = CInstallBase::QueueNone; }},
    Option{
        {"--cli", "-cli", "--gui", "-gui"}, Value::None, [](CInstallBase&, const QString&, int) {}},
    Option{{"-g", "--service-group"},
           Value::Text,
           [](CInstallBase& run, const QString& text, int) { run.m_serviceGroup = text; }},
    Option{{"-u", "--service-user"},
           Value::Text,
           [](CInstallBase& run, const QString& text, int) { run.m_serviceUser = text; }},
};

const Option* FindOption(const char* word) {
    const auto matches = [word](const char* spelling) {
        return spelling != nullptr && std::strcmp(spelling, word) == 0;
    };
    for (const Option& option : options) {
        if (std::any_of(option.spellings.begin(), option.spellings.end(), matches))
            return &option;
    }
    return nullptr;
}

}  // namespace

bool CInstallBase::ParseUserModeArg(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--user-mode") == 0)
            return true;
    }
    return false;
}

void CInstallBase::ParseArgs(int argc, char** argv) {
    int i = 1;
    while (i < argc) {
        const Option* option = FindOption(argv[i++]);
        if (option == nullptr)
            continue;
        if (option->value == Value::None) {
            option->apply(*this, {}, 0);
            continue;
        }
        // QString::fromUtf8 returns an empty string for the null pointer at argv[argc].
        const QString text = QString::fromUtf8(argv[i]);
        bool isNumber = false;
        const int number = text.toInt(&isNumber);
        if (option->value == Value::Text && i == argc)
            return;
        if (option->value == Value::Number && !isNumber)
            continue;
        option->apply(*this, text, number);
        ++i;
    }
}
