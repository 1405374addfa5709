#include "ScriptRun.h"

#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <QThread>
#include <atomic>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "ExitStatus.h"
#include "Progress.h"
#include "ReadBack.h"
#include "RunTimeFiles.h"
#include "commit/CCommitScript.h"

namespace {

// What the handler shares with the rest: the script's process group, and the last signal.
std::atomic<pid_t> scriptGroup = 0;
std::atomic<int> receivedSignal = 0;
static_assert(std::atomic<int>::is_always_lock_free);

// Bash ignores the quit key's signal, and would go on without the tool that dies of it.
int ForTheScript(int signal) {
    return signal == SIGQUIT ? SIGTERM : signal;
}

void PassOn(int signal) {
    receivedSignal = signal;
    if (scriptGroup > 0)
        kill(-scriptGroup, ForTheScript(signal));
}

// While it lives, a request to end goes to the script, and cv_install stays to tell the outcome.
class SignalsPassedOn {
public:
    SignalsPassedOn() {
        struct sigaction action = {};
        action.sa_handler = PassOn;
        action.sa_flags = SA_RESTART;
        for (size_t i = 0; i < std::size(passedOn); ++i) {
            sigaction(passedOn[i], nullptr, &m_former[i]);
            // What the caller ignores, as nohup does, stays ignored, by the script as well.
            if (m_former[i].sa_handler != SIG_IGN)
                sigaction(passedOn[i], &action, nullptr);
        }
    }
    ~SignalsPassedOn() {
        for (size_t i = 0; i < std::size(passedOn); ++i)
            sigaction(passedOn[i], &m_former[i], nullptr);
        scriptGroup = 0;
    }
    SignalsPassedOn(const SignalsPassedOn&) = delete;
    SignalsPassedOn& operator=(const SignalsPassedOn&) = delete;

    // The group gets what came before there was one.
    static void To(pid_t group) {
        setpgid(group, group);
        scriptGroup = group;
        if (receivedSignal != 0)
            kill(-group, ForTheScript(receivedSignal));
    }

private:
    static constexpr int passedOn[] = {SIGINT, SIGQUIT, SIGTERM, SIGHUP};
    struct sigaction m_former[std::size(passedOn)] = {};
};

// True when stdout and stderr are the same place, where the order of their lines matters.
bool ErrorsGoWithOutput() {
    struct stat out = {};
    struct stat err = {};
    return fstat(STDOUT_FILENO, &out) == 0 && fstat(STDERR_FILENO, &err) == 0 &&
           out.st_dev == err.st_dev && out.st_ino == err.st_ino;
}

bool OnTerminal() {
    return isatty(STDOUT_FILENO) != 0;
}

// Copies what the script writes, when it comes, through our own streams and so into the log.
void ShowOutput(CCommitScript& script, Progress& progress) {
    if (ErrorsGoWithOutput())
        script.setProcessChannelMode(QProcess::MergedChannels);
    QObject::connect(&script, &QProcess::readyReadStandardOutput, [&script, &progress] {
        if (OnTerminal())
            progress.Tell(static_cast<pid_t>(script.processId()));
        const QByteArray text = script.readAllStandardOutput();
        std::fwrite(text.constData(), 1, static_cast<size_t>(text.size()), stdout);
        std::fflush(stdout);
    });
    QObject::connect(&script, &QProcess::readyReadStandardError, [&script] {
        const QByteArray text = script.readAllStandardError();
        std::fwrite(text.constData(), 1, static_cast<size_t>(text.size()), stderr);
    });
}

int TellNotStarted(const CCommitScript& script) {
    std::fprintf(stderr,
                 "cv_install: the commit script could not be started: %s\n"
                 "    %s  See that /bin/bash can be run, and run the setup again.\n",
                 qUtf8Printable(script.errorString()), OnlyRunTimeFilesChanged);
    return static_cast<int>(ExitStatus::ScriptNotStarted);
}

int TellEndedBySignal(int signal, const QString& path) {
    std::fprintf(stderr,
                 "cv_install: the commit script %s was ended by a signal (%s)\n"
                 "    What it had done remains.  Run the setup again to complete it.\n",
                 qUtf8Printable(path), strsignal(signal));
    return static_cast<int>(ExitStatus::SignalBase) + signal;
}

// A wait that fails is not the script's end: it is tried again, for a few seconds.
bool WaitForEnd(CCommitScript& script) {
    for (int failures = 0; failures < 10; ++failures) {
        if (script.waitForFinished(-1) || script.state() == QProcess::NotRunning)
            return true;
        QThread::msleep(500);
    }
    return false;
}

// A script whose output nobody takes would wait for ever.
int TellLost(CCommitScript& script, const QString& path) {
    StopScript();
    script.kill();
    script.disconnect();
    // Qt would tell of a process that it leaves, to no use.
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    std::fprintf(stderr,
                 "cv_install: the commit script %s could not be followed to its end, and was "
                 "ended\n    What it had done remains.  Run the setup again to complete it.\n",
                 qUtf8Printable(path));
    return static_cast<int>(ExitStatus::SignalBase) + SIGTERM;
}

int TellEnd(const CCommitScript& script, const QString& path) {
    if (script.exitStatus() == QProcess::CrashExit)
        return TellEndedBySignal(script.exitCode(), path);
    if (receivedSignal != 0) {
        std::fprintf(stderr,
                     "cv_install: the commit script went on to its end after a signal (%s)\n",
                     strsignal(receivedSignal));
    }
    if (script.exitCode() != 0) {
        std::fprintf(stderr,
                     "cv_install: the commit script %s failed with status %d, its message stands "
                     "above\n    What it had done remains.  Mend the cause and run the setup "
                     "again.\n",
                     qUtf8Printable(path), script.exitCode());
    }
    return script.exitCode();
}

// The library does not look at how its writes go, and a full disc may take lines out of a script.
// One that a second writing confirms is whole.
bool IsWhole(CInstallBase& run, const QString& path) {
    QString second;
    if (!run.WriteCommitScript(second, false))
        return false;
    const QByteArray text = ReadBack(second, INT_MAX);
    unlink(second.toUtf8().constData());
    return text.endsWith("\nexit 0\n") && Holds(path, text);
}

}  // namespace

QString WriteScript(CInstallBase& run) {
    QString path;
    if (run.WriteCommitScript(path, false) && IsWhole(run, path))
        return path;
    if (!path.isEmpty())
        unlink(path.toUtf8().constData());
    std::fprintf(stderr,
                 "cv_install: the commit script could not be written, nothing has been changed\n"
                 "    See that /tmp exists, may be written to and has space, and run the setup "
                 "again.\n");
    return {};
}

int FollowScript(const QString& path) {
    std::printf("Commit script: %s\n", qUtf8Printable(path));
    std::fflush(stdout);

    const SignalsPassedOn whileItRuns;
    Progress progress(path);
    CCommitScript script;
    ShowOutput(script, progress);
    // A group of its own, so that a signal reaches the script and its tools exactly once.
    script.setChildProcessModifier([] { setpgid(0, 0); });
    script.Run(path);
    if (!script.waitForStarted(-1))
        return TellNotStarted(script);
    SignalsPassedOn::To(static_cast<pid_t>(script.processId()));
    script.closeWriteChannel();
    if (!WaitForEnd(script))
        return TellLost(script, path);
    if (OnTerminal() && script.exitStatus() == QProcess::NormalExit && script.exitCode() == 0)
        progress.TellRest();
    return TellEnd(script, path);
}

void StopScript() {
    if (scriptGroup > 0)
        kill(-scriptGroup, SIGTERM);
}
