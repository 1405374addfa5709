#include "undo/RemoveSetup.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>

#include "Console.h"
#include "apply/Interruption.h"
#include "apply/SetupLog.h"
#include "installation/DirectoryNames.h"
#include "installation/TimeLimit.h"
#include "installation/TreeCheck.h"
#include "merge/Services.h"
#include "report/JsonReport.h"
#include "undo/Restoration.h"
#include "undo/SavedStates.h"
#include "undo/Snapshot.h"
#include "undo/UnsavedSetups.h"

namespace {

namespace fs = std::filesystem;

using NameTest = std::function<bool(const std::string&)>;

// Opens a directory, which may be a link of root's. It stays closed if there is none.
Failure OpenIfExists(const fs::path& path, Descriptor& directory) {
    directory = Descriptor(open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!directory && errno != ENOENT && errno != ENOTDIR)
        return UnreadablePath(path, errno);
    return {};
}

// Root's files of a directory in which other users may create files, too. An empty one is the log
// that this removal has just created.
Failure AddFiles(const Entry& entry, const NameTest& isMeant, std::vector<PathDifference>& found) {
    const fs::path directory = fs::path(entry.path).parent_path();
    Descriptor opened;
    Failure failure = OpenIfExists(directory, opened);
    if (failure || !opened)
        return failure;
    Names names;
    if (!ReadNames(opened.Number(), names))
        return UnreadablePath(directory, errno);
    std::erase_if(names, [&](const std::string& name) { return !isMeant(name); });
    for (const std::string& name : names) {
        const std::optional<State> state = ReadState(opened.Number(), name, Reading::Nothing);
        // A user's file system may be mounted there.
        if (!state && errno != EREMOTE)
            return UnreadablePath(directory / name, errno);
        if (state && state->kind == State::Kind::File && state->owner == 0 && state->size > 0)
            found.push_back({Change::Delete, directory / name, *state, {}, &entry});
    }
    return {};
}

std::string PathOfDropIns() {
    return Find(Item::Unit).path + std::string(".d");
}

Failure AddDirectory(const fs::path& path, const Entry* entry, std::vector<PathDifference>& found) {
    Descriptor parent;
    Failure failure = OpenIfExists(path.parent_path(), parent);
    if (failure || !parent)
        return failure;
    const std::optional<State> state =
        ReadState(parent.Number(), path.filename(), Reading::Nothing);
    if (!state)
        return UnreadablePath(path, errno);
    if (state->kind == State::Kind::Directory && state->owner == 0)
        found.push_back({Change::Delete, path, *state, {}, entry});
    return {};
}

// What setups created outside of what is staged: the record, which is deleted last, logs, also
// those that logrotate renamed, kept commit scripts; and the drop-ins of the unit unless the unit
// stays.
Failure FindOthersOfRoot(const UndoPlan& plan, std::vector<PathDifference>& found) {
    Failure failure;
    if (!plan.remaining.contains(Find(Item::Unit).path))
        failure = AddDirectory(PathOfDropIns(), nullptr, found);
    if (failure)
        return failure;
    const Entry& script = Find(Item::CommitScript);
    const std::string scriptName = fs::path(script.path).filename();
    const std::string prefix = scriptName.substr(0, scriptName.size() - randomPart.size());
    failure = AddFiles(
        script,
        [&](const std::string& name) {
            return name.size() == scriptName.size() && name.starts_with(prefix);
        },
        found);
    if (failure)
        return failure;
    const Entry& log = Find(Item::RootLog);
    const std::string logName = fs::path(log.path).filename();
    failure = AddFiles(
        log,
        [&](const std::string& name) {
            return name == logName || name.starts_with(logName + '.') ||
                   name.starts_with(logName + '-');
        },
        found);
    return failure ? failure : AddDirectory(Find(Item::Record).path, &Find(Item::Record), found);
}

void WarnNotRemoved(const std::string& path, int error) {
    ReportWarning({ExitStatus::Complete,
                   QStringLiteral("cannot remove \"%1\": %2")
                       .arg(QString::fromStdString(path), QString::fromUtf8(std::strerror(error))),
                   QStringLiteral("Inspect it, then remove it.")});
}

// The files of a directory that only root can write to. If some stay, the directory does too, which
// is reported.
void RemoveDropIns(int parent, const std::string& name) {
    const Descriptor directory(
        openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    Names names;
    if (directory)
        ReadNames(directory.Number(), names);
    for (const std::string& each : names)
        unlinkat(directory.Number(), each.c_str(), 0);
}

void RemoveOther(const PathDifference& other) {
    const fs::path path = other.path;
    const std::string name = path.filename();
    const Descriptor parent(open(path.parent_path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    const bool isDirectory = other.before.kind == State::Kind::Directory;
    if (other.entry == nullptr)
        RemoveDropIns(parent.Number(), name);
    if (unlinkat(parent.Number(), name.c_str(), isDirectory ? AT_REMOVEDIR : 0) != 0 &&
        errno != ENOENT)
        WarnNotRemoved(other.path, errno);
}

QString RemedyWithoutState(const QString& states) {
    return QStringLiteral(
               "To remove what setups created without restoring the state before them, remove "
               "\"%1\", then run the removal again.")
        .arg(states);
}

class SetupRemoval {
public:
    SetupRemoval(const Arguments& arguments, const QString& installDir, const SetupLock& lock)
        : m_arguments(arguments),
          m_installDir(installDir),
          m_lock(lock),
          m_purges(arguments.Has(OwnOption::Purge)),
          m_states(installDir) {}

    Failure Run();

private:
    Failure Load();
    Failure CarryOut(Restoration& restoration);
    Failure Forget(const UndoPlan& plan);
    SavedSetup Remaining(const UndoPlan& plan) const;
    Failure RemoveRest(const Restoration& restoration);
    void Finish(const Restoration& restoration) const;

    // With --purge.
    Failure FindOthers(const UndoPlan& plan, std::vector<PathDifference>& found) const;

    const Arguments& m_arguments;
    const QString m_installDir;
    const SetupLock& m_lock;
    const bool m_purges;
    SavedStates m_states;
    bool m_isSaved = false;  // the state before the first setup
    SavedSetup m_saved;
    StagedMachine m_content;
};

// Of a user's record, the directory is not shown.
Failure SetupRemoval::FindOthers(const UndoPlan& plan, std::vector<PathDifference>& found) const {
    return m_purges && getuid() == 0 ? FindOthersOfRoot(plan, found) : Failure();
}

Failure SetupRemoval::Load() {
    Failure failure = m_states.LoadFirst(m_isSaved);
    if (failure && failure->status == ExitStatus::RecordUnusable)
        failure->remedy = RemedyWithoutState(m_states.Path());
    if (failure)
        return failure;
    if (m_isSaved) {
        m_saved = m_states.Saved();
        return m_states.OpenContent(m_content);
    }
    Descriptor tree;
    bool isElsewhere = false;
    failure = FindTreeElsewhere(isElsewhere);
    // A link may lead to a file system that is not mounted.
    if (!failure && !isElsewhere)
        failure = OpenInstallDirectory(m_installDir, tree);
    if (!failure)
        failure = FindUnsavedSetups(m_installDir, tree.Number(), m_saved);
    // Nothing is restored, so no content is read.
    m_content.installDir = m_installDir;
    for (Descriptor* layer : {&m_content.tree, &m_content.etc, &m_content.bin}) {
        *layer = Descriptor(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
        if (!failure && !*layer)
            failure = UnreadablePath("/", errno);
    }
    return failure;
}

// What a further removal, with --purge, deletes.
SavedSetup SetupRemoval::Remaining(const UndoPlan& plan) const {
    SavedSetup remaining = m_saved;
    remaining.isComplete = true;
    remaining.record.clear();
    for (Differences& attempt : remaining.attempts) {
        std::erase_if(attempt.paths, [&](const PathDifference& each) {
            return !plan.remaining.contains(each.path);
        });
        attempt.services.clear();
    }
    return remaining;
}

Failure SetupRemoval::Forget(const UndoPlan& plan) {
    if (m_saved.attempts.empty())
        return {};
    return m_states.KeepFirst(FactsOf(CommandLine(), m_installDir), Remaining(plan));
}

Failure SetupRemoval::RemoveRest(const Restoration& restoration) {
    std::vector<PathDifference> others;
    Failure failure = FindOthers(restoration.Found(), others);
    if (!failure)
        failure = m_states.RemoveRecord();
    if (failure)
        return failure;
    SetupLog::Remove();
    JsonReport::NoteLog({});
    const std::vector<PathDifference>& shown = restoration.Shown().paths;
    for (const PathDifference& other : others) {
        const bool isShown = std::ranges::any_of(
            shown, [&](const PathDifference& each) { return each.path == other.path; });
        if (isShown)
            RemoveOther(other);
    }
    return {};
}

Failure SetupRemoval::CarryOut(Restoration& restoration) {
    Failure failure = restoration.Apply();
    if (failure)
        return failure;
    failure = m_purges ? RemoveRest(restoration) : Forget(restoration.Found());
    if (failure)
        failure->changes = Changes::Unknown;
    return failure;
}

void SetupRemoval::Finish(const Restoration& restoration) const {
    const Console::Printing summary(Console::Importance::Needed);
    if (restoration.Shown().IsEmpty())
        std::printf("Nothing to remove.\n");
    else
        std::printf("cv_install: removed the setup of \"%s\"\n",
                    qUtf8Printable(Printable(m_installDir)));
    if (m_purges || Console::IsQuiet() || restoration.Found().remaining.empty())
        return;
    if (getuid() == 0)
        std::printf(
            "    Settings, log, record and service account were kept. To remove them, too: "
            "cv_install --remove --purge\n");
    else
        std::printf(
            "    Settings and record were kept. To remove them, too: cv_install --remove "
            "--purge\n");
    std::fflush(stdout);
}

Failure SetupRemoval::Run() {
    if (Failure failure = Load())
        return failure;
    if (!m_isSaved && !m_saved.attempts.empty())
        std::printf("The state before the first setup is unknown. Nothing is restored.\n");
    Failure unreadable;
    const auto readOthers = [&](const UndoPlan& plan) {
        std::vector<PathDifference> others;
        unreadable = FindOthers(plan, others);
        return others;
    };
    Restoration restoration(m_arguments, m_purges ? UndoPurpose::Purge : UndoPurpose::Remove,
                            m_saved, std::move(m_content), readOthers);
    if (Failure failure = restoration.Plan()) {
        if (failure->status == ExitStatus::RecordUnusable)
            failure->remedy = RemedyWithoutState(m_states.Path());
        return failure;
    }
    if (unreadable)
        return unreadable;
    JsonReport::NoteChanges(restoration.Shown(), false);
    if (m_arguments.Has(OwnOption::DryRun)) {
        if (restoration.Shown().IsEmpty())
            Finish(restoration);
        return {};
    }
    if (m_saved.attempts.empty() && restoration.Shown().IsEmpty()) {
        SetupLog::Discard();
        JsonReport::NoteLog({});
        Finish(restoration);
        return {};
    }
    SetupLog::Keep();
    Interruption::ComesTooLate();
    // Whatever ends it from here on, a further removal completes it.
    m_lock.NoteMerge(true);
    const bool isNoted = m_isSaved && m_states.Saved().isComplete;
    Failure failure = isNoted ? m_states.NoteComplete(false) : Failure();
    if (!failure)
        failure = CarryOut(restoration);
    const bool isTakenBack = failure && failure->changes == Changes::None;
    // If this cannot be noted, nothing can be undone until a further setup.
    if (isTakenBack && isNoted)
        m_states.NoteComplete(true);
    m_lock.NoteMerge(failure && !isTakenBack);
    if (!failure)
        Finish(restoration);
    return failure;
}

}  // namespace

ExitStatus RemoveSetup(const Arguments& arguments, const QString& installDir,
                       const SetupLock& lock) {
    if (!arguments.Has(OwnOption::DryRun))
        SetupLog::Start(getuid() == 0);
    JsonReport::NoteLog(SetupLog::Path());
    const Failure failure =
        AboutAction(SetupRemoval(arguments, installDir, lock).Run(),
                    {"removal canceled", "during the removal", "un the removal again"});
    if (!failure)
        return ExitStatus::Complete;
    Report(*failure);
    return failure->status;
}
