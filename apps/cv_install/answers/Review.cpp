#include "answers/Review.h"

#include <array>
#include <cstdio>
#include <optional>
#include <vector>

#include "Console.h"
#include "answers/Conversation.h"
#include "answers/HomePath.h"
#include "answers/Members.h"
#include "answers/ValueGuard.h"
#include "support/HXfgets.h"

namespace {

// Returns the shown answers, in the order of their numbers.
std::vector<AnswerId> ShowAnswers(const CInstallBase& run, const Answers& answers) {
    std::vector<AnswerId> shown;
    const Answers all = AnswersOf(run, answers);
    std::printf("\nAnswers:\n");
    for (const AnswerRow& row : AnswerRows()) {
        if (!IsUsed(row, run))
            continue;
        shown.push_back(row.id);
        std::printf("  %2zu  %s: %s\n", shown.size(), row.label,
                    qUtf8Printable(Printable(all.Text(row.id))));
    }
    return shown;
}

QString ReadLine(const QString& question) {
    std::printf("%s", qUtf8Printable(question));
    std::fflush(stdout);
    std::array<char, 4096> line = {};
    HXfgets(line.data(), static_cast<int>(line.size()), stdin);
    return QString::fromUtf8(line.data()).trimmed();
}

// Returns the typed value; nothing if the present one stays.
std::optional<AnswerValue> AskForValue(const AnswerRow& row) {
    const QString label = QLatin1String(row.label);
    if (row.kind == AnswerKind::Flag)
        return AskYesNo(qUtf8Printable(label + QStringLiteral("? [y/N] ")), false);
    for (;;) {
        const QString text = ExpandHome(ReadLine(label + QStringLiteral(": ")));
        if (text.isEmpty())
            return {};
        std::optional<AnswerValue> value = ValueFromText(row, text);
        const QString reason =
            value ? ReasonAgainst(row, *value) : QStringLiteral("it is not valid here");
        if (value && reason.isEmpty())
            return value;
        Report({ExitStatus::ValueRefused,
                QStringLiteral("invalid %1 \"%2\": %3").arg(NameOf(row), text, reason),
                RequirementOf(row), Changes::Unknown});
    }
}

Failure ChangeAnswer(CInstallBase& run, Answers& answers, const AnswerRow& row,
                     const ReviewSteps& steps) {
    if (row.id == AnswerId::Queue) {
        answers.Remove(AnswerId::Queue);
        answers.Remove(AnswerId::QueueName);
        run.m_queueType = CInstallBase::QueueUnset;
        return steps.askForQueue();
    }
    const std::optional<AnswerValue> value = AskForValue(row);
    if (!value)
        return {};
    answers.Set(row.id, *value, AnswerSource::Typed);
    if (row.write != nullptr)
        row.write(run, *value);
    // The answer that a setup is for a compute node ends all questions but those of the review.
    run.m_interactive = true;
    if (row.id == AnswerId::ClusterNode && std::get<bool>(*value))
        run.m_queueType = CInstallBase::QueueNone;
    if (row.id == AnswerId::ScratchDirectory)
        steps.scratchChosen(run.m_scratchDir);
    if (row.id == AnswerId::ScratchDirectory || row.id == AnswerId::JobLimit)
        steps.measureLimits();
    if (row.id == AnswerId::ServiceUser || row.id == AnswerId::ServiceGroup)
        FindPresentMembers(run);
    return {};
}

}  // namespace

Failure ReviewAnswers(CInstallBase& run, Answers& answers, const ReviewSteps& steps) {
    const Console::Printing printing(Console::Importance::Needed);
    for (;;) {
        const std::vector<AnswerId> shown = ShowAnswers(run, answers);
        const QString choice = ReadLine(
            QStringLiteral("Number of the answer to change, q to quit, or Enter to continue: "));
        if (InputEnded(run))
            return EndOfInput();
        if (choice.isEmpty()) {
            const Failure invalid = FindInvalidValue(run);
            if (!invalid)
                return {};
            Report(*invalid);
            continue;
        }
        if (choice.compare(u'q', Qt::CaseInsensitive) == 0) {
            return Problem{
                ExitStatus::Declined, QStringLiteral("setup canceled: answers not confirmed"), {}};
        }
        const size_t number = choice.toUInt();
        if (number < 1 || number > shown.size()) {
            std::printf("Please enter a number from 1 to %zu, or q.\n", shown.size());
            continue;
        }
        if (Failure failure = ChangeAnswer(run, answers, RowOf(shown[number - 1]), steps))
            return failure;
    }
}
