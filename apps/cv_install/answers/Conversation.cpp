#include "answers/Conversation.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <initializer_list>
#include <optional>
#include <vector>

#include "Console.h"
#include "answers/HomePath.h"
#include "answers/Review.h"
#include "answers/ValueGuard.h"
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

    // For paths that were typed since.
    void ExpandHomes(CInstallBase& run) const {
        const auto fields = Fields();
        for (size_t i = 0; i < fields.size(); ++i) {
            QString& path = run.*fields[i];
            const QString typed = path;
            if (path != m_texts[i] && IsPath(fields[i]))
                path = ExpandHome(path);
            if (path != typed)
                std::printf("\"%s\" is \"%s\".\n", qUtf8Printable(typed), qUtf8Printable(path));
        }
    }

private:
    static bool IsPath(QString CInstallBase::*field) {
        return field != &CInstallBase::m_scheduler &&
               std::ranges::none_of(hx::schedulers, [field](const hx::Scheduler& scheduler) {
                   return scheduler.queue == field;
               });
    }

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

using Prompt = void (CInstallBase::*)();

// Asks one question, on a terminal until the answer is valid.
Failure Ask(CInstallBase& run, Prompt prompt) {
    const EarlierAnswers before(run);
    for (;;) {
        (run.*prompt)();
        if (InputEnded(run))
            return EndOfInput();
        if (OnTerminal(run))
            before.ExpandHomes(run);
        Failure invalid = FindInvalidValue(run);
        if (!invalid || !OnTerminal(run))
            return invalid;
        invalid->changes = Changes::Unknown;
        Report(*invalid);
        before.Restore(run);
    }
}

// Hides what is printed to stdout.
class HiddenOutput {
public:
    HiddenOutput() {
        if (m_hidden != nullptr)
            stdout = m_hidden;
    }
    ~HiddenOutput() {
        stdout = m_shown;
        if (m_hidden != nullptr)
            std::fclose(m_hidden);
    }
    HiddenOutput(const HiddenOutput&) = delete;
    HiddenOutput& operator=(const HiddenOutput&) = delete;

private:
    FILE* m_shown = stdout;
    FILE* m_hidden = std::fopen("/dev/null", "we");
};

// The library finds the default of a question while it asks.
AnswerValue DefaultOf(CInstallBase& run, AnswerId id, Prompt prompt) {
    const EarlierAnswers before(run);
    const HiddenOutput hidden;
    run.m_interactive = false;
    (run.*prompt)();
    run.m_interactive = true;
    AnswerValue value = RowOf(id).read(run);
    before.Restore(run);
    return value;
}

void ShowGiven(const Answers& answers, AnswerId id) {
    CInstallBase::InstallSeparator();
    std::printf("\n  %s: %s\n\n", RowOf(id).label, qUtf8Printable(answers.Text(id)));
}

// The answers so far, and how the questions for the others are asked.
class Questions {
public:
    Questions(CInstallBase& run, Answers& answers, const Answers& previous)
        : m_run(run), m_answers(answers), m_previous(previous) {}

    bool IsGiven(AnswerId id) const { return m_answers.Find(id) != nullptr; }

    // Asks for one answer and notes whether it is the default.
    Failure AskFor(AnswerId id, Prompt prompt, const std::function<Failure()>& ask) {
        std::optional<AnswerValue> offered;
        if (m_run.m_interactive)
            offered = DefaultOf(m_run, id, prompt);
        Failure failure = ask();
        if (!failure && offered)
            NoteTyped(id, *offered);
        return failure;
    }

    Failure AskFor(AnswerId id, Prompt prompt) {
        return AskFor(id, prompt, [&] { return Ask(m_run, prompt); });
    }

    // Prints an answer that is known, or asks for it.
    Failure ShowOrAskFor(AnswerId id, Prompt prompt) {
        if (!IsGiven(id))
            return AskFor(id, prompt);
        ShowGiven(m_answers, id);
        return {};
    }

    // The library prints the limit of its option instead of the question.
    Failure AskForLimit(AnswerId id, Prompt prompt) {
        return IsGiven(id) ? Ask(m_run, prompt) : AskFor(id, prompt);
    }

