// Reads files that other users may have replaced.
#pragma once

#include <QByteArray>
#include <QString>

// Returns at most `most` bytes from the start of the regular file `path`; empty when it is no
// regular file or cannot be read. Opens no device or FIFO that another user put there.
QByteArray ReadBack(const QString& path, qsizetype most);
