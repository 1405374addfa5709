#include "undo/UndoSetup.h"

#include <algorithm>
#include <cstdio>

#include "Console.h"
#include "answers/AnswersFile.h"
#include "apply/Interruption.h"
#include "apply/SetupLog.h"
#include "installation/Installation.h"
#include "installation/TimeLimit.h"
#include "installation/TreeCheck.h"
#include "merge/Accounts.h"
#include "merge/ServiceAccount.h"
#include "merge/Services.h"
#include "merge/TreeMerge.h"
#include "report/Agreement.h"
#include "report/JsonReport.h"
#include "report/TextDifferences.h"
#include "undo/AccountUse.h"
#include "undo/SavedStates.h"
#include "undo/UndoPlan.h"

namespace {

constexpr std::chrono::seconds longestSearch(10);
constexpr qsizetype longestAnswersFile = 65536;

// The merge's texts are about a setup.
Failure AboutUndo(Failure failure) {
    if (!failure)
        return failure;
    failure->text.replace(QStringLiteral("setup canceled"), QStringLiteral("undo canceled"));
    failure->text.replace(QStringLiteral("during the setup"), QStringLiteral("during the undo"));
    failure->remedy.replace(QStringLiteral("un the setup again"),
                            QStringLiteral("un the undo again"));
    return failure;
}

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

// The service accounts after and before the setup, whose entries the undo changes.
struct OwnersOfUndo {
    uid_t account = static_cast<uid_t>(-1);
    gid_t group = static_cast<gid_t>(-1);
    uid_t before = static_cast<uid_t>(-1);
};

Failure FindOwners(const SavedSetup& saved, OwnersOfUndo& owners) {
    std::optional<ServiceAccount> recorded;
    if (Failure failure = ReadServiceAccount(recorded))
        return failure;
    if (recorded)
        owners = {recorded->uid, recorded->gid, recorded->uid};
    for (const SavedPath& path : PathsOf(saved)) {
        if (path.entry == nullptr || path.entry->owner != Owner::ServiceAccount ||
            path.after.back().kind == State::Kind::Missing)
            continue;
        owners.account = path.after.back().owner;
        owners.group = path.after.back().group;
        if (path.before.kind != State::Kind::Missing && path.before.owner != 0)
            owners.before = path.before.owner;
        if (path.entry->item == Item::InstallDirectory)
            break;
    }
    return {};
}

class SetupUndo {
public:
    SetupUndo(const Arguments& arguments, const SetupLock& lock)
        : m_arguments(arguments), m_lock(lock) {}

    Failure Run();

private:
    Failure Plan();
    Failure Read(LiveMachine& live);
    void ShowKept() const;
    void ShowContents(const Differences& differences) const;
    Failure Apply();
    Failure ApplyPaths(TreeMerge& tree, Undo& undo) const;
    void DeleteAccounts() const;
    bool DeleteUnused(const AccountDifference& account, bool keepsGroup) const;
    void Finish() const;

