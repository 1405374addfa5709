#include "undo/RemoveCopy.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "Console.h"
#include "apply/Interruption.h"
#include "installation/PathParts.h"
#include "record/SetupRecord.h"
#include "report/JsonReport.h"
#include "report/Plan.h"
#include "report/Report.h"
#include "undo/Restoration.h"

namespace {

// The row of a path of the tree; for a web page, that of its directory.
const Entry* RowInTree(const std::string& path) {
    const auto rows = Entries();
    const auto found = std::ranges::find_if(rows, [&](const Entry& entry) {
        return IsInTree(entry) && (path == entry.path || (entry.ownsAllBelow && !path.empty() &&
                                                          IsBelow(path, entry.path)));
    });
    return found == rows.end() ? nullptr : &*found;
}

class CopyRemoval {
public:
    CopyRemoval(const Arguments& arguments, const QString& installDir)
        : m_arguments(arguments), m_installDir(installDir), m_record(installDir) {}

    Failure Run();

private:
    Failure Open();
    void Add(const ManifestEntry& listed);
    void Show() const;
    Failure Delete(const PathDifference& difference) const;
    Failure DeleteAll() const;
    std::string PathInTree(const PathDifference& difference) const;

    const Arguments& m_arguments;
    const QString m_installDir;
    RecordDirectory m_record;
    Manifest m_manifest;
    Descriptor m_tree;
    Differences m_differences;
    QStringList m_kept;
};

Failure CopyRemoval::Open() {
    std::optional<Manifest> manifest;
    Failure failure = m_record.Open();
    if (!failure)
        failure = ReadManifest(m_record, manifest);
    if (failure)
        return failure;
    if (!manifest) {
        return Problem{
            ExitStatus::RecordUnusable,
            QStringLiteral("no setup of \"%1\" is recorded").arg(m_installDir),
            QStringLiteral("There is nothing to remove, or the setup of another directory is "
                           "meant: run its cv_install.")};
    }
    m_manifest = std::move(*manifest);
    m_tree =
        Descriptor(open(m_installDir.toUtf8().constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return {};
}

// The product is in the install directory, so that stays.
void CopyRemoval::Add(const ManifestEntry& listed) {
    const Entry* entry = RowInTree(listed.path);
    if (!listed.isInstalled || listed.path.empty() || entry == nullptr ||
        (entry->removal == Removal::Purge && !m_arguments.Has(OwnOption::Purge)))
        return;
    const auto live = ReadStateAt(m_tree.Number(), listed.path, Reading::AllFiles);
    if (live && live->kind == State::Kind::Missing)
        return;
    const std::string path = m_installDir.toStdString() + '/' + listed.path;
    State expected = listed.state;
    const bool isEdited = entry->content != Content::Setup || entry->removal == Removal::Purge;
    if (live && (isEdited || expected.kind == State::Kind::Directory) &&
        live->kind == expected.kind)
        expected = *live;
    const bool hasJobs = live && entry->item == Item::QueueEntries && live->size > 0;
    if (live && *live == expected && !hasJobs) {
        m_differences.paths.push_back({Change::Delete, path, *live, {}, entry});
        return;
    }
    m_kept.append(QString::fromStdString(path) +
                  QLatin1String(hasJobs ? ": contains jobs" : ": changed after the setup"));
}

void CopyRemoval::Show() const {
    if (!m_kept.isEmpty())
        std::printf("Kept as it is now:\n");
    for (const QString& line : m_kept)
        std::printf("  %s\n", qUtf8Printable(Printable(line)));
    StagedMachine shown;
    shown.installDir = m_installDir;
    PrintReport(shown, m_differences);
}

std::string CopyRemoval::PathInTree(const PathDifference& difference) const {
    return difference.path.substr(m_installDir.toStdString().size() + 1);
}

// A directory stays if something else is in it.
Failure CopyRemoval::Delete(const PathDifference& difference) const {
    const std::string path = PathInTree(difference);
    const Descriptor parent = OpenDirectory(m_tree.Number(), ParentOf(path));
    const std::string name = BaseNameOf(path);
    const auto now = parent ? ReadState(parent.Number(), name, Reading::Nothing) : std::nullopt;
    const bool isDirectory = difference.before.kind == State::Kind::Directory;
    errno = 0;
    if (now && now->IsSameInode(difference.before) &&
        unlinkat(parent.Number(), name.c_str(), isDirectory ? AT_REMOVEDIR : 0) == 0)
        return {};
    if (isDirectory && (errno == ENOTEMPTY || errno == EEXIST)) {
        std::printf("%s was kept: it contains other entries\n",
                    qUtf8Printable(Printable(QString::fromStdString(difference.path))));
        return {};
    }
    return Problem{ExitStatus::SystemCallFailed,
                   QStringLiteral("cannot remove \"%1\": %2")
                       .arg(QString::fromStdString(difference.path),
                            now ? QString::fromUtf8(std::strerror(errno))
                                : QStringLiteral("another process changed it")),
                   QStringLiteral("Fix the cause, then run the setup again."), Changes::Unknown};
}

// A further removal completes one that was interrupted: what is gone does not differ.
Failure CopyRemoval::DeleteAll() const {
    for (const bool directories : {false, true}) {
        std::vector<PathDifference> paths = m_differences.paths;
        std::reverse(paths.begin(), paths.end());
        for (const PathDifference& path : paths) {
            if ((path.before.kind == State::Kind::Directory) != directories)
                continue;
            if (Failure failure = Delete(path))
                return failure;
        }
    }
    return {};
}

Failure CopyRemoval::Run() {
    if (Failure failure = Open())
        return failure;
    for (const ManifestEntry& listed : m_manifest.entries)
        Add(listed);
    {
        const Console::Printing printing(m_arguments.Has(OwnOption::Yes)
                                             ? Console::Importance::Usual
                                             : Console::Importance::Needed);
        Show();
        JsonReport::NoteChanges(m_differences, false);
        if (m_arguments.Has(OwnOption::DryRun))
            return {};
        if (!m_arguments.Has(OwnOption::Yes) && !ConfirmPlan())
            return PlanDeclined();
    }
    Interruption::ComesTooLate();
    if (Failure failure = DeleteAll())
        return failure;
    if (m_arguments.Has(OwnOption::Purge))
        m_record.RemoveFiles();
    const Console::Printing summary(Console::Importance::Needed);
    std::printf("cv_install: removed the setup of \"%s\"\n",
                qUtf8Printable(Printable(m_installDir)));
    return {};
}

}  // namespace

ExitStatus RemoveAsUser(const Arguments& arguments, const QString& installDir) {
    const Failure failure =
        AboutAction(CopyRemoval(arguments, installDir).Run(),
                    {"removal canceled", "during the removal", "un the removal again"});
    if (!failure)
        return ExitStatus::Complete;
    Report(*failure);
    return failure->status;
}
