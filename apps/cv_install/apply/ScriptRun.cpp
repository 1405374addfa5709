#include "apply/ScriptRun.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/types.h>
#include <unistd.h>

#include <QDeadlineTimer>
#include <QThread>
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "Console.h"
#include "Outcome.h"
#include "WriteAll.h"
#include "apply/Interruption.h"
#include "apply/ProcessGroup.h"
#include "apply/Progress.h"
#include "apply/SetupLog.h"
#include "commit/CCommitScript.h"
#include "installation/Installation.h"
#include "installation/ReadBack.h"
#include "installation/SignalsHandled.h"

namespace {

using std::chrono::milliseconds;

// What the handler shares with the rest: the script's process group and the last signal.
std::atomic<pid_t> scriptGroup = 0;
std::atomic<int> receivedSignal = 0;
static_assert(std::atomic<int>::is_always_lock_free);

// Bash ignores the quit key's signal, and would continue without the tool that dies of it.
int ForTheScript(int signal) {
    return signal == SIGQUIT ? SIGTERM : signal;
}

void PassOn(int signal) {
    const int error = errno;
    receivedSignal = signal;
    if (scriptGroup > 0)
        kill(-scriptGroup, ForTheScript(signal));
    errno = error;
}

void DieOf(int signal) {
    std::signal(signal, SIG_DFL);
    raise(signal);
}

// Also passes on a signal that came before the group existed.
void PassSignalsTo(pid_t group) {
    setpgid(group, group);
    scriptGroup = group;
    if (receivedSignal != 0)
        kill(-group, ForTheScript(receivedSignal));
}

void WriteTo(FILE* stream, const QByteArray& text) {
    std::fwrite(text.constData(), 1, static_cast<size_t>(text.size()), stream);
}

// True when stdout and stderr are the same file, where the order of their lines matters.
bool StreamsAreOneFile() {
    struct stat out = {};
    struct stat err = {};
    return fstat(STDOUT_FILENO, &out) == 0 && fstat(STDERR_FILENO, &err) == 0 &&
           out.st_dev == err.st_dev && out.st_ino == err.st_ino;
}

// Copies the script's output, as it comes, through our own streams and so into the log.
void ShowOutput(CCommitScript& script, Progress& progress) {
    if (StreamsAreOneFile())
        script.setProcessChannelMode(QProcess::MergedChannels);
    QObject::connect(&script, &QProcess::readyReadStandardOutput,
                     [&script, &progress] { progress.Show(script.readAllStandardOutput()); });
    QObject::connect(&script, &QProcess::readyReadStandardError, [&script] {
        const QByteArray text = script.readAllStandardError();
        std::fflush(stdout);
        WriteTo(stderr, text);
    });
}

// Collects the script's output, in the order in which it came.
void CollectOutput(CCommitScript& script, QByteArray& collected) {
    script.setProcessChannelMode(QProcess::MergedChannels);
    QObject::connect(&script, &QProcess::readyReadStandardOutput,
                     [&script, &collected] { collected += script.readAllStandardOutput(); });
}

ExitStatus StatusOfSignal(int signal) {
    return static_cast<ExitStatus>(static_cast<int>(ExitStatus::SignalBase) + signal);
}

QString NameOf(int signal) {
    return QString::fromUtf8(strsignal(signal));
}

void DiscardMessage(QtMsgType /*type*/, const QMessageLogContext& /*context*/,
                    const QString& /*text*/) {}

Problem CannotStart(const QString& cause, const QString& remedy) {
    return {ExitStatus::ScriptNotStarted,
            QStringLiteral("cannot start the commit script: %1").arg(cause), remedy,
            Changes::RunTimeFiles};
}

// Qt describes a failure in this process by the errno of a later call.
Failure StartScript(CCommitScript& script, const QString& path) {
    // Qt would print failures too. Its first message reads files, which changes errno.
    const QtMessageHandler former = qInstallMessageHandler(DiscardMessage);
    qWarning(" ");
    script.Run(path);
    const int error = errno;
    qInstallMessageHandler(former);
    if (script.state() == QProcess::NotRunning) {
        return CannotStart(
            QString::fromUtf8(std::strerror(error)),
            QStringLiteral("Raise the limits of open files and processes, or free memory, then "
                           "run the setup again."));
    }
    if (!script.waitForStarted(-1)) {
        return CannotStart(
            script.errorString(),
            QStringLiteral("Make sure that /bin/bash is executable, then run the setup again."));
    }
    return {};
}

// A failing wait is not the script's end: it is tried again, for a few seconds.
bool WaitForEnd(CCommitScript& script, const QDeadlineTimer& deadline) {
    for (int failures = 0; failures < 10 && !deadline.hasExpired(); ++failures) {
        if (script.waitForFinished(static_cast<int>(deadline.remainingTime())) ||
            script.state() == QProcess::NotRunning)
            return true;
        if (!deadline.hasExpired())
            QThread::msleep(500);
    }
    return false;
}

// A tool of the script waits, for a file server or a lock for example.
Problem TerminateHung(CCommitScript& script, const QString& path, milliseconds longestRun) {
    constexpr milliseconds longestEnd(5000);
    const QString tool = NewestCommand(static_cast<pid_t>(script.processId()));
    EndGroup(script, std::min(longestRun, longestEnd));
    scriptGroup = 0;
    return {ExitStatus::Refused,
            QStringLiteral("commit script \"%1\" did not end within %2 seconds; terminated it")
                .arg(path)
                .arg(static_cast<double>(longestRun.count()) / 1000),
            tool.isEmpty()
                ? QStringLiteral("Find out what it waits for, then run the setup again.")
                : QStringLiteral("Find out why \"%1\" does not end, then run the setup again.")
                      .arg(tool),
            Changes::Kept};
}

// A script whose output nothing reads would wait indefinitely.
Problem TerminateUnmonitored(CCommitScript& script, const QString& path) {
    StopScript();
    scriptGroup = 0;
    script.kill();
    script.disconnect();
    // Qt would report a process that it leaves, without use.
    qInstallMessageHandler(DiscardMessage);
    return {StatusOfSignal(SIGTERM),
            QStringLiteral("cannot monitor commit script \"%1\"; terminated it").arg(path),
            {},
            Changes::Kept};
}

Failure ResultOf(const CCommitScript& script, const QString& path, ScriptOutput output) {
    if (script.exitStatus() == QProcess::CrashExit) {
        return Problem{StatusOfSignal(script.exitCode()),
                       QStringLiteral("commit script \"%1\" was terminated by signal %2")
                           .arg(path, NameOf(script.exitCode())),
                       {},
                       Changes::Kept};
    }
    if (receivedSignal != 0 && output == ScriptOutput::Shown) {
        ReportWarning({ExitStatus::Complete,
                       QStringLiteral("received signal %1, but the commit script ran to its end")
                           .arg(NameOf(receivedSignal)),
                       {}});
    }
    if (script.exitCode() == 0)
        return {};
    return Problem{
        static_cast<ExitStatus>(script.exitCode()),
        QStringLiteral("commit script \"%1\" failed with exit status %2; see the error above")
            .arg(path)
            .arg(script.exitCode()),
        QStringLiteral("Fix the cause."), Changes::Kept};
}

void Remove(const QString& path) {
    if (!path.isEmpty())
        unlink(path.toUtf8().constData());
}

// The text of a newly written script, whose path is added to `path`; empty when it is truncated.
QByteArray WriteOnce(CInstallBase& run, QString& path) {
    if (!run.WriteCommitScript(path, false))
        return {};
    const QByteArray text = ReadBack(path, INT_MAX);
    return text.endsWith("\nexit 0\n") ? text : QByteArray();
}

QByteArray WriteForComparison(CInstallBase& run) {
    QString path;
    QByteArray text = WriteOnce(run, path);
    Remove(path);
    return text;
}

Problem ScriptNotWritten(Changes changes) {
    return {
        ExitStatus::ScriptNotWritten, QStringLiteral("cannot write the commit script"),
        QStringLiteral("Make sure that /tmp is writable and not full, then run the setup again."),
        changes};
}

std::string ScriptDirectory() {
    const std::string path = Find(Item::CommitScript).path;
    return path.substr(0, path.rfind('/'));
}

Failure FollowToEnd(CommitScript& file, const SetupLock& lock, ScriptOutput output,
                    milliseconds longestRun) {
    const SignalsHandled whileItRuns(PassOn);
    Progress progress(output == ScriptOutput::Shown && isatty(STDOUT_FILENO) != 0);
    QByteArray collected;
    CCommitScript script;
    if (output == ScriptOutput::Shown && !Console::IsQuiet())
        ShowOutput(script, progress);
    else
        CollectOutput(script, collected);
    // A group of its own, so that a signal reaches the script and its tools exactly once.
    script.setChildProcessModifier([&lock, setup = getpid()] {
        setpgid(0, 0);
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        // The setup may have been killed before.
        if (getppid() != setup)
            _exit(1);
        lock.Inherit();
    });
    const QString& path = file.path;
    if (Failure failure = StartScript(script, path))
        return failure;
    file.wasRun = true;
    PassSignalsTo(static_cast<pid_t>(script.processId()));
    script.closeWriteChannel();
    const QDeadlineTimer deadline = output == ScriptOutput::Logged
                                        ? QDeadlineTimer(longestRun)
                                        : QDeadlineTimer(QDeadlineTimer::Forever);
    const bool ended = WaitForEnd(script, deadline);
    if (ended)
        scriptGroup = 0;
    progress.Finish();
    Failure failure = ended                   ? ResultOf(script, path, output)
                      : deadline.hasExpired() ? TerminateHung(script, path, longestRun)
                                              : TerminateUnmonitored(script, path);
    if (failure && ended && script.exitStatus() == QProcess::NormalExit)
        file.messages = FindScriptMessages(collected);
    {
        const bool isNeeded = failure && (!file.isDryRun || file.messages.error.isEmpty());
        const Console::Printing printing(isNeeded ? Console::Importance::Needed
                                                  : Console::Importance::Detail);
        progress.Show(collected);
        progress.Finish();
    }
    file.closing = progress.ClosingLines();
    if (output == ScriptOutput::Logged)
        SetupLog::Append(file.closing);
    return failure;
}

}  // namespace