    const Arguments& m_arguments;
    const SetupLock& m_lock;
    SavedStates m_states;
    StagedMachine m_content;
    ServiceStates m_services;
    UndoPlan m_plan;
    Differences m_differences;  // that were shown
};

Failure SetupUndo::Read(LiveMachine& live) {
    const TimeLimit limit;
    Descriptor tree;
    Failure failure = OpenInstallDirectory(tree);
    if (failure)
        return failure;
    live.rows = ReadLiveRows(tree.Number());
    failure = FindUndo(m_states.Saved(), m_content, tree.Number(), m_services,
                       m_arguments.Has(OwnOption::Force), m_plan);
    live.differences = m_plan.differences;
    return failure;
}

void SetupUndo::ShowKept() const {
    if (m_plan.kept.isEmpty())
        return;
    std::printf("Kept as it is now:\n");
    for (const QString& line : m_plan.kept)
        std::printf("  %s\n", qUtf8Printable(Printable(line)));
}

Failure SetupUndo::Plan() {
    const SetupFacts& facts = m_states.Facts();
    std::printf("Undo of the setup of %s by %s:\n  %s\n", qUtf8Printable(Printable(facts.time)),
                qUtf8Printable(Printable(facts.user)), qUtf8Printable(Printable(facts.command)));
    m_services = FindServiceStates();
    LiveMachine live;
    if (Failure failure = Read(live))
        return failure;
    ShowKept();
    const auto read = [this](LiveMachine& now) { return Read(now); };
    const auto showContents = [this](const Differences& differences) { ShowContents(differences); };
    m_content.interactive = !m_arguments.Has(OwnOption::Yes);
    if (!m_arguments.Has(OwnOption::DryRun))
        return Agree(m_content, live.rows, read, showContents, m_differences);
    Failure failure = ShowDifferences(m_content, read, m_differences);
    if (!failure && m_arguments.Has(OwnOption::Diff))
        ShowContents(m_differences);
    return failure;
}

void SetupUndo::ShowContents(const Differences& differences) const {
    const Console::Printing printing(Console::Importance::Needed);
    Descriptor tree;
    if (const Failure failure = OpenInstallDirectory(tree))
        ReportWarning(*failure);
    else
        PrintTextDifferences(m_content, tree.Number(), differences);
}

Failure SetupUndo::ApplyPaths(TreeMerge& tree, Undo& undo) const {
    const TimeLimit limit;
    Failure failure = tree.PlaceInTree(m_differences.paths, undo);
    if (!failure)
        failure = tree.PlaceOutside(m_differences.paths, undo);
    if (!failure)
        failure = tree.Verify();
    return failure;
}

// Everything that can be taken back, then what cannot.
Failure SetupUndo::Apply() {
    OwnersOfUndo owners;
    if (Failure failure = FindOwners(m_states.Saved(), owners))
        return failure;
    Undo undo;
    StopServiceForUndo(m_differences, undo);
    TreeMerge tree(m_content, owners.account, owners.group, owners.before, MergePurpose::Undo);
    Failure failure = ApplyPaths(tree, undo);
    if (!failure)
        failure = ApplyMembers(m_differences.members, undo);
    if (failure) {
        undo.Run();
        return failure;
    }
    undo.Forget();
    tree.Finish();
    for (const auto& [group, members] : m_states.Saved().members)
        RestoreOrderOfMembers(group, members);
    DeleteAccounts();
    StartServicesAfterUndo(m_differences);
    return {};
}

// Returns false if it stays.
bool SetupUndo::DeleteUnused(const AccountDifference& account, bool keepsGroup) const {
    const QString name = QString::fromStdString(account.name);
    const QString kind = account.isGroup ? QStringLiteral("group") : QStringLiteral("user");
    const AccountUse found = FindAccountUse(account, DirectoriesOfAccounts(), longestSearch);
    std::optional<QString> reason;
    if (!found.use.isEmpty())
        reason = QStringLiteral("used by ") + found.use;
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
    std::printf("Files of %s %s were searched for in: %s. Not searched: %s.\n",
                qUtf8Printable(kind), qUtf8Printable(Printable(name)),
                qUtf8Printable(Printable(found.searched.join(QStringLiteral(", ")))),
                qUtf8Printable(Printable(notSearched.join(QStringLiteral(", ")))));
    return true;
}

void SetupUndo::DeleteAccounts() const {
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

void SetupUndo::Finish() const {
    const Console::Printing summary(Console::Importance::Needed);
    std::printf("cv_install: undid the setup of %s\n",
                qUtf8Printable(Printable(m_states.Facts().time)));
    std::fflush(stdout);
}

Failure SetupUndo::Run() {
    Failure failure = m_states.LoadLast();
    if (failure && !m_arguments.Has(OwnOption::DryRun))
        m_states.RemoveLeftovers();
    if (!failure)
        failure = m_states.OpenContent(m_content);
    if (!failure)
        failure = Plan();
    if (!failure)
        JsonReport::NoteChanges(m_differences, true);
    if (failure || m_arguments.Has(OwnOption::DryRun))
        return failure;
    SetupLog::Keep();
    Interruption::ComesTooLate();
    // Whatever ends it from here on, a further undo or setup completes it.
    m_lock.NoteMerge(true);
    const bool wasComplete = m_states.Saved().isComplete;
    failure = m_states.NoteComplete(false);
    if (!failure) {
        failure = Apply();
        if (failure)
            m_states.NoteComplete(wasComplete);
    }
    if (!failure)
        failure = m_states.RestoreRecord();
    m_lock.NoteMerge(false);
    if (!failure)
        Finish();
    return failure;
}

}  // namespace

ExitStatus UndoAsRoot(const Arguments& arguments, const SetupLock& lock) {
    if (!arguments.Has(OwnOption::DryRun))
        SetupLog::Start(true);
    JsonReport::NoteLog(SetupLog::Path());
    const Failure failure = AboutUndo(SetupUndo(arguments, lock).Run());
    if (!failure)
        return ExitStatus::Complete;
    Report(*failure);
    return failure->status;
}
