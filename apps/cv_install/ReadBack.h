// Looks at files that were just written: neither the library nor the commit script does.
#pragma once

#include <QByteArray>
#include <QString>

// At most `most` bytes from the start of the plain file `path`; empty when there is no such file or
// it cannot be read. What lies there may be somebody's trap: no pipe is waited for.
QByteArray ReadBack(const QString& path, qsizetype most);

// True when the file's bytes are exactly these.
bool Holds(const QString& path, const QByteArray& bytes);