Failure WriteScript(CInstallBase& run, CommitScript& script, Changes changes) {
    const QByteArray text = WriteOnce(run, script.path);
    if (!text.isEmpty() &&
        text == (script.text.isEmpty() ? WriteForComparison(run) : script.text)) {
        script.text = text;
        return {};
    }
    Remove(script.path);
    return ScriptNotWritten(changes);
}

bool AskAboutScript(const CommitScript& script, const std::function<bool()>& ask) {
    Interruption::Removes(script.path);
    const bool answer = ask();
    Remove(script.path);
    Interruption::Removes({});
    return answer;
}

Failure FollowScript(CommitScript& script, const SetupLock& lock, ScriptOutput output,
                     milliseconds longestRun) {
    Failure failure = FollowToEnd(script, lock, output, longestRun);
    // What the script has done in private is lost with this process.
    if (!failure && output == ScriptOutput::Logged && receivedSignal != 0)
        DieOf(receivedSignal);
    return failure;
}

void DescribeForecast(const CommitScript& script, Failure& failure) {
    if (!failure || !script.isDryRun || !script.wasRun || failure->status >= ExitStatus::SignalBase)
        return;
    const ScriptMessages& messages = script.messages;
    if (!messages.error.isEmpty()) {
        failure->text =
            QStringLiteral("commit script ends with exit status %1: %2")
                .arg(QString::number(static_cast<int>(failure->status)), messages.error);
        failure->remedy =
            messages.cause.isEmpty()
                ? QStringLiteral("To find the cause, add --verbose.")
                : QStringLiteral("Cause: %1. Fix it, then run the setup.").arg(messages.cause);
    }
    failure->text.prepend(QStringLiteral("a setup would fail here: "));
}

