#include "apply/ProcessGroup.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QThread>
#include <csignal>
#include <utility>

namespace {

QByteArray ReadProcessFile(const QString& process, const char* name) {
    QFile file(QStringLiteral("/proc/%1/%2").arg(process, QLatin1String(name)));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// The fields after the name, which can contain spaces and parentheses: state, parent, group, ...
QList<QByteArray> FieldsAfterName(const QByteArray& stat) {
    return stat.mid(stat.lastIndexOf(')') + 2).split(' ');
}

}  // namespace

QString NewestCommand(pid_t group) {
    constexpr int groupField = 2;
    constexpr int startTimeField = 19;
    constexpr qsizetype longestShown = 200;
    std::pair<qulonglong, int> newest = {};
    QString command;
    const QStringList entries = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs);
    for (const QString& entry : entries) {
        const int process = entry.toInt();
        if (process <= 0 || process == group)
            continue;
        const QList<QByteArray> fields = FieldsAfterName(ReadProcessFile(entry, "stat"));
        const auto age = std::pair(fields.value(startTimeField).toULongLong(), process);
        if (fields.value(groupField).toInt() != group || age < newest)
            continue;
        const QByteArray words = ReadProcessFile(entry, "cmdline").replace('\0', ' ').trimmed();
        if (words.isEmpty())
            continue;
        newest = age;
        command = QString::fromUtf8(words).left(longestShown);
    }
    return command;
}

void EndGroup(QProcess& first, std::chrono::milliseconds grace) {
    const auto group = static_cast<pid_t>(first.processId());
    const QDeadlineTimer deadline(grace);
    kill(-group, SIGTERM);
    while (kill(-group, 0) == 0 && !deadline.hasExpired()) {
        if (!first.waitForFinished(50))
            QThread::msleep(10);
    }
    kill(-group, SIGKILL);
    first.waitForFinished(static_cast<int>(grace.count()));
}
