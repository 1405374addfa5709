#include "Conversation.h"

#include <unistd.h>

#include <array>
#include <cstdio>

#include "Letter.h"
#include "ScratchCheck.h"
#include "ValueGuard.h"

namespace {

// The fields that a text answer or a menu can change, so that a refused answer can be taken back
// before it is offered as a default.
class Answers {
public:
    explicit Answers(const CInstallBase& run) : m_queueType(run.m_queueType) {
        for (size_t i = 0; i < texts.size(); ++i)
            m_texts[i] = run.*texts[i];
        m_members = run.m_serviceMembers;
    }

    void Restore(CInstallBase& run) const {
        for (size_t i = 0; i < texts.size(); ++i)
            run.*texts[i] = m_texts[i];
        run.m_queueType = m_queueType;
        run.m_serviceMembers = m_members;
    }

private:
    static constexpr std::array texts = {
        &CInstallBase::m_scratchDir,    &CInstallBase::m_scheduler, &CInstallBase::m_queueName,
        &CInstallBase::m_qsubCmd,       &CInstallBase::m_qdelCmd,   &CInstallBase::m_qsigCmd,
        &CInstallBase::m_partitionName, &CInstallBase::m_sbatchCmd, &CInstallBase::m_scancelCmd};

    std::array<QString, texts.size()> m_texts;
    QStringList m_members;
    int m_queueType;
};

bool OnTerminal(const CInstallBase& run) {
    return run.m_interactive && isatty(STDIN_FILENO) != 0;
}

bool ConsoleIsClosed(const CInstallBase& run) {
    if (!PersonLeft(run))
        return false;
    std::printf("\n");
    std::fflush(stdout);
    std::fprintf(stderr, "cv_install: the console was closed, nothing has been changed\n");
    return true;
}

// Tells what the guard refuses; true when there is nothing.
bool ValuesAreUsable(const CInstallBase& run) {
    const std::optional<Refusal> refusal = FindRefusedValue(run);
    if (!refusal)
        return true;
    std::fflush(stdout);
    std::fprintf(stderr, "cv_install: %s\n", qUtf8Printable(Describe(*refusal)));
    return false;
}

ExitStatus TellNothingChanged() {
    std::fprintf(stderr, "    Nothing has been changed.\n");
    return ExitStatus::ValueRefused;
}

// Asks one question, again on a terminal while the guard refuses the answer.
ExitStatus Ask(CInstallBase& run, void (CInstallBase::*prompt)()) {
    const Answers before(run);
    for (;;) {
        (run.*prompt)();
        if (ConsoleIsClosed(run))
            return ExitStatus::ConsoleClosed;
        if (ValuesAreUsable(run))
            return ExitStatus::Complete;
        if (!OnTerminal(run))
            return TellNothingChanged();
        before.Restore(run);
    }
}

bool WantsAnotherDirectory() {
    return AskForLetter("Choose another directory? [Y/n] ") != 'n';
}

// The library takes any directory, so an unsuitable one is told here, while it can be taken back.
ExitStatus AskForScratchDirectory(CInstallBase& run) {
    const Answers before(run);
    for (;;) {
        const ExitStatus status = Ask(run, &CInstallBase::PromptScratchDirectory);
        if (status != ExitStatus::Complete)
            return status;
        const QString problem = FindScratchProblem(run.m_scratchDir);
        if (problem.isEmpty())
            return ExitStatus::Complete;
        CInstallBase::InstallWarning(problem, 0);
        if (!OnTerminal(run))
            return ExitStatus::Complete;
        const bool again = WantsAnotherDirectory();
        if (ConsoleIsClosed(run))
            return ExitStatus::ConsoleClosed;
        if (!again)
            return ExitStatus::Complete;
        before.Restore(run);
    }
}

// The library offers what its division gives, 0 included.
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
            QStringLiteral("The %1 limit per thread is 0 %2: there is less than 1 %2 for each of "
                           "%3 threads.\n    Give a limit with %4, or a lower job limit.")
                .arg(QLatin1String(limit.name), QLatin1String(limit.unit))
                .arg(run.m_jobLimit)
                .arg(QLatin1String(limit.option)),
            0);
    }
}

}  // namespace

bool PersonLeft(const CInstallBase& run) {
    return OnTerminal(run) && std::feof(stdin) != 0;
}

ExitStatus AskQuestions(CInstallBase& run) {
    // Options and the answers of the last installation come before any question.
    if (!ValuesAreUsable(run))
        return TellNothingChanged();
    ExitStatus status = Ask(run, &CInstallBase::PromptJobLimit);
    if (status == ExitStatus::Complete)
        status = Ask(run, &CInstallBase::PromptMemoryLimit);
    if (status == ExitStatus::Complete)
        status = AskForScratchDirectory(run);
    if (status == ExitStatus::Complete)
        status = Ask(run, &CInstallBase::PromptScratchLimit);
    if (status == ExitStatus::Complete)
        status = Ask(run, &CInstallBase::PromptQueueType);
    if (status == ExitStatus::Complete && run.m_accessFlags == CInstallBase::RootAccess)
        status = Ask(run, &CInstallBase::PromptComputeServiceGroupMembers);
    if (status == ExitStatus::Complete)
        WarnOfLimitsOfZero(run);
    return status;
}
