#include "record/SetupRecord.h"

#include "answers/AnswersFile.h"

namespace {

QByteArray Commented(const QByteArray& text) {
    QByteArray commented;
    for (const QByteArray& line : text.split('\n'))
        commented += line.isEmpty() ? QByteArray() : "# " + line + '\n';
    return commented;
}

}  // namespace

Failure SetupRecord::Prepare(const SetupFacts& facts, const Answers& answers,
                             const QByteArray& script) {
    Failure failure = m_directory.Create();
    if (failure || !m_directory.IsOpen())
        return failure;
    failure = m_directory.Prepare(Item::RecordedScript, script);
    if (!failure) {
        failure = m_directory.Prepare(Item::RecordedAnswers,
                                      RecordText("# Answers for the next setup", facts,
                                                 WriteAnswers(answers, AnswersForm::Record)));
    }
    // In mtree(5) format, where the facts and answers are comments.
    if (!failure) {
        failure = m_directory.Prepare(
            Item::Manifest,
            RecordText("#mtree", facts, Commented(WriteAnswers(answers, AnswersForm::File))));
    }
    return failure;
}
