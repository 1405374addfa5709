#include "support/COSRelease.h"

#include <QFile>
#include <QHash>
#include <QStringList>

namespace {

// Returns a value as a shell reads it: without one pair of quotes and, except in single quotes,
// without the backslashes that escape the next character.
QString Unquoted(QStringView text) {
    QChar quote;
    if (text.size() >= 2 && (text.front() == u'"' || text.front() == u'\'') &&
        text.back() == text.front()) {
        quote = text.front();
        text = text.mid(1, text.size() - 2);
    }
    QString value;
    value.reserve(text.size());
    for (qsizetype i = 0; i < text.size(); ++i) {
        if (quote != u'\'' && text[i] == u'\\' && i + 1 < text.size())
            ++i;
        value += text[i];
    }
    return value;
}

QHash<QString, QString> ReadFields() {
    QFile file(QStringLiteral("/etc/os-release"));
    if (!file.open(QIODevice::ReadOnly)) {
        file.setFileName(QStringLiteral("/usr/lib/os-release"));
        if (!file.open(QIODevice::ReadOnly))
            return {};
    }
    QHash<QString, QString> fields;
    const QStringList lines = QString::fromUtf8(file.readAll()).split(u'\n');
    for (const QString& rawLine : lines) {
        const QString line = rawLine.trimmed();
        const qsizetype equals = line.indexOf(u'=');
        if (equals > 0 && !line.startsWith(u'#'))
            fields.insert(line.left(equals), Unquoted(QStringView(line).mid(equals + 1)));
    }
    return fields;
}

bool IsDebian(const QString& id) {
    static const QStringList ids = {"debian", "ubuntu", "devuan", "linuxmint", "raspbian", "kali"};
    return ids.contains(id);
}

// The editions of openSUSE are "opensuse-leap", "opensuse-tumbleweed", and so on.
bool IsRpm(const QString& id) {
    static const QStringList ids = {"rhel", "centos", "fedora", "rocky", "almalinux", "ol",
                                    "suse", "sles",   "sled",   "amzn",  "scientific"};
    return ids.contains(id) || id.startsWith(u"opensuse") || id.startsWith(u"sles_");
}

}  // namespace

COSRelease::COSRelease(int /*argc*/, char** /*argv*/) {
    const QHash<QString, QString> fields = ReadFields();
    m_name = fields.value(QStringLiteral("NAME"), QStringLiteral("Linux"));
    const QStringList ids =
        (fields.value(QStringLiteral("ID")) + u' ' + fields.value(QStringLiteral("ID_LIKE")))
            .toLower()
            .split(u' ', Qt::SkipEmptyParts);
    for (const QString& id : ids) {
        m_rpmBased = m_rpmBased || IsRpm(id);
        m_debBased = m_debBased || IsDebian(id);
    }
}
