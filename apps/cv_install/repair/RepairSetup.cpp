#include "repair/RepairSetup.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QCryptographicHash>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <nlohmann/json.hpp>

#include "Console.h"
#include "WriteAll.h"
#include "apply/Interruption.h"
#include "apply/SetupLog.h"
#include "installation/PathParts.h"
#include "installation/ServiceState.h"
#include "installation/TimeLimit.h"
#include "installation/Tool.h"
#include "installation/TreeCheck.h"
#include "merge/Accounts.h"
#include "merge/MergePaths.h"
#include "merge/PrivateDirectory.h"
#include "merge/Services.h"
#include "merge/TreeMerge.h"
#include "record/PreviousSetup.h"
#include "record/SetupRecord.h"
#include "repair/RepairPlan.h"
#include "repair/RepairStaging.h"
#include "report/JsonReport.h"
#include "report/Report.h"
#include "report/Summary.h"
#include "report/TextDifferences.h"
#include "staging/StagedRun.h"
#include "staging/UserView.h"
#include "undo/Restoration.h"
#include "undo/Snapshot.h"
#include "verify/Verification.h"
#include "verify/VerifyReport.h"

namespace {

constexpr const char* setUpAgain = "Run \"cv_install --setup --yes\" instead.";

// A directory that is not readable hides what is below it from a verification.
constexpr int mostRounds = 4;

Problem NotTheSame(const std::string& path) {
    return {ExitStatus::ChecksFailed,
            QStringLiteral("cannot restore \"%1\": the content that this product creates differs "
                           "from the recorded one")
                .arg(QString::fromStdString(path)),
            QLatin1String(setUpAgain)};
}

std::string HexDigestOf(const QByteArray& content) {
    return QCryptographicHash::hash(content, QCryptographicHash::Sha256).toHex().toStdString();
}

class SetupRepair {
public:
    SetupRepair(Arguments& arguments, const SetupLock& lock)
        : m_arguments(arguments), m_lock(lock) {}

    // `status` is that of a child process that failed, which has reported that.
    Failure Run(ExitStatus& status);

private:
    Failure Plan(int round);
    Failure Prepare(ExitStatus& status);
    Failure Stage(ExitStatus& status);
    Descriptor OpenTree() const;
    void CleanUpCopy() const;
    Failure CheckProduct() const;
    Failure CheckContents();
    Failure TakeSharedContents();
    Failure Show(int round);
    Failure Apply();
    Failure ApplyPaths(TreeMerge& tree, Undo& undo) const;
    Failure PrepareRecord();
    Failure ApplyRecord();
    Failure ContentOf(const PathDifference& difference, QByteArray& content) const;
    void ShowLeft() const;
    void ShowUnchecked() const;
    Failure Finish();

    bool IsDryRun() const { return m_arguments.Has(OwnOption::DryRun); }
    const Manifest& Expected() const { return m_installation.manifest; }

