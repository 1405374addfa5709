// Reads files that other users may have replaced.
#pragma once

#include <QByteArray>
#include <QString>

// Returns at most `most` bytes from the start of the regular file `path`; empty when it is no
// regular file or cannot be read. Never blocks on a FIFO planted by another user.
QByteArray ReadBack(const QString& path, qsizetype most);