    // The menu of the queue has no default, and its further questions offer the present values.
    Failure AskForQueue() {
        const Answers before = AnswersOf(m_run, {});
        Failure failure = Ask(m_run, &CInstallBase::PromptQueueType);
        if (failure || !m_run.m_interactive)
            return failure;
        for (const auto& [id, answer] : before.All()) {
            if (id >= AnswerId::Queue && id <= AnswerId::ScancelCommand)
                NoteTyped(id, answer.value);
        }
        return {};
    }

    // Asks whether to keep recorded answers that the library's question cannot offer. Not on a
    // pipe, whose input answers the library's questions.
    Failure AskToKeep(std::initializer_list<AnswerId> ids, const QString& what) {
        const Answer* recorded = m_answers.Find(*ids.begin());
        if (!m_run.m_interactive || recorded == nullptr || recorded->source != AnswerSource::Record)
            return {};
        const QString question = QStringLiteral("\nKeep the %1? [Y/n] ").arg(Printable(what));
        const bool keeps = OnTerminal(m_run) && AskYesNo(qUtf8Printable(question), true);
        if (InputEnded(m_run))
            return EndOfInput();
        for (const AnswerId id : ids) {
            if (!keeps)
                m_answers.Remove(id);
            else if (IsGiven(id))
                RowOf(id).write(m_run, m_answers.Find(id)->value);
        }
        return {};
    }

private:
    void NoteTyped(AnswerId id, const AnswerValue& offered) {
        AnswerValue value = RowOf(id).read(m_run);
        const Answer* previous = m_previous.Find(id);
        if (value != offered)
            m_answers.Set(id, std::move(value), AnswerSource::Typed);
        else if (previous != nullptr && previous->chosen && previous->value == value)
            m_answers.Set(id, std::move(value), AnswerSource::Record);
    }

    CInstallBase& m_run;
    Answers& m_answers;
    const Answers& m_previous;
};

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

void WarnOfScratch(const CInstallBase& run, const QString& reason) {
    CInstallBase::InstallWarning(
        QStringLiteral("The scratch directory \"%1\" ").arg(run.m_scratchDir) + reason, 0);
}