    Arguments& m_arguments;
    const SetupLock& m_lock;
    RecordedInstallation m_installation;
    StagedMachine m_staged;
    bool m_isStaged = false;
    RepairPlan m_plan;
    std::vector<Unchecked> m_unchecked;  // by the last verification
    bool m_controlsService = false;
    std::unique_ptr<RecordDirectory> m_record;
};

Failure SetupRepair::Plan(int round) {
    VerifyResult result;
    if (Failure failure = FindInstalledDifferences(m_installation, result)) {
        if (Expected().entries.empty())
            failure->status = ExitStatus::RecordUnusable;
        return failure;
    }
    // The service was started or restarted in the first round.
    if (round > 0) {
        std::erase_if(result.differences, [](const FoundDifference& difference) {
            return std::string(difference.kind) == VerifyResult::service;
        });
    }
    m_unchecked = result.unchecked;
    return FindRepair(m_installation, result, round == 0 && m_lock.FoundIncompleteMerge(), m_plan);
}

// Where the install directory was, without following links. Invalid, with errno set, if there is
// none.
Descriptor SetupRepair::OpenTree() const {
    const Descriptor top(open(Expected().top.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    return top ? OpenDirectory(top.Number(), Expected().tree) : Descriptor();
}

// Removes what a killed repair left. The lock of a private copy does not show that there was one.
void SetupRepair::CleanUpCopy() const {
    PrivateDirectory::CleanUp(
        std::make_shared<LiveDirectory>(LiveDirectory{OpenTree(), Expected().top}));
    m_installation.record->RemoveIfEmpty();
}

Failure SetupRepair::CheckProduct() const {
    const QString& version = Expected().facts.version;
    if (version == QStringLiteral(HX_VERSION))
        return {};
    return Problem{ExitStatus::ChecksFailed,
                   QStringLiteral("the setup was made by version %1; this product is version %2")
                       .arg(version, QStringLiteral(HX_VERSION)),
                   QLatin1String(setUpAgain)};
}

// If no file is created, the layers are not read, but they must be open.
Failure SetupRepair::Stage(ExitStatus& status) {
    if (!m_plan.NeedsContent()) {
        for (Descriptor* layer : {&m_staged.tree, &m_staged.etc, &m_staged.bin}) {
            *layer = Descriptor(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
            if (!*layer)
                return UnreadablePath("/", errno);
        }
        m_staged.installDir = QString::fromStdString(TreeOf(Expected()));
        return {};
    }
    Failure failure = CheckProduct();
    if (!failure && !m_installation.IsRoots()) {
        failure = UserView::FindObstacle();
        if (failure) {
            failure->text.replace(QStringLiteral("cannot find out what a setup would change"),
                                  QStringLiteral("cannot create the files again"));
        }
    }
    if (failure)
        return failure;
    Descriptor liveTree;
    {
        const TimeLimit limit;
        // What is there may be damaged.
        if (!m_installation.IsRoots())
            liveTree = OpenTree();
        else if (OpenInstallDirectory(liveTree))
            liveTree = Descriptor();
    }
    StagedResult result = RunStaged(
        m_installation.installDir, liveTree,
        [&](StagedMachine& staged) {
            return StageAgain(m_arguments, Expected(), liveTree, m_lock, staged);
        },
        TreeView::Empty);
    if (result.signal != 0)
        Interruption::End(result.signal);
    if (!result.impossible.isEmpty()) {
        return Problem{ExitStatus::NoDryRun,
                       QStringLiteral("cannot create the files again: %1").arg(result.impossible),
                       QStringLiteral("That needs private mounts. Run the setup instead, or repair "
                                      "outside of the container or chroot.")};
    }
    if (!result.staged) {
        status = static_cast<ExitStatus>(result.status);
        return {};
    }
    m_staged = std::move(*result.staged);
    m_staged.installDir = QString::fromStdString(TreeOf(Expected()));
    // The report is about the repair alone.
    m_staged.values.clear();
    m_isStaged = true;
    return {};
}

// Compares the new files with what the setup left.
Failure SetupRepair::CheckContents() {
    const std::vector<PathDifference> paths = m_plan.differences.paths;
    for (const PathDifference& difference : paths) {
        const State& wanted = difference.after;
        if (wanted.kind != State::Kind::File || wanted.digest.empty() || IsInRecord(difference))
            continue;
        const LayerPath place = PathIn(m_staged, difference.path);
        const std::optional<State> made = ReadStateAt(place.base, place.path, Reading::AllFiles);
        if (made && made->digest == wanted.digest)
            continue;
        // A page that was edited before the setup, which kept it.
        if (!difference.entry->ownsAllBelow)
            return NotTheSame(difference.path);
        m_plan.Leave(difference.path, QStringLiteral("the product has a different page"));
    }
    return {};
}

bool WriteStaged(int tree, const std::string& path, const QByteArray& text) {
    const Descriptor parent = OpenDirectory(tree, ParentOf(path));
    const Descriptor file(parent ? openat(parent.Number(), BaseNameOf(path).c_str(),
                                          O_WRONLY | O_TRUNC | O_NOFOLLOW | O_CLOEXEC)
                                 : -1);
    return file &&
           WriteAll(file.Number(), {text.constData(), static_cast<size_t>(text.size())}) == 0;
}

// What users wrote to a file stays. Members of the service group can put their own or another
// user's file there, which the repair would give to root: it is kept under a dated name. One that
// cannot be read now may have been edited.
Failure SetupRepair::TakeSharedContents() {
    // A private copy is the user's own.
    const Reading reading = m_installation.IsRoots() ? Reading::PublicFiles : Reading::AllFiles;
    for (PathDifference& difference : m_plan.differences.paths) {
        const bool isShared = difference.entry != nullptr &&
                              difference.entry->content == Content::Shared &&
                              difference.entry->item != Item::QueueEntries;
        if (!isShared || difference.before.kind != State::Kind::File)
            continue;
        const LayerPath place = PathIn(m_staged, difference.path);
        const Descriptor tree = OpenTree();
        const auto live =
            tree ? ReadContent(tree.Number(), place.path, reading) : std::optional<FileContent>();
        if (!live && errno != ENOENT && errno != ENOTDIR && errno != ELOOP)
            return UnreadablePath(difference.path, errno);
        const bool isKnown =
            live &&
            (!m_installation.IsRoots() ||
             (live->links == 1 && (live->owner == 0 || live->owner == difference.after.owner)));
        if (!isKnown || live->refusal != nullptr) {
            difference.keepsReplaced = true;
            continue;
        }
        QByteArray text = live->bytes;
        if (difference.entry->item == Item::QueueLimits)
            text = WithLimits(text, LimitsOf(Expected().answers));
        if (!WriteStaged(place.base, place.path, text))
            return FailedInMerge(difference.path, errno);
        difference.before.digest = HexDigestOf(live->bytes);
        difference.after.digest = HexDigestOf(text);
    }
    return {};
}

Failure SetupRepair::Prepare(ExitStatus& status) {
    // A stage without files cannot serve a round with files.
    if (!m_isStaged) {
        if (Failure failure = Stage(status))
            return failure;
        if (status != ExitStatus::Complete)
            return {};
    }
    const TimeLimit limit;
    Failure failure = CheckContents();
    if (!failure)
        failure = TakeSharedContents();
    return failure;
}

void SetupRepair::ShowLeft() const {
    if (m_plan.left.empty())
        return;
    const Console::Printing needed(Console::Importance::Needed);
    std::printf("Left as it is:\n");
    for (const LeftDifference& left : m_plan.left)
        std::printf("  %s (%s)\n", qUtf8Printable(Printable(LineOf(left.difference))),
                    qUtf8Printable(Printable(left.reason)));
}

// Only the first round of a repair is planned in a dry run.
void SetupRepair::ShowUnchecked() const {
    const Console::Printing needed(Console::Importance::Needed);
    PrintUnchecked(m_unchecked);
    if (!m_unchecked.empty())
        std::printf("A repair can find further differences.\n");
}

Failure SetupRepair::Show(int round) {
    if (m_plan.differences.IsEmpty()) {
        const Console::Printing needed(Console::Importance::Needed);
        std::printf("Nothing to repair.\n");
    } else {
        std::printf("Repair of the setup of %s:\n",
                    qUtf8Printable(Printable(Expected().facts.time)));
        PrintReport(m_staged, m_plan.differences);
    }
    if (round == 0) {
        ShowLeft();
        JsonReport::NoteChanges(m_plan.differences, false);
    }
    if (IsDryRun())
        ShowUnchecked();
    std::vector<FoundDifference> left;
    for (const LeftDifference& each : m_plan.left)
        left.push_back(each.difference);
    JsonReport::NoteMember("differences", JsonOf(left));
    if (!m_arguments.Has(OwnOption::Diff))
        return {};
    const Console::Printing printing(Console::Importance::Needed);
    Differences shown = m_plan.differences;
    std::erase_if(shown.paths, [](const PathDifference& path) { return IsInRecord(path); });
    const Descriptor tree = OpenTree();
    PrintTextDifferences(m_staged, tree.Number(), shown);
    return {};
}

// The content of a file of the record.
Failure SetupRepair::ContentOf(const PathDifference& difference, QByteArray& content) const {
    const Item item = difference.entry->item;
    const int directory = item == Item::Manifest ? m_record->Public() : m_record->Private();
    const auto live = ReadContent(directory, BaseNameOf(difference.path), Reading::AllFiles);
    const QByteArray text = live ? live->bytes : QByteArray();
    const auto isRecorded = [&](const QByteArray& each) {
        return item == Item::Manifest ? ParseManifest(each).has_value()
                                      : HexDigestOf(each) == difference.after.digest;
    };
    for (const QByteArray& each :
         {text, RecordedAnswersText(Expected().facts, Expected().answers), m_staged.script}) {
        content = each;
        if (isRecorded(each))
            return {};
    }
    if (item != Item::RecordedScript)
        return m_record->Damaged(item);
    return NotTheSame(difference.path);
}

// Writes the new files next to the present ones.
Failure SetupRepair::PrepareRecord() {
    if (m_lock.FoundIncompleteMerge())
        m_installation.record->RemoveIfEmpty();
    Failure failure;
    for (const PathDifference& difference : m_plan.differences.paths) {
        if (failure || !IsInRecord(difference))
            continue;
        if (m_record == nullptr) {
            m_record = std::make_unique<RecordDirectory>(m_installation.installDir);
            failure = m_record->Create();
        }
        QByteArray content;
        if (failure || difference.after.kind != State::Kind::File)
            continue;
        failure = ContentOf(difference, content);
        if (!failure)
            failure = m_record->Prepare(difference.entry->item, content);
    }
    return failure;
}

Failure SetupRepair::ApplyRecord() {
    if (m_record == nullptr)
        return {};
    for (const PathDifference& difference : m_plan.differences.paths) {
        if (!IsInRecord(difference) || difference.after.kind != State::Kind::Directory)
            continue;
        const Item item = difference.entry->item;
        // The one above a user's record has no name.
        const int directory = item == Item::RecordPrivate ? m_record->Private()
                              : item == Item::Unnamed     ? m_record->Above()
                                                          : m_record->Public();
        if (fchown(directory, difference.after.owner, difference.after.group) != 0 ||
            fchmod(directory, difference.after.mode) != 0)
            return FailedInMerge(difference.path, errno);
    }
    Failure failure = m_record->Replace();
    m_record.reset();
    return failure;
}

Failure SetupRepair::ApplyPaths(TreeMerge& tree, Undo& undo) const {
    const TimeLimit limit;
    std::vector<PathDifference> paths = m_plan.differences.paths;
    std::erase_if(paths, [](const PathDifference& path) { return IsInRecord(path); });
    Failure failure = tree.PlaceInTree(paths, undo);
    if (!failure)
        failure = tree.PlaceOutside(paths, undo);
    if (!failure)
        failure = tree.Verify();
    return failure;
}

Failure SetupRepair::Apply() {
    const std::optional<AccountFacts>& account = Expected().account;
    const Differences& differences = m_plan.differences;
    Undo undo;
    TreeMerge tree(m_staged, account ? account->uid : getuid(), account ? account->gid : getgid(),
                   account ? account->uid : static_cast<uid_t>(-1), MergePurpose::Repair);
    Failure failure = PrepareRecord();
    if (!failure)
        failure = ApplyAccounts(differences, undo);
    if (!failure)
        failure = ApplyUserChanges(differences.userChanges, undo);
    if (!failure)
        failure = ApplyPaths(tree, undo);
    if (failure)
        return TakeBackAfter(std::move(failure), undo);
    undo.Forget();
    tree.Finish();
    failure = ApplyRecord();
    if (failure)
        failure->changes = Changes::Unknown;
    m_controlsService = m_controlsService || !differences.services.empty();
    // Otherwise the manager refuses to start a service that failed too often.
    if (!differences.services.empty() && differences.services.front().change == Change::Create)
        RunTool({"systemctl", "reset-failed", serviceUnit}, Messages::Discarded);
    StartService(differences);
    return failure;
}

Failure SetupRepair::Finish() {
    Summary summary = {.isRoot = m_installation.IsRoots(),
                       .hasService = m_controlsService,
                       .serviceState = {},
                       .serviceMessages = {},
                       .installDir = m_installation.installDir,
                       .missingCommands = {}};
    const Console::Printing needed(Console::Importance::Needed);
    std::printf("cv_install: repaired the setup of %s\n",
                qUtf8Printable(Printable(Expected().facts.time)));
    std::fflush(stdout);
    return CheckService(summary);
}

Failure SetupRepair::Run(ExitStatus& status) {
    Failure failure = FindOwnInstallation(m_arguments.argv()[0], m_installation);
    if (!failure)
        JsonReport::NoteInstallDirectory(m_installation.installDir);
    if (!failure && !m_installation.IsRoots() && !IsDryRun())
        CleanUpCopy();
    bool isChanged = false;
    for (int round = 0; !failure; ++round) {
        failure = Plan(round);
        if (!failure && (!m_plan.differences.IsEmpty() || m_lock.FoundIncompleteMerge()))
            failure = Prepare(status);
        if (failure || status != ExitStatus::Complete)
            break;
        if (m_plan.differences.IsEmpty() && isChanged)
            return Finish();
        failure = Show(round);
        // What a killed setup or repair left is removed even if nothing differs.
        const bool cleansUp = round == 0 && m_lock.FoundIncompleteMerge();
        if ((m_plan.differences.IsEmpty() && !cleansUp) || IsDryRun()) {
            if (!IsDryRun())
                SetupLog::Discard();
            else
                ShowSummaryOfDryRun(m_plan.differences, "a repair");
            return {};
        }
        if (round == mostRounds) {
            return Problem{ExitStatus::Incomplete,
                           QStringLiteral("differences remain after the repair"),
                           QStringLiteral("Find out what changes the machine, then repair again."),
                           Changes::Unknown};
        }
        SetupLog::Keep();
        Interruption::ComesTooLate();
        m_lock.NoteMerge(true);
        failure = Apply();
        // The next setup or repair completes one that was not taken back.
        m_lock.NoteMerge(failure && failure->changes != Changes::None);
        isChanged = isChanged || !failure;
    }
    if (failure && isChanged) {
        failure->changes = Changes::Unknown;
        failure->remedy += QStringLiteral(" Changes made so far were kept.");
    }
    return failure;
}

}  // namespace

ExitStatus Repair(Arguments& arguments, const SetupLock& lock) {
    if (!arguments.Has(OwnOption::DryRun))
        SetupLog::Start(getuid() == 0);
    JsonReport::NoteLog(SetupLog::Path());
    ExitStatus status = ExitStatus::Complete;
    const Failure failure = AboutAction(SetupRepair(arguments, lock).Run(status),
                                        {"repair canceled", "during the repair", "epair again"});
    if (!failure)
        return status;
    Report(*failure);
    return failure->status;
}
