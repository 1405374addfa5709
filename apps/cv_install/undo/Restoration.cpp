#include "undo/Restoration.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <set>

#include "Console.h"
#include "answers/AnswersFile.h"
#include "installation/Installation.h"
#include "installation/TimeLimit.h"
#include "installation/TreeCheck.h"
#include "merge/Accounts.h"
#include "merge/ServiceAccount.h"
#include "merge/Services.h"
#include "report/Summary.h"
#include "report/TextDifferences.h"
#include "undo/AccountUse.h"
#include "undo/SavedStates.h"
#include "undo/Snapshot.h"

namespace {

constexpr std::chrono::seconds longestSearch(10);
constexpr qsizetype longestAnswersFile = 65536;

// Where the accounts of a setup have files. Without a record, only the install directory is known.
std::vector<std::string> DirectoriesOfAccounts() {
    std::vector<std::string> directories = {sharedDirectory};
    RecordDirectory record{QLatin1String(sharedDirectory)};
    std::optional<QByteArray> text;
    if (record.Open() || record.Read(Item::RecordedAnswers, longestAnswersFile, text) || !text)
        return directories;
    const std::optional<ParsedRecord> parsed = ParseRecordText(*text);
    if (!parsed)
        return directories;
    const Answers answers = ParseAnswers(parsed->body, AnswersForm::Record).answers;
    if (const Answer* scratch = answers.Find(AnswerId::ScratchDirectory))
        directories.push_back(std::get<QString>(scratch->value).toStdString());
    return directories;
}

// The service accounts that own the entries after and before the setup.
Failure FindOwners(const SavedSetup& saved, TreeOwners& owners) {
    constexpr auto none = static_cast<uid_t>(-1);
    owners = {none, none, none, getuid() != 0};
    if (getuid() != 0) {
        owners.account = getuid();
        owners.group = getgid();
        return {};
    }
    std::optional<ServiceAccount> recorded;
    if (Failure failure = ReadServiceAccount(recorded))
        return failure;
    if (recorded)
        owners = {recorded->uid, recorded->gid, recorded->uid, owners.isPrivateCopy};
    // An interrupted setup in place leaves entries of root's.
    for (const SavedPath& path : PathsOf(saved)) {
        if (path.entry == nullptr || path.entry->owner != Owner::ServiceAccount ||
            path.after.back().kind == State::Kind::Missing || path.after.back().owner == 0)
            continue;
        owners.account = path.after.back().owner;
        owners.group = path.after.back().group;
        if (path.before.kind != State::Kind::Missing && path.before.owner != 0)
            owners.recordedAccount = path.before.owner;
        if (path.entry->item == Item::InstallDirectory)
            break;
    }
    return {};
}

}  // namespace

Restoration::Restoration(const Arguments& arguments, UndoPurpose purpose, const SavedSetup& saved,
                         StagedMachine content, OtherReader readOthers)
    : m_arguments(arguments),
      m_purpose(purpose),
      m_saved(saved),
      m_content(std::move(content)),
      m_readOthers(std::move(readOthers)) {}

// It stays closed if it is kept.
Failure Restoration::OpenTree(Descriptor& tree) const {
    return m_plan.isTreeKept ? Failure() : OpenInstallDirectory(m_content.installDir, tree);
}

Failure Restoration::Read(LiveMachine& live) {
    const TimeLimit limit;
    Descriptor tree;
    m_plan = {};
    Failure failure = IsRemoval(m_purpose) ? FindTreeElsewhere(m_plan.isTreeKept) : Failure();
    if (!failure)
        failure = OpenTree(tree);
    if (failure)
        return failure;
    if (getuid() == 0)
        live.rows = ReadLiveRows(tree.Number());
    failure = FindOwners(m_saved, m_owners);
    if (!failure)
        failure =
            FindUndo(m_saved, m_content, tree.Number(), m_owners, m_services, m_purpose, m_plan);
    if (failure)
        return failure;
    live.differences = m_plan.differences;
    m_others = m_readOthers(m_plan);
    live.differences.paths.insert(live.differences.paths.end(), m_others.begin(), m_others.end());
    return {};
}