void FinishScript(const CommitScript& script, const Failure& failure) {
    if (!script.wasRun) {
        Remove(script.path);
        return;
    }
    if (failure)
        SetupLog::Append(script.closing);
    else
        WriteTo(stdout, script.closing);
    if (!failure || failure->status == ExitStatus::ServiceNotRunning)
        Remove(script.path);
    else
        Outcome::NoteKeptScript(script.path);
}

Descriptor OpenScriptDirectory() {
    return Descriptor(open(ScriptDirectory().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
}

Failure CheckScriptDirectory() {
    const std::string directory = ScriptDirectory();
    constexpr std::uint64_t largestScript = 65536;
    struct statvfs system = {};
    const bool isFull = statvfs(directory.c_str(), &system) == 0 &&
                        std::uint64_t{system.f_bavail} * system.f_frsize < largestScript;
    if (!isFull && access(directory.c_str(), W_OK | X_OK) == 0)
        return {};
    return ScriptNotWritten(Changes::None);
}

void SaveScript(const CommitScript& script, const Descriptor& directory) {
    if (!script.wasRun)
        return;
    const QByteArray path = script.path.toUtf8();
    const Descriptor file(openat(directory.Number(), path.constData() + path.lastIndexOf('/') + 1,
                                 O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                                 Find(Item::CommitScript).rootMode));
    if (file && WriteAll(file.Number(),
                         {script.text.constData(), static_cast<size_t>(script.text.size())}) == 0)
        Outcome::NoteKeptScript(script.path);
}

void StopScript() {
    if (scriptGroup > 0)
        kill(-scriptGroup, SIGTERM);
}
