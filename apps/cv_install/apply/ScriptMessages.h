// What a failing commit script printed last.
#pragma once

#include <QByteArray>
#include <QString>

struct ScriptMessages {
    QString error;  // the script's own message, or otherwise its last line; may be empty
    QString cause;  // the tool's messages directly before it; may be empty
};

// Finds the messages in the output of a commit script that failed.
ScriptMessages FindScriptMessages(const QByteArray& output);
