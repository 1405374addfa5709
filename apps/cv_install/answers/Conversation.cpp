#include "answers/Conversation.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <vector>

#include "answers/ValueGuard.h"
#include "apply/Console.h"
#include "installation/SetupRun.h"
#include "setuprun/Schedulers.h"
#include "support/HXfgets.h"

namespace {

// The fields that a text answer or a menu can change, so that a refused answer is not offered as a
// default.
class EarlierAnswers {
public:
    explicit EarlierAnswers(const CInstallBase& run)
        : m_members(run.m_serviceMembers), m_queueType(run.m_queueType) {
        for (const auto field : Fields())
            m_texts.push_back(run.*field);
    }

    void Restore(CInstallBase& run) const {
        auto text = m_texts.begin();
        for (const auto field : Fields())
            run.*field = *text++;
        run.m_queueType = m_queueType;
        run.m_serviceMembers = m_members;
    }

private:
    static std::vector<QString CInstallBase::*> Fields() {
        std::vector<QString CInstallBase::*> fields = {&CInstallBase::m_scratchDir,
                                                       &CInstallBase::m_scheduler};
        for (const hx::Scheduler& scheduler : hx::schedulers) {
            fields.push_back(scheduler.queue);
            for (const hx::SchedulerCommand& command : scheduler.commands)
                fields.push_back(command.path);
        }
        return fields;
    }

    std::vector<QString> m_texts;
    QStringList m_members;
    int m_queueType;
};

bool OnTerminal(const CInstallBase& run) {
    return run.m_interactive && isatty(STDIN_FILENO) != 0;
}

Problem EndOfInput() {
    std::printf("\n");
    return {ExitStatus::ConsoleClosed,
            QStringLiteral("setup canceled: end of input at a question"),
            {}};
}

// Asks one question, on a terminal until the answer is valid.
Failure Ask(CInstallBase& run, void (CInstallBase::*prompt)()) {
    const EarlierAnswers before(run);
    for (;;) {
        (run.*prompt)();
        if (InputEnded(run))
            return EndOfInput();
        Failure invalid = FindInvalidValue(run);
        if (!invalid || !OnTerminal(run))
            return invalid;
        invalid->changes = Changes::Unknown;
        Report(*invalid);
        before.Restore(run);
    }
}

// Returns why jobs will fail in this directory; empty when it is suitable.
QString DescribeUnsuitableScratch(const QString& directory) {
    const QByteArray path = directory.toUtf8();
    struct stat found = {};
    if (!directory.startsWith(u'/'))
        return QStringLiteral(
            "is not an absolute path. Each job resolves it in its own working directory.");
    if (stat(path.constData(), &found) != 0)
        return QStringLiteral(
                   "cannot be accessed: %1\n"
                   "    Create it, or jobs that need scratch space will fail.")
            .arg(qt_error_string(errno));
    if (!S_ISDIR(found.st_mode))
        return QStringLiteral("is not a directory. Jobs that need scratch space will fail.");
    if (access(path.constData(), W_OK | X_OK) != 0)
        return QStringLiteral("is not writable. Jobs that need scratch space will fail.");
    return {};
}

// The library accepts any directory. An unsuitable one is reported here, while it can be changed.
Failure AskForScratchDirectory(CInstallBase& run,
                               const std::function<void(const QString&)>& chosen) {
    const EarlierAnswers before(run);
    for (;;) {
        if (Failure failure = Ask(run, &CInstallBase::PromptScratchDirectory))
            return failure;
        if (chosen)
            chosen(run.m_scratchDir);
        const QString reason = DescribeUnsuitableScratch(run.m_scratchDir);
        if (reason.isEmpty())
            return {};
        CInstallBase::InstallWarning(
            QStringLiteral("The scratch directory \"%1\" ").arg(run.m_scratchDir) + reason, 0);
        if (!OnTerminal(run))
            return {};
        const bool change = AskYesNo("Choose another directory? [Y/n] ", true);
        if (InputEnded(run))
            return EndOfInput();
        if (!change)
            return {};
        before.Restore(run);
    }
}

// The library offers the result of its division, including 0.
void WarnOfLimitsOfZero(const CInstallBase& run) {
    struct Limit {
        int value;
        const char* name;
        const char* unit;
        const char* option;
    };
    for (const Limit& limit : {Limit{run.m_memoryLimitMB, "memory", "MB", "-m"},
                               Limit{run.m_scratchLimitGB, "scratch", "GB", "-s"}}) {
        if (limit.value > 0)
            continue;
        CInstallBase::InstallWarning(
            QStringLiteral(
                "The %1 limit per thread is 0 %2: less than 1 %2 is available for each of %3 "
                "threads.\n    Set a limit with %4 or lower the job limit.")
                .arg(QLatin1String(limit.name), QLatin1String(limit.unit))
                .arg(run.m_jobLimit)
                .arg(QLatin1String(limit.option)),
            0);
    }
}

}  // namespace

Failure AskQuestions(CInstallBase& run, const std::function<void(const QString&)>& scratchChosen) {
    const Console::Printing printing(run.m_interactive ? Console::Importance::Needed
                                                       : Console::Importance::Usual);
    // Options and the previous setup's answers are checked before any question.
    Failure failure = FindInvalidValue(run);
    if (!failure)
        failure = Ask(run, &CInstallBase::PromptJobLimit);
    if (!failure)
        failure = Ask(run, &CInstallBase::PromptMemoryLimit);
    if (!failure)
        failure = AskForScratchDirectory(run, scratchChosen);
    if (!failure)
        failure = Ask(run, &CInstallBase::PromptScratchLimit);
    if (!failure)
        failure = Ask(run, &CInstallBase::PromptQueueType);
    if (!failure && IsRootSetup(run))
        failure = Ask(run, &CInstallBase::PromptComputeServiceGroupMembers);
    if (!failure)
        WarnOfLimitsOfZero(run);
    return failure;
}

bool InputEnded(const CInstallBase& run) {
    return OnTerminal(run) && std::feof(stdin) != 0;
}

bool AskYesNo(const char* question, bool preset) {
    for (;;) {
        std::fputs(question, stdout);
        std::fflush(stdout);
        std::array<char, 1024> line = {};
        HXfgets(line.data(), static_cast<int>(line.size()), stdin);
        const QByteArray answer = QByteArray(line.data()).trimmed().toLower();
        if (answer.isEmpty())
            return preset;
        if (answer == "y" || answer == "yes")
            return true;
        if (answer == "n" || answer == "no" || isatty(STDIN_FILENO) == 0)
            return false;
        std::printf("Please answer y or n.\n");
    }
}
