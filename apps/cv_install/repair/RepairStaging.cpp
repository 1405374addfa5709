#include "repair/RepairStaging.h"

#include <sys/stat.h>
#include <unistd.h>

#include <QFile>
#include <cerrno>
#include <cstring>

#include "Console.h"
#include "StagedSetup.h"
#include "answers/Conversation.h"
#include "answers/Members.h"
#include "answers/StartRun.h"
#include "apply/ScriptRun.h"
#include "installation/TreeCheck.h"
#include "staging/PrivateMounts.h"
#include "staging/UserView.h"

namespace {

Problem CannotPrepare(const char* path) {
    return {ExitStatus::SystemCallFailed,
            QStringLiteral("cannot prepare \"%1\" for the repair: %2")
                .arg(QLatin1String(path), QString::fromUtf8(std::strerror(errno))),
            QStringLiteral("Fix the cause, then repair again.")};
}

// Replaces the record of a user or group, or adds it. Only in the private view.
bool SetAccountRecord(const char* path, const std::string& name, const QByteArray& record) {
    QFile former(QString::fromLatin1(path));
    if (!former.open(QIODevice::ReadOnly))
        return false;
    QByteArray text;
    for (const QByteArray& line : former.readAll().split('\n')) {
        if (!line.isEmpty() && !line.startsWith(QByteArray::fromStdString(name) + ':'))
            text += line + '\n';
    }
    text += record + '\n';
    const std::string newPath = std::string(path) + ".corvane26";
    QFile file(QString::fromStdString(newPath));
    return file.open(QIODevice::WriteOnly) && file.write(text) == text.size() && file.flush() &&
           chmod(newPath.c_str(), 0644) == 0 && rename(newPath.c_str(), path) == 0;
}

Failure SetAccount(const AccountFacts& account) {
    const std::string members = [&] {
        std::string all;
        for (const std::string& member : account.members)
            all += (all.empty() ? "" : ",") + member;
        return all;
    }();
    const std::string group = account.group + ":x:" + std::to_string(account.gid) + ':' + members;
    const std::string user = account.user + ":x:" + std::to_string(account.uid) + ':' +
                             std::to_string(account.primaryGid) + ':' + accountComment + ':' +
                             account.home + ':' + account.shell;
    if (!SetAccountRecord("/etc/group", account.group, QByteArray::fromStdString(group)))
        return CannotPrepare("/etc/group");
    if (!SetAccountRecord("/etc/passwd", account.user, QByteArray::fromStdString(user)))
        return CannotPrepare("/etc/passwd");
    return {};
}

// Removes what the script writes outside of the install directory, whatever it is. What stays shows
// when the result is compared with the manifest.
void ClearRows() {
    for (const Entry& entry : Entries()) {
        if (!IsStaged(entry) || IsInTree(entry) || entry.kind == Kind::EarlierService)
            continue;
        struct stat found = {};
        const bool isDirectory = lstat(entry.path, &found) == 0 && S_ISDIR(found.st_mode);
        if (entry.kind == Kind::Directory && isDirectory) {
            [[maybe_unused]] const bool isRoots =
                chown(entry.path, 0, 0) == 0 && chmod(entry.path, entry.rootMode) == 0;
        } else if (unlink(entry.path) != 0) {
            rmdir(entry.path);
        }
    }
}

}  // namespace

Failure StageAgain(Arguments& arguments, const Manifest& manifest, const Descriptor& liveTree,
                   const SetupLock& lock, StagedMachine& staged) {
    // What the library and the script print is about a setup.
    const Console::Printing detail(Console::Importance::Detail);
    Console::SetDefaultLevel(Console::Level::Quiet);
    const Descriptor scripts = OpenScriptDirectory();
    const bool isRoot = manifest.account.has_value();
    // A private copy is recorded under the path that the setup used, which may have led there
    // through links. Its files contain that path.
    std::string program = manifest.facts.installDir.toStdString() + "/cv_install";
    if (!isRoot && manifest.productDir == manifest.top)
        arguments.argv()[0] = program.data();
    Failure failure;
    if (isRoot) {
        ClearRows();
        failure = SetAccount(*manifest.account);
    } else {
        failure = UserView::Enter(liveTree, TreeView::Empty, staged);
    }
    if (failure)
        return failure;
    Answers answers;
    const std::unique_ptr<CInstallBase> run = StartRun(arguments, manifest.answers, {}, answers);
    if (isRoot)
        failure = CheckPlaces(run->m_binariesDir, run->m_installDir);
    if (!failure) {
        failure = AskQuestions(*run, answers, {}, [&](const QString& scratch) {
            if (isRoot)
                PrivateMounts::ShowScratchDirectory(liveTree, scratch);
        });
    }
    staged.answers = answers;
    staged.conditions = ConditionsOf(*run, answers);
    if (!failure && isRoot)
        failure = PrivateMounts::CoverTemporaryFiles();
    CommitScript script;
    script.isDryRun = arguments.Has(OwnOption::DryRun);
    if (!failure)
        failure = StageFiles(*run, {}, liveTree, lock, staged, script);
    if (failure)
        FinishFailedStage(script, scripts, failure);
    return failure;
}
