// The answers of a setup, with where each came from.
#pragma once

#include <QDataStream>
#include <map>

#include "answers/AnswerTable.h"

// From the weakest to the strongest.
enum class AnswerSource { Default, Record, File, CommandLine, Typed };

struct Answer {
    AnswerValue value;
    AnswerSource source = AnswerSource::Default;
    // An administrator chose the value, in this setup or, for Record, in the recorded one.
    bool chosen = false;

    bool operator==(const Answer&) const = default;
};

class Answers {
public:
    // Returns null if there is no such answer.
    const Answer* Find(AnswerId id) const;

    void Set(AnswerId id, Answer answer) { m_answers[id] = std::move(answer); }

    // Sets a value of this source, which is chosen unless it is a default.
    void Set(AnswerId id, AnswerValue value, AnswerSource source);

    void Remove(AnswerId id) { m_answers.erase(id); }

    // The value for people; empty without an answer.
    QString Text(AnswerId id) const;

    // Adds the answers of a weaker source that are missing here. A queue's name is not added to
    // another kind of queue. A compute node's answers include that it has no queue.
    void Complete(const Answers& weaker);

    // All answers, in the order of the table.
    const std::map<AnswerId, Answer>& All() const { return m_answers; }

    bool operator==(const Answers&) const = default;

private:
    std::map<AnswerId, Answer> m_answers;
};

QDataStream& operator<<(QDataStream& stream, const Answers& answers);
QDataStream& operator>>(QDataStream& stream, Answers& answers);

// Returns the answers that a run uses: those of `known` that the run still has, and its values as
// defaults for all others.
Answers AnswersOf(const CInstallBase& run, const Answers& known);

// Sets the fields of the run that have answers.
void ApplyAnswers(const Answers& answers, CInstallBase& run);