// The library accepts any directory. An unsuitable one is reported here, while it can be changed.
Failure AskForScratchDirectory(CInstallBase& run,
                               const std::function<void(const QString&)>& chosen) {
    const EarlierAnswers before(run);
    for (;;) {
        if (Failure failure = Ask(run, &CInstallBase::PromptScratchDirectory))
            return failure;
        chosen(run.m_scratchDir);
        const QString reason = DescribeUnsuitableScratch(run.m_scratchDir);
        if (reason.isEmpty())
            return {};
        WarnOfScratch(run, reason);
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

void ShowScratchDirectory(const CInstallBase& run, const Answers& answers,
                          const std::function<void(const QString&)>& chosen) {
    ShowGiven(answers, AnswerId::ScratchDirectory);
    chosen(run.m_scratchDir);
    const QString reason = DescribeUnsuitableScratch(run.m_scratchDir);
    if (!reason.isEmpty())
        WarnOfScratch(run, reason);
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

// Such as "Slurm, partition chem".
QString QueueText(const Answers& answers) {
    const Answer* queue = answers.Find(AnswerId::Queue);
    QString text = answers.Text(AnswerId::Queue);
    const Answer* name = answers.Find(AnswerId::QueueName);
    if (queue == nullptr || name == nullptr || name->value == AnswerValue(QString()))
        return text;
    for (const hx::Scheduler& scheduler : hx::schedulers) {
        if (text == QLatin1String(scheduler.label))
            return text + QStringLiteral(", %1 %2").arg(QLatin1String(scheduler.queueSetting),
                                                        std::get<QString>(name->value));
    }
    return text;
}

Failure AskAll(CInstallBase& run, Answers& answers, const Answers& previous,
               const std::function<void(const QString&)>& scratchChosen) {
    const Console::Printing printing(run.m_interactive ? Console::Importance::Needed
                                                       : Console::Importance::Usual);
    // Options and the previous setup's answers are checked before any question.
    Failure failure = FindInvalidValue(run);
    Questions questions(run, answers, previous);
    if (!failure) {
        failure = questions.AskToKeep({AnswerId::JobLimit},
                                      QStringLiteral("job limit of the previous setup (%1)")
                                          .arg(answers.Text(AnswerId::JobLimit)));
    }
    if (!failure)
        failure = questions.ShowOrAskFor(AnswerId::JobLimit, &CInstallBase::PromptJobLimit);
    if (!failure)
        failure = questions.AskForLimit(AnswerId::MemoryLimit, &CInstallBase::PromptMemoryLimit);
    const auto chosen = [&](const QString& directory) {
        if (scratchChosen)
            scratchChosen(directory);
    };
    if (!failure && questions.IsGiven(AnswerId::ScratchDirectory)) {
        ShowScratchDirectory(run, answers, chosen);
    } else if (!failure) {
        failure =
            questions.AskFor(AnswerId::ScratchDirectory, &CInstallBase::PromptScratchDirectory,
                             [&] { return AskForScratchDirectory(run, chosen); });
    }
    if (!failure)
        failure = questions.AskForLimit(AnswerId::ScratchLimit, &CInstallBase::PromptScratchLimit);
    if (!failure) {
        failure = questions.AskToKeep(
            {AnswerId::Queue, AnswerId::QueueName},
            QStringLiteral("queue of the previous setup (%1)").arg(QueueText(answers)));
    }
    if (!failure)
        failure = questions.AskForQueue();
    if (!failure && IsRootSetup(run)) {
        failure = questions.ShowOrAskFor(AnswerId::Members,
                                         &CInstallBase::PromptComputeServiceGroupMembers);
    }
    return failure;
}

// Sets the limits that were not chosen to the defaults of their questions.
void MeasureLimits(CInstallBase& run, const Answers& answers) {
    struct Limit {
        AnswerId id;
        Prompt prompt;
        int CInstallBase::*option;
    };
    for (const Limit& limit : {Limit{AnswerId::MemoryLimit, &CInstallBase::PromptMemoryLimit,
                                     &CInstallBase::m_argMemoryLimitMB},
                               Limit{AnswerId::ScratchLimit, &CInstallBase::PromptScratchLimit,
                                     &CInstallBase::m_argScratchLimitGB}}) {
        if (answers.Find(limit.id) != nullptr)
            continue;
        run.*limit.option = -1;
        RowOf(limit.id).write(run, DefaultOf(run, limit.id, limit.prompt));
    }
}

Failure Review(CInstallBase& run, Answers& answers, const Answers& previous,
               const std::function<void(const QString&)>& scratchChosen) {
    return ReviewAnswers(
        run, answers,
        {.askForQueue = [&] { return Questions(run, answers, previous).AskForQueue(); },
         .measureLimits = [&] { MeasureLimits(run, answers); },
         .scratchChosen =
             [&](const QString& directory) {
                 if (scratchChosen)
                     scratchChosen(directory);
                 const QString reason = DescribeUnsuitableScratch(directory);
                 if (!reason.isEmpty())
                     WarnOfScratch(run, reason);
             }});
}

}  // namespace

Failure AskQuestions(CInstallBase& run, Answers& answers, const Answers& previous,
                     const std::function<void(const QString&)>& scratchChosen) {
    Failure failure = AskAll(run, answers, previous, scratchChosen);
    if (!failure && OnTerminal(run))
        failure = Review(run, answers, previous, scratchChosen);
    if (failure)
        return failure;
    WarnOfLimitsOfZero(run);
    answers = AnswersOf(run, answers);
    return {};
}

Problem EndOfInput() {
    std::printf("\n");
    return {ExitStatus::ConsoleClosed,
            QStringLiteral("setup canceled: end of input at a question"),
            {}};
}

bool InputEnded(const CInstallBase& run) {
    return OnTerminal(run) && std::feof(stdin) != 0;
}

bool AskYesNo(const char* question, bool preset, const std::function<void()>& details) {
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
        if (details && answer == "d") {
            details();
            continue;
        }
        if (answer == "n" || answer == "no" || isatty(STDIN_FILENO) == 0)
            return false;
        std::printf("Please answer %s.\n", details ? "y, n or d" : "y or n");
    }
}