void Restoration::ShowKept() const {
    if (m_plan.kept.isEmpty())
        return;
    // A part of the plan to confirm.
    const Console::Printing printing(m_arguments.Has(OwnOption::Yes) ? Console::Importance::Usual
                                                                     : Console::Importance::Needed);
    std::printf("Kept as it is now:\n");
    for (const QString& line : m_plan.kept)
        std::printf("  %s\n", qUtf8Printable(Printable(line)));
}

Failure Restoration::Plan() {
    if (getuid() == 0)
        m_services = FindServiceStates();
    LiveMachine live;
    if (Failure failure = Read(live))
        return failure;
    if (m_purpose == UndoPurpose::FurtherSetup) {
        m_differences = std::move(live.differences);
        return {};
    }
    ShowKept();
    if (IsRemoval(m_purpose) && live.differences.IsEmpty())
        return {};
    const auto read = [this](LiveMachine& now) { return Read(now); };
    const auto showContents = [this](const Differences& differences) { ShowContents(differences); };
    m_content.interactive = !m_arguments.Has(OwnOption::Yes);
    if (!m_arguments.Has(OwnOption::DryRun))
        return Agree(m_content, live.rows, read, showContents, m_differences);
    Failure failure = ShowDifferences(m_content, read, m_differences);
    if (!failure && m_arguments.Has(OwnOption::Diff))
        ShowContents(m_differences);
    if (!failure)
        ShowSummaryOfDryRun(m_differences, IsRemoval(m_purpose) ? "a removal" : "an undo");
    return failure;
}

void Restoration::ShowContents(const Differences& differences) const {
    const Console::Printing printing(Console::Importance::Needed);
    Descriptor tree;
    if (const Failure failure = OpenTree(tree))
        ReportWarning(*failure);
    else
        PrintTextDifferences(m_content, tree.Number(), differences);
}

Failure Restoration::ApplyPaths(TreeMerge& tree, Undo& undo) const {
    const TimeLimit limit;
    const std::vector<PathDifference> paths = WithoutOthers();
    Failure failure = m_plan.isTreeKept ? Failure() : tree.PlaceInTree(paths, undo);
    if (!failure)
        failure = tree.PlaceOutside(paths, undo);
    if (!failure)
        failure = tree.Verify();
    return failure;
}

// While tar unpacks, directories are closed to others, as they stay if the setup is killed. The
// merge does not work in a directory with secrets. There are none if all that is in it is deleted.
void Restoration::OpenUnpackedDirectories(Undo& undo) const {
    std::set<std::string> deleted;
    for (const PathDifference& each : m_differences.paths) {
        if (each.change == Change::Delete)
            deleted.insert(each.path);
    }
    const TimeLimit limit;
    Descriptor tree;
    if (OpenTree(tree) || !tree)
        return;
    const size_t top = m_content.installDir.toStdString().size() + 1;
    constexpr mode_t modeOfTar = 0700;
    for (const PathDifference& each : m_differences.paths) {
        if (each.entry == nullptr || !each.entry->ownsAllBelow || each.before.mode != modeOfTar ||
            each.before.kind != State::Kind::Directory || !deleted.contains(each.path))
            continue;
        const auto opened =
            std::make_shared<Descriptor>(OpenDirectory(tree.Number(), each.path.substr(top)));
        const std::optional<State> now = *opened ? ReadAttributes(*opened) : std::nullopt;
        const auto names = *opened ? PathsBelow(opened->Number(), "") : std::nullopt;
        if (now && now->IsSameInode(each.before) && now->owner == 0 && names &&
            std::ranges::all_of(*names,
                                [&](const std::string& name) {
                                    return deleted.contains(each.path + '/' + name);
                                }) &&
            fchmodat(opened->Number(), ".", each.entry->rootMode, 0) == 0)
            undo.Add([opened] { return fchmodat(opened->Number(), ".", modeOfTar, 0) == 0; });
    }
}

