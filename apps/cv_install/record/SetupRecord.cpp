#include "record/SetupRecord.h"

#include <QCryptographicHash>
#include <filesystem>

#include "answers/AnswersFile.h"
#include "installation/TimeLimit.h"

namespace {

// More than any setup writes.
constexpr qsizetype longestManifest = 4 << 20;

RecordedDigest DigestOf(Item item, const QByteArray& content) {
    return {std::filesystem::path(Find(item).path).filename(),
            QCryptographicHash::hash(content, QCryptographicHash::Sha256).toHex().toStdString()};
}

}  // namespace

QByteArray RecordedAnswersText(const SetupFacts& facts, const Answers& answers) {
    return RecordText("# Answers for the next setup", facts,
                      WriteAnswers(answers, AnswersForm::Record));
}

Failure SetupRecord::Prepare(const SetupFacts& facts, const Answers& answers,
                             const QByteArray& script) {
    Failure failure = m_directory.Create();
    if (failure || !m_directory.IsOpen())
        return failure;
    const QByteArray recorded = RecordedAnswersText(facts, answers);
    failure = m_directory.Prepare(Item::RecordedScript, script);
    if (!failure)
        failure = m_directory.Prepare(Item::RecordedAnswers, recorded);
    if (failure)
        return failure;
    std::optional<Manifest> previous;
    // A damaged one is replaced.
    if (ReadManifest(m_directory, previous))
        previous.reset();
    m_entries.emplace(m_setup, std::move(previous));
    m_manifest.facts = facts;
    m_manifest.answers = answers;
    if ((m_setup.conditions & AsUser) != 0) {
        m_manifest.digests = {DigestOf(Item::RecordedScript, script),
                              DigestOf(Item::RecordedAnswers, recorded)};
    }
    return {};
}

Failure SetupRecord::Place() {
    if (!m_entries)
        return {};
    Failure failure = m_directory.Replace();
    if (!failure) {
        const TimeLimit limit;
        failure = m_entries->Read(m_manifest);
    }
    if (!failure)
        failure = m_directory.Prepare(Item::Manifest, WriteManifest(m_manifest));
    if (failure)
        failure->changes = Changes::Kept;
    return failure ? failure : m_directory.Replace();
}

Failure ReadManifest(const RecordDirectory& directory, std::optional<Manifest>& manifest) {
    std::optional<QByteArray> text;
    if (Failure failure = directory.Read(Item::Manifest, longestManifest, text))
        return failure;
    if (!text)
        return {};
    manifest = ParseManifest(*text);
    return manifest ? Failure() : directory.Damaged(Item::Manifest);
}
