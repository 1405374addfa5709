#include "record/RecordText.h"

#include <unistd.h>

#include <QCryptographicHash>
#include <QDateTime>
#include <QFile>
#include <algorithm>
#include <array>
#include <utility>

#include "Problem.h"
#include "installation/Owners.h"

namespace {

constexpr const char* digestKey = "# sha256: ";

struct FactRow {
    const char* key;
    QString SetupFacts::*field;
};

constexpr FactRow factRows[] = {
    {"version", &SetupFacts::version},
    {"time", &SetupFacts::time},
    {"host", &SetupFacts::host},
    {"machine-id", &SetupFacts::machineId},
    {"user", &SetupFacts::user},
    {"install-directory", &SetupFacts::installDir},
    {"command-line", &SetupFacts::command},
};

QByteArray DigestOf(const QByteArray& text) {
    return QCryptographicHash::hash(text, QCryptographicHash::Sha256).toHex();
}

QByteArray LineOf(const FactRow& row, const SetupFacts& facts) {
    return QByteArray("# ") + row.key + ": " + Printable(facts.*row.field).toUtf8() + '\n';
}

QString WordForShell(const QString& word) {
    const bool isPlain = !word.isEmpty() && std::all_of(word.begin(), word.end(), [](QChar each) {
        return each.isLetterOrNumber() || QStringLiteral("/._-+=:,@%").contains(each);
    });
    if (isPlain)
        return word;
    QString quoted = word;
    quoted.replace(u'\'', QStringLiteral("'\\''"));
    return u'\'' + quoted + u'\'';
}

// Empty if it has none.
QString MachineId() {
    QFile file(QStringLiteral("/etc/machine-id"));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QByteArray text = file.read(33).trimmed();
    const bool isId = text.size() == 32 && std::all_of(text.begin(), text.end(), [](char digit) {
                          return (digit >= '0' && digit <= '9') || (digit >= 'a' && digit <= 'f');
                      });
    return isId ? QString::fromLatin1(text) : QString();
}

}  // namespace

QString HostName() {
    std::array<char, 256> name = {};
    return gethostname(name.data(), name.size() - 1) == 0 ? QString::fromUtf8(name.data())
                                                          : QString();
}

bool IsOfOtherMachine(const SetupFacts& facts) {
    const QString here = MachineId();
    return !here.isEmpty() && !facts.machineId.isEmpty() && here != facts.machineId;
}

QStringList CommandLine() {
    QFile file(QStringLiteral("/proc/self/cmdline"));
    QByteArray words = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    words.chop(1);
    return QString::fromUtf8(words).split(QChar(u'\0'));
}

SetupFacts FactsOf(const QStringList& command, const QString& installDir) {
    const QString sudoUser = qEnvironmentVariable("SUDO_USER");
    QStringList words;
    for (const QString& word : command)
        words.append(WordForShell(word));
    return {.version = QStringLiteral(HX_VERSION),
            .time = QDateTime::currentDateTimeUtc().toString(Qt::ISODate),
            .host = HostName(),
            .machineId = MachineId(),
            .user = getuid() == 0 && !sudoUser.isEmpty() ? sudoUser : UserName(getuid()),
            .installDir = installDir,
            .command = words.join(u' ')};
}

QByteArray RecordText(const QByteArray& firstLine, const SetupFacts& facts,
                      const QByteArray& body) {
    QByteArray text = firstLine + '\n';
    for (const FactRow& row : factRows)
        text += LineOf(row, facts);
    text += '\n' + body;
    return text + digestKey + DigestOf(text) + '\n';
}

std::optional<ParsedRecord> ParseRecordText(const QByteArray& text) {
    const qsizetype last = text.lastIndexOf('\n', -2) + 1;
    if (text.mid(last) != digestKey + DigestOf(text.first(last)) + '\n')
        return {};
    ParsedRecord parsed;
    qsizetype at = text.indexOf('\n') + 1;
    // Other versions may have further facts.
    for (QByteArray line; at < last && line != "\n"; at += line.size()) {
        line = text.mid(at, text.indexOf('\n', at) + 1 - at);
        for (const FactRow& row : factRows) {
            const QByteArray start = QByteArray("# ") + row.key + ": ";
            if (line.startsWith(start))
                parsed.facts.*row.field = QString::fromUtf8(line.mid(start.size()).chopped(1));
        }
    }
    parsed.body = text.mid(at, last - at);
    return parsed;
}
