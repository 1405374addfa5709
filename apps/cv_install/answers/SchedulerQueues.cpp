#include "answers/SchedulerQueues.h"

#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <vector>

#include "installation/RootPath.h"
#include "installation/Tool.h"
#include "setuprun/Schedulers.h"

namespace {

constexpr std::chrono::seconds longestAnswer(10);

struct QueueCommand {
    const char* scheduler;
    std::vector<std::string> words;
    QStringList (*parse)(const QByteArray& text);
};

const QueueCommand queueCommands[] = {
    {hx::slurm.name, {"sinfo", "--all", "--noheader", "--format=%R"}, ParsePartitions},
    {hx::torque.name, {"qstat", "-Q", "-f"}, ParseQueues},
};

bool IsReplaceable(const std::string& program) {
    RootPath resolved;
    if (ResolveRootPath(program, true, resolved))
        return true;
    const std::optional<State> state =
        ReadState(resolved.parent.Number(), resolved.name, Reading::Nothing);
    return !state || state->kind != State::Kind::File || state->owner != 0 ||
           (state->mode & (S_IWGRP | S_IWOTH)) != 0;
}

}  // namespace

QStringList ParsePartitions(const QByteArray& text) {
    QStringList names;
    for (const QString& line : QString::fromUtf8(text).split(u'\n'))
        names.append(line.trimmed());
    names.removeAll(QString());
    names.removeDuplicates();
    return names;
}

QStringList ParseQueues(const QByteArray& text) {
    const QString start = QStringLiteral("Queue:");
    QStringList names;
    for (const QString& line : QString::fromUtf8(text).split(u'\n')) {
        if (line.startsWith(start))
            names.append(line.mid(start.size()).trimmed());
    }
    return names;
}

std::optional<QStringList> FindKnownQueues(const CInstallBase& run, QString& reason) {
    const hx::Scheduler* scheduler = hx::FindScheduler(run);
    for (const QueueCommand& command : queueCommands) {
        if (scheduler == nullptr || scheduler->name != std::string(command.scheduler))
            continue;
        std::vector<std::string> words = command.words;
        // In the directory of the command that submits jobs; without one, in the PATH.
        const QString& submit = run.*scheduler->commands.front().path;
        words[0] = submit.left(submit.lastIndexOf(u'/') + 1).toStdString() + words[0];
        if (getuid() == 0 && words[0].find('/') != std::string::npos && IsReplaceable(words[0])) {
            reason = QStringLiteral(
                         "root does not run \"%1\": others could replace it, or it does "
                         "not exist")
                         .arg(QString::fromStdString(words[0]));
            return {};
        }
        // Ends the program also if this process is killed.
        words.insert(words.begin(), {"timeout", std::to_string(longestAnswer.count())});
        const ToolOutput output = ReadTool(words, longestAnswer + std::chrono::seconds(1));
        if (!output.failure)
            return command.parse(output.text);
        reason = output.failure == QStringLiteral("exit status %1").arg(124)
                     ? QStringLiteral("no answer within %1 seconds").arg(longestAnswer.count())
                     // The last line of its messages.
                     : output.failure->section(QStringLiteral("; "), -1);
        return {};
    }
    return {};
}
