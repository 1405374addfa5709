#include "apply/ScriptMessages.h"

#include <QStringList>

namespace {

// Such as "mkdir: cannot create directory". The script's own messages begin with other words.
bool IsOfTool(const QString& line) {
    const qsizetype colon = line.indexOf(u": ");
    return colon > 0 && line.lastIndexOf(u' ', colon) == -1;
}

}  // namespace

ScriptMessages FindScriptMessages(const QByteArray& output) {
    const QStringList lines = QString::fromUtf8(output).split(u'\n', Qt::SkipEmptyParts);
    if (lines.isEmpty())
        return {};
    qsizetype error = lines.size() - 1;
    while (error > 0 && !lines[error].startsWith(u"Error, "))
        --error;
    if (!lines[error].startsWith(u"Error, "))
        error = lines.size() - 1;
    qsizetype cause = error;
    while (cause > 0 && IsOfTool(lines[cause - 1]))
        --cause;
    constexpr qsizetype longest = 1000;
    return {lines[error].left(longest),
            lines.mid(cause, error - cause).join(QStringLiteral("; ")).left(longest)};
}