// Everything that can be taken back, then what cannot.
Failure Restoration::Apply() {
    Undo undo;
    OpenUnpackedDirectories(undo);
    if (m_services.isManagerRunning)
        StopRemovedService(m_differences);
    StopServiceForUndo(m_differences, undo);
    TreeMerge tree(m_content, m_owners.account, m_owners.group, m_owners.recordedAccount,
                   MergePurpose::Undo);
    Failure failure = ApplyPaths(tree, undo);
    if (!failure)
        failure = ApplyMembers(m_differences.members, undo);
    if (failure)
        return TakeBackAfter(std::move(failure), undo);
    undo.Forget();
    tree.Finish();
    for (const auto& [group, members] : m_saved.members)
        RestoreOrderOfMembers(group, members);
    DeleteAccounts();
    StartServicesAfterUndo(m_differences);
    return {};
}

// Returns false if it stays.
bool Restoration::DeleteUnused(const AccountDifference& account, bool keepsGroup) const {
    const QString name = QString::fromStdString(account.name);
    const QString kind = account.isGroup ? QStringLiteral("group") : QStringLiteral("user");
    const AccountUse found = FindAccountUse(account, DirectoriesOfAccounts(), longestSearch);
    std::optional<QString> reason;
    if (!found.use.isEmpty())
        reason = QStringLiteral("used by ") + found.use;
    else if (!found.missed.isEmpty())
        reason = QStringLiteral("\"%1\" was not searched completely").arg(found.missed);
    else
        reason = DeleteAccount(account, keepsGroup);
    if (reason) {
        ReportWarning({ExitStatus::Complete,
                       QStringLiteral("cannot delete %1 \"%2\": %3").arg(kind, name, *reason),
                       QStringLiteral("Make sure that nothing uses it, then delete it.")});
        return false;
    }
    QStringList notSearched = found.notSearched;
    notSearched.append(QStringLiteral("all other directories"));
    const QString searched = found.searched.isEmpty() ? QStringLiteral("none")
                                                      : found.searched.join(QStringLiteral(", "));
    std::printf("Searched for files of %s \"%s\" in: %s. Not searched: %s.\n", qUtf8Printable(kind),
                qUtf8Printable(Printable(name)), qUtf8Printable(Printable(searched)),
                qUtf8Printable(Printable(notSearched.join(QStringLiteral(", ")))));
    return true;
}

void Restoration::DeleteAccounts() const {
    const std::vector<AccountDifference>& accounts = m_differences.accounts;
    std::vector<gid_t> kept;
    for (const AccountDifference& account : accounts) {
        const bool createdGroup = std::ranges::any_of(accounts, [&](const AccountDifference& each) {
            return each.isGroup && each.name == account.name;
        });
        if (account.isGroup && std::ranges::find(kept, account.gid) != kept.end())
            continue;
        if (!DeleteUnused(account, !createdGroup) && !account.isGroup)
            kept.push_back(account.gid);
    }
}

std::vector<PathDifference> Restoration::WithoutOthers() const {
    std::vector<PathDifference> paths = m_differences.paths;
    std::erase_if(paths, [&](const PathDifference& each) {
        return std::ranges::any_of(
            m_others, [&](const PathDifference& other) { return other.path == each.path; });
    });
    return paths;
}

Failure AboutAction(Failure failure, const ActionTexts& texts) {
    if (!failure)
        return failure;
    failure->text.replace(QStringLiteral("setup canceled"), QLatin1String(texts.canceled));
    failure->text.replace(QStringLiteral("during the setup"), QLatin1String(texts.during));
    for (const char* former : {"un the setup again", "un the undo again"})
        failure->remedy.replace(QLatin1String(former), QLatin1String(texts.again));
    return failure;
}
