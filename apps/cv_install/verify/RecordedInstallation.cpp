#include "verify/RecordedInstallation.h"

#include <fcntl.h>
#include <unistd.h>

#include "installation/PathParts.h"
#include "installation/TimeLimit.h"
#include "installation/TreeCheck.h"
#include "record/SetupRecord.h"
#include "undo/SavedStates.h"

namespace {

constexpr qsizetype longestVerification = 65536;
constexpr const char* differencesFact = "differences: ";

Problem NoRecord(const QString& installDir) {
    return {ExitStatus::RecordUnusable,
            QStringLiteral("no setup of \"%1\" is recorded").arg(installDir),
            QStringLiteral("Run the setup, which creates a record."), Changes::Unknown};
}

// A text that is damaged or of another form counts as none.
std::optional<LastVerification> ReadVerification(const RecordDirectory& record) {
    std::optional<QByteArray> text;
    if (record.Read(Item::Verification, longestVerification, text) || !text)
        return {};
    const std::optional<ParsedRecord> parsed = ParseRecordText(*text);
    if (!parsed || !parsed->body.startsWith(differencesFact))
        return {};
    return LastVerification{
        parsed->facts.time,
        parsed->body.mid(static_cast<qsizetype>(qstrlen(differencesFact))).trimmed().toInt()};
}

// Leaves `isFound` false without a manifest.
Failure ReadInstallation(const QString& installDir, RecordDirectory::Whose owner,
                         RecordedInstallation& installation, bool& isFound) {
    auto record = std::make_unique<RecordDirectory>(installDir, owner);
    std::optional<Manifest> manifest;
    Failure failure = record->Open();
    if (!failure)
        failure = ReadManifest(*record, manifest);
    if (failure)
        failure->changes = Changes::Unknown;
    if (failure || !manifest)
        return failure;
    isFound = true;
    installation.installDir = installDir;
    installation.manifest = std::move(*manifest);
    installation.lastVerification = ReadVerification(*record);
    installation.record = std::move(record);
    return {};
}

// A first setup that was interrupted has saved the state before it, but has no record yet.
Problem NotRecorded(const QString& installDir) {
    SavedStates states(installDir);
    bool isFound = false;
    if (states.LoadUnfinished(true, isFound) || !isFound)
        return NoRecord(installDir);
    return {ExitStatus::RecordUnusable,
            QStringLiteral("the setup of \"%1\" at %2 did not run to its end")
                .arg(installDir, states.Facts().time),
            QStringLiteral("Run it again, or undo it with --undo.")};
}

Failure FindRecorded(const char* argv0, bool alsoRoots, RecordedInstallation& installation) {
    const TimeLimit limit;
    QString installDir;
    bool isFound = false;
    Failure failure = FindInstallDirectory(argv0, installDir);
    if (!failure)
        failure = ReadInstallation(installDir, RecordDirectory::Whose::Own, installation, isFound);
    if (!failure && !isFound && alsoRoots) {
        installDir = QLatin1String(sharedDirectory);
        failure =
            ReadInstallation(installDir, RecordDirectory::Whose::Roots, installation, isFound);
    }
    if (failure || isFound)
        return failure;
    return NotRecorded(installDir);
}

}  // namespace

Failure FindInstallation(const char* argv0, RecordedInstallation& installation) {
    return FindRecorded(argv0, getuid() != 0, installation);
}

Failure FindOwnInstallation(const char* argv0, RecordedInstallation& installation) {
    return FindRecorded(argv0, false, installation);
}

bool IsUnfinished(const RecordedInstallation& installation, const LockState& lock) {
    if (lock.isIncomplete || !installation.record->IsOwn())
        return lock.isIncomplete;
    const TimeLimit limit;
    SavedStates states(installation.installDir);
    bool isFound = false;
    // What is damaged is reported when it is used.
    return !states.LoadUnfinished(true, isFound) && isFound;
}

std::vector<ManifestEntry> EntriesOfUserRecord(const RecordedInstallation& installation) {
    std::vector<ManifestEntry> entries;
    const Descriptor top(
        open(UserRecords().toUtf8().constData(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    for (const Entry& row : Entries()) {
        if (!std::string(row.path).starts_with(userRecords) || !Applies(row, AsUser))
            continue;
        ManifestEntry entry = {
            PathInUserRecords(row, installation.installDir).toStdString(), {}, true};
        const std::optional<State> found = ReadStateAt(top.Number(), entry.path, Reading::Nothing);
        const bool isThere = found && found->kind != State::Kind::Missing;
        entry.state.kind = row.kind == Kind::Directory ? State::Kind::Directory : State::Kind::File;
        entry.state.mode = row.userMode;
        entry.state.owner = getuid();
        entry.state.group = isThere ? found->group : getgid();
        const std::string name = BaseNameOf(entry.path);
        for (const RecordedDigest& file : installation.manifest.digests) {
            if (file.name != name)
                continue;
            entry.state.digest = file.digest;
            entry.state.size = isThere ? found->size : 0;
        }
        entries.push_back(std::move(entry));
    }
    return entries;
}

Failure RecordVerification(const RecordedInstallation& installation, int differences) {
    RecordDirectory& record = *installation.record;
    if (!record.IsOwn())
        return {};
    const SetupFacts facts = FactsOf(CommandLine(), installation.installDir);
    Failure failure = record.Prepare(
        Item::Verification, RecordText("# Result of the previous verification", facts,
                                       differencesFact + QByteArray::number(differences) + '\n'));
    return failure ? failure : record.Replace();
}
